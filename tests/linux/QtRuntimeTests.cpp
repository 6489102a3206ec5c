#include <gtest/gtest.h>

#include <QCoreApplication>

#include <atomic>
#include <thread>
#include <vector>

#include "QtLoop.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/runtime/ThreadSerialQueue.h"

namespace wh::platform {
namespace {

QCoreApplication& app() { return test::qtApplication(); }
using test::spinUntil;

TEST(QtRuntime, PostAndAfterRunOnTheMainThreadInOrder) {
  app();
  QtRuntime rt;
  const auto mainThread = std::this_thread::get_id();
  std::vector<int> order;
  std::vector<std::thread::id> threads;
  rt.main().after(0.05, [&] { order.push_back(3); threads.push_back(std::this_thread::get_id()); });
  rt.main().post([&] { order.push_back(1); });
  std::thread([&] { rt.main().post([&] { order.push_back(2); threads.push_back(std::this_thread::get_id()); }); })
      .join();
  ASSERT_TRUE(spinUntil([&] { return order.size() == 3; }));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
  for (auto id : threads) EXPECT_EQ(id, mainThread);
}

TEST(QtRuntime, AfterWaitsAtLeastItsDelayAndCancelStopsIt) {
  app();
  QtRuntime rt;
  bool cancelledRan = false;
  double firedAt = 0;
  const double start = rt.clock().now();
  auto cancelled = rt.main().after(0.02, [&] { cancelledRan = true; });
  rt.main().after(0.1, [&] { firedAt = rt.clock().now(); });
  cancelled->cancel();
  ASSERT_TRUE(spinUntil([&] { return firedAt > 0; }));
  EXPECT_GE(firedAt - start, 0.099);
  EXPECT_FALSE(cancelledRan);
}

TEST(QtRuntime, AfterFromAnotherThreadStillFiresOnMain) {
  app();
  QtRuntime rt;
  std::atomic<bool> fired = false;
  std::thread::id firedOn;
  std::thread([&] { rt.main().after(0.01, [&] { firedOn = std::this_thread::get_id(); fired = true; }); }).join();
  ASSERT_TRUE(spinUntil([&] { return fired.load(); }));
  EXPECT_EQ(firedOn, std::this_thread::get_id());
}

TEST(QtRuntime, RepeatingTimerTicksUntilInvalidated) {
  app();
  QtRuntime rt;
  int ticks = 0;
  auto timer = rt.main().every(0.01, 0, [&] { ++ticks; });
  ASSERT_TRUE(spinUntil([&] { return ticks >= 3; }));
  timer->invalidate();
  const int seen = ticks;
  test::spinFor(50);
  EXPECT_EQ(ticks, seen);
}

TEST(ThreadSerialQueue, RunsTasksOneAtATimeInOrderOffTheCallingThread) {
  ThreadSerialQueue queue("wrenhaven.test", QueuePriority::utility);
  std::vector<int> order;
  std::atomic<int> running = 0;
  std::atomic<int> overlap = 0;
  std::thread::id worker;
  for (int i = 0; i < 100; ++i) {
    queue.async([&, i] {
      if (running.fetch_add(1) != 0) ++overlap;
      order.push_back(i);
      worker = std::this_thread::get_id();
      running.fetch_sub(1);
    });
  }
  queue.sync([] {});
  ASSERT_EQ(order.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<size_t>(i)], i);
  EXPECT_EQ(overlap.load(), 0);
  EXPECT_NE(worker, std::this_thread::get_id());
}

TEST(ThreadSerialQueue, SyncFromInsideTheQueueDoesNotDeadlockAndDestructionRunsWhatIsQueued) {
  int ran = 0;
  {
    ThreadSerialQueue queue("q", QueuePriority::background);
    queue.sync([&] { queue.sync([&] { ++ran; }); });
    for (int i = 0; i < 10; ++i) queue.async([&] { ++ran; });
  }
  EXPECT_EQ(ran, 11);
}

}  // namespace
}  // namespace wh::platform
