#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "QtLoop.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/runtime/ThreadSerialQueue.h"

namespace wh::platform {
namespace {

TEST(QtRuntime, WorkFromAnyThreadRunsOnTheMainThreadInOrderAfterItsDelayUnlessCancelled) {
  test::qtApplication();
  QtRuntime rt;
  std::vector<std::string> order;
  const auto mainThread = std::this_thread::get_id();
  const double start = rt.clock().now();
  const auto note = [&](std::string what, double notBefore = 0) {
    return [&, what, notBefore] {
      const bool early = rt.clock().now() - start < notBefore - 0.001;
      order.push_back(what + (std::this_thread::get_id() == mainThread ? "" : " off main") + (early ? " early" : ""));
    };
  };
  rt.main().after(0.1, note("late", 0.1));
  rt.main().after(0.02, note("cancelled"))->cancel();
  rt.main().post(note("first"));
  std::thread([&] {
    rt.main().post(note("second"));
    rt.main().after(0.01, note("from a thread", 0.01));
  }).join();
  ASSERT_TRUE(test::spinUntil([&] { return order.size() == 4; }));
  EXPECT_EQ(order, (std::vector<std::string>{"first", "second", "from a thread", "late"}));

  int ticks = 0;
  auto timer = rt.main().every(0.01, 0, [&] { ++ticks; });
  ASSERT_TRUE(test::spinUntil([&] { return ticks >= 3; }));
  timer->invalidate();
  const int seen = ticks;
  test::spinFor(50);
  EXPECT_EQ(ticks, seen);
}

TEST(ThreadSerialQueue, RunsTasksOneAtATimeInOrderOffTheCallerAndFinishesThemWhenDropped) {
  std::vector<int> order;
  std::atomic<int> running = 0, overlap = 0, onCaller = 0;
  const auto caller = std::this_thread::get_id();
  {
    ThreadSerialQueue queue("wrenhaven.test", QueuePriority::utility);
    queue.sync([&] { queue.sync([&] { order.push_back(-1); }); });  // from inside: no deadlock
    for (int i = 0; i < 100; ++i) {
      queue.async([&, i] {
        overlap += running.fetch_add(1) != 0;
        onCaller += std::this_thread::get_id() == caller;
        order.push_back(i);
        running.fetch_sub(1);
      });
    }
  }
  ASSERT_EQ(order.size(), 101u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<size_t>(i) + 1], i);
  EXPECT_EQ(overlap.load(), 0);
  EXPECT_EQ(onCaller.load(), 0);
}

}  // namespace
}  // namespace wh::platform
