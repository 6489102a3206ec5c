#pragma once
// Adapter tests on the private system bus rig: the Qt runtime (its main queue is this thread's
// event loop), a Qt connection to the rig's bus, and blocking calls made off the main thread while
// the main thread keeps its event loop turning (as the agent's serial queues do).

#include <gtest/gtest.h>

#include <QDBusConnection>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

#include "QtLoop.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "support/RigRequired.h"
#include "support/SystemBusRig.h"

namespace wh::test {

// Runs `work` on a thread of its own and returns its result, turning the main thread's event
// loop meanwhile so that what the work causes there gets delivered.
template <class Work>
auto offMainThread(Work work) {
  std::optional<decltype(work())> result;
  std::atomic<bool> done = false;
  std::thread worker([&] { result = work(), done = true; });
  spinUntil([&] { return done.load(); }, 60000);
  worker.join();
  return *result;
}

class SystemBusTest : public testing::Test {
 protected:
  ~SystemBusTest() override {
    if (!name_.isEmpty()) QDBusConnection::disconnectFromBus(name_);
  }
  // False when the test cannot go on: skipped because the rig could not start, or not connected.
  // Adapters made on `connection()` must be dropped before the test ends.
  bool start(SystemBusRig::Options options) {
    qtApplication();
    if (!name_.isEmpty()) QDBusConnection::disconnectFromBus(name_);
    rig = std::make_unique<SystemBusRig>(options);
    if (!rig->available()) {
      [&] { REQUIRE_RIG(false, rig->whyNot()); }();
      return false;
    }
    runtime = std::make_unique<platform::QtRuntime>();
    static int made = 0;
    name_ = QStringLiteral("wrenhaven-test-%1").arg(++made);
    bus_ = QDBusConnection::connectToBus(QString::fromStdString(rig->systemBusAddress()), name_);
    EXPECT_TRUE(bus_.isConnected()) << "no Qt connection to " << rig->systemBusAddress();
    return bus_.isConnected();
  }
  MainQueue& mainQueue() { return runtime->main(); }
  const QDBusConnection& connection() const { return bus_; }

  std::unique_ptr<SystemBusRig> rig;
  std::unique_ptr<platform::QtRuntime> runtime;

 private:
  QString name_;
  QDBusConnection bus_{QString()};
};

}  // namespace wh::test
