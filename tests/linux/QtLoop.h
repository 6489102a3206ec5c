#pragma once
// The Qt event loop for adapter tests whose callbacks arrive on the main queue.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>

#include <functional>

namespace wh::test {

// The process's Qt application, made on first use.
inline QCoreApplication& qtApplication() {
  static int argc = 1;
  static char name[] = "linux_tests";
  static char* argv[] = {name, nullptr};
  if (QCoreApplication::instance() == nullptr) new QCoreApplication(argc, argv);
  return *QCoreApplication::instance();
}

// Runs the event loop until the condition holds or the time (milliseconds) runs out.
inline bool spinUntil(const std::function<bool()>& condition, int timeoutMs = 10000) {
  QElapsedTimer clock;
  clock.start();
  while (!condition()) {
    if (clock.elapsed() > timeoutMs) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
  }
  return true;
}

// Runs the event loop for a while, so that anything already queued gets its turn.
inline void spinFor(int milliseconds) { spinUntil([] { return false; }, milliseconds); }

}  // namespace wh::test
