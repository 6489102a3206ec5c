// Sleep and wake against python-dbusmock's logind on a private system bus, read through logind's
// own inhibitor list: the delay lock is held while observing, sleep waits for willSleep, wake
// takes a new lock, and a restarted logind gets one too.
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "SystemBusTest.h"
#include "platform/linux/bluetooth/LogindSleepWatcher.h"

namespace wh::platform {
namespace {

using test::SystemBusRig;

class LogindSleepWatcherTest : public test::SystemBusTest {
 protected:
  bool start() {
    if (!SystemBusTest::start({.bluez = false, .logind = true})) return false;
    watcher = std::make_unique<LogindSleepWatcher>(mainQueue(), connection());
    return true;
  }
  // Our locks in logind's list.
  std::vector<SystemBusRig::Inhibitor> ours() {
    std::vector<SystemBusRig::Inhibitor> locks;
    for (auto& lock : rig->inhibitors()) {
      if (lock.who == LogindSleepWatcher::inhibitorWho) locks.push_back(lock);
    }
    return locks;
  }
  bool holding(std::size_t count) {
    return test::spinUntil([&] { return ours().size() == count; });
  }

  std::unique_ptr<LogindSleepWatcher> watcher;
};

TEST_F(LogindSleepWatcherTest, SleepWaitsForWillSleepAndWakeTakesANewLock) {
  if (!start()) return;
  const auto mainThread = std::this_thread::get_id();
  int slept = 0;
  int woke = 0;
  std::vector<std::size_t> locksDuringWillSleep;
  bool onMain = true;
  auto registration = watcher->observe(
      [&] {
        onMain = onMain && std::this_thread::get_id() == mainThread;
        locksDuringWillSleep.push_back(ours().size());
        ++slept;
      },
      [&] {
        onMain = onMain && std::this_thread::get_id() == mainThread;
        ++woke;
      });

  ASSERT_TRUE(holding(1));
  const auto lock = ours().front();
  EXPECT_EQ(lock.what, "sleep");
  EXPECT_EQ(lock.mode, "delay");
  EXPECT_EQ(lock.why, LogindSleepWatcher::inhibitorWhy);

  ASSERT_TRUE(rig->emitPrepareForSleep(true));
  ASSERT_TRUE(test::spinUntil([&] { return slept == 1; }));
  // The machine was still held back while willSleep ran, and is let go once it returned.
  EXPECT_EQ(locksDuringWillSleep, (std::vector<std::size_t>{1}));
  EXPECT_TRUE(holding(0));
  EXPECT_EQ(woke, 0);

  ASSERT_TRUE(rig->emitPrepareForSleep(false));
  ASSERT_TRUE(test::spinUntil([&] { return woke == 1; }));
  EXPECT_TRUE(holding(1));
  EXPECT_EQ(slept, 1);
  EXPECT_TRUE(onMain);

  // A second sleep works the same way.
  ASSERT_TRUE(rig->emitPrepareForSleep(true));
  ASSERT_TRUE(test::spinUntil([&] { return slept == 2; }));
  EXPECT_EQ(locksDuringWillSleep, (std::vector<std::size_t>{1, 1}));
  EXPECT_TRUE(holding(0));
}

TEST_F(LogindSleepWatcherTest, TheLockLastsAsLongAsTheRegistrationAndSurvivesALogindRestart) {
  if (!start()) return;
  int slept = 0;
  auto registration = watcher->observe([&] { ++slept; }, [] {});
  ASSERT_TRUE(holding(1));

  ASSERT_TRUE(rig->restartLogind());
  EXPECT_TRUE(holding(1));
  // Sleep notices still come from the new logind.
  ASSERT_TRUE(rig->emitPrepareForSleep(true));
  EXPECT_TRUE(test::spinUntil([&] { return slept == 1; }));
  EXPECT_TRUE(holding(0));
  ASSERT_TRUE(rig->emitPrepareForSleep(false));
  EXPECT_TRUE(holding(1));

  registration.reset();
  EXPECT_TRUE(holding(0));
}

}  // namespace
}  // namespace wh::platform
