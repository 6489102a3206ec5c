// Sleep and wake against python-dbusmock's logind on a private system bus, read through logind's
// own inhibitor list: the delay lock is held while observing and until the sleep work is done (or
// its time is up), wake takes a new lock, and a restarted logind gets one too.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>

using namespace std::chrono_literals;

#include "SystemBusTest.h"
#include "platform/linux/bluetooth/LogindSleepWatcher.h"

namespace wh::platform {
namespace {

class LogindSleepWatcherTest : public test::SystemBusTest {
 protected:
  // The sleep work's limit is long here, so that a loaded machine cannot pass for a lock released
  // too early; `observe(limit)` tries a short one.
  bool start() {
    if (!SystemBusTest::start({.bluez = false, .logind = true})) return false;
    observe(20s);
    return true;
  }
  void observe(std::chrono::milliseconds limit) {
    registration.reset();
    watcher = std::make_unique<LogindSleepWatcher>(mainQueue(), connection(), limit);
    registration = watcher->observe(
        [this](std::function<void()> done) {
          EXPECT_EQ(std::this_thread::get_id(), mainThread);
          ++slept;
          finish = std::move(done);
        },
        [this] {
          EXPECT_EQ(std::this_thread::get_id(), mainThread);
          ++woke;
        });
  }
  // Our delay locks for sleep in logind's list.
  bool holding(std::size_t count, int timeoutMs = 10000) {
    const std::string ours = std::string("sleep ") + LogindSleepWatcher::inhibitorWho + " ";
    return test::spinUntil([&] {
      std::size_t found = 0;
      for (const auto& lock : rig->inhibitors()) found += lock.starts_with(ours) && lock.ends_with(" delay");
      return found == count;
    }, timeoutMs);
  }

  std::unique_ptr<LogindSleepWatcher> watcher;
  std::unique_ptr<Registration> registration;
  std::function<void()> finish;
  int slept = 0, woke = 0;
  std::thread::id mainThread = std::this_thread::get_id();
};

TEST_F(LogindSleepWatcherTest, SleepWaitsForTheWorkOrItsTimeAndALockIsHeldWhileAwakeAndRegistered) {
  if (!start()) return;
  ASSERT_TRUE(holding(1));
  ASSERT_TRUE(rig->emitPrepareForSleep(true));
  ASSERT_TRUE(test::spinUntil([&] { return slept == 1; }));
  test::spinFor(300);
  EXPECT_TRUE(holding(1)) << "released before the sleep work was done";
  std::thread([done = finish] { done(); }).join();  // done from another thread
  EXPECT_TRUE(holding(0));
  ASSERT_TRUE(rig->emitPrepareForSleep(false));
  ASSERT_TRUE(test::spinUntil([&] { return woke == 1; }));
  EXPECT_TRUE(holding(1));

  // Work that never finishes holds the machine up for the time limit only.
  observe(1000ms);
  ASSERT_TRUE(holding(1));
  ASSERT_TRUE(rig->emitPrepareForSleep(true));
  ASSERT_TRUE(test::spinUntil([&] { return slept == 2; }));
  EXPECT_TRUE(holding(0, 5000));
  // Work finishing after the machine woke leaves the new lock alone.
  ASSERT_TRUE(rig->emitPrepareForSleep(false));
  ASSERT_TRUE(holding(1));
  ASSERT_TRUE(rig->emitPrepareForSleep(true));
  ASSERT_TRUE(test::spinUntil([&] { return slept == 3; }));
  auto late = finish;
  ASSERT_TRUE(rig->emitPrepareForSleep(false));
  ASSERT_TRUE(test::spinUntil([&] { return woke == 3; }));
  late();
  test::spinFor(200);
  EXPECT_TRUE(holding(1));
  // A restarted logind gets a new lock; the lock lasts as long as the registration.
  ASSERT_TRUE(rig->restartLogind());
  EXPECT_TRUE(holding(1));
  ASSERT_TRUE(rig->emitPrepareForSleep(true));
  ASSERT_TRUE(test::spinUntil([&] { return slept == 4; }));
  finish();
  EXPECT_TRUE(holding(0));
  ASSERT_TRUE(rig->emitPrepareForSleep(false));
  ASSERT_TRUE(holding(1));
  registration.reset();
  EXPECT_TRUE(holding(0));
}

}  // namespace
}  // namespace wh::platform
