#pragma once
// Adapter tests on the private system bus rig: Qt's side of the bus, the Qt runtime, and blocking
// calls made off the main thread while the main thread keeps its event loop turning (as the
// agent's serial queues do).

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QString>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "QtLoop.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "support/SystemBusRig.h"

namespace wh::test {

// A connection to the bus at `address`, closed when dropped. Drop it after every adapter that uses it.
class QtBusConnection {
 public:
  explicit QtBusConnection(const std::string& address)
      : name_(QStringLiteral("wrenhaven-test-%1").arg(++count())),
        connection_(QDBusConnection::connectToBus(QString::fromStdString(address), name_)) {}
  ~QtBusConnection() { QDBusConnection::disconnectFromBus(name_); }
  QtBusConnection(const QtBusConnection&) = delete;
  QtBusConnection& operator=(const QtBusConnection&) = delete;

  const QDBusConnection& get() const { return connection_; }

 private:
  static int& count() {
    static int made = 0;
    return made;
  }
  QString name_;
  QDBusConnection connection_;
};

// Runs `work` on a thread of its own and returns its result, turning the main thread's event
// loop meanwhile so that what the work causes there gets delivered.
template <class Work>
auto offMainThread(Work work) {
  std::optional<decltype(work())> result;
  std::atomic<bool> done = false;
  std::thread worker([&] {
    result = work();
    done = true;
  });
  spinUntil([&] { return done.load(); }, 60000);
  worker.join();
  return *result;
}

// A test with the rig, the Qt runtime (its main queue is this thread's event loop) and a Qt
// connection to the rig's system bus.
class SystemBusTest : public testing::Test {
 protected:
  // False when the test cannot go on: skipped because the rig could not start, or not connected.
  bool start(SystemBusRig::Options options) {
    qtApplication();
    rig = std::make_unique<SystemBusRig>(options);
    if (!rig->available()) {
      [&] { GTEST_SKIP() << rig->whyNot(); }();
      return false;
    }
    runtime = std::make_unique<platform::QtRuntime>();
    bus = std::make_unique<QtBusConnection>(rig->systemBusAddress());
    EXPECT_TRUE(bus->get().isConnected()) << "no Qt connection to " << rig->systemBusAddress();
    return bus->get().isConnected();
  }

  MainQueue& mainQueue() { return runtime->main(); }
  const QDBusConnection& connection() const { return bus->get(); }

  std::unique_ptr<SystemBusRig> rig;
  std::unique_ptr<platform::QtRuntime> runtime;
  std::unique_ptr<QtBusConnection> bus;
};

}  // namespace wh::test
