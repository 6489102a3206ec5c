#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "doubles/VirtualRuntime.h"

namespace wh {
namespace {

TEST(VirtualRuntime, RunsDueWorkInTimeOrderAndSameTimesInPostingOrder) {
  VirtualRuntime rt;
  std::vector<std::string> order;
  rt.main().after(2.0, [&] { order.push_back("b@2"); });
  rt.main().after(1.0, [&] { order.push_back("a@1"); });
  rt.main().after(2.0, [&] { order.push_back("c@2"); });
  rt.main().post([&] { order.push_back("now"); });

  rt.advance(1.5);
  EXPECT_EQ(order, (std::vector<std::string>{"now", "a@1"}));
  EXPECT_DOUBLE_EQ(rt.clock().now(), 1.5);
  rt.advance(0.5);
  EXPECT_EQ(order, (std::vector<std::string>{"now", "a@1", "b@2", "c@2"}));
}

TEST(VirtualRuntime, WorkSeesTheClockAtItsOwnDueTimeAndChainsWithinOneAdvance) {
  VirtualRuntime rt;
  std::vector<double> seen;
  rt.main().after(1.0, [&] {
    seen.push_back(rt.clock().now());
    rt.main().after(0.25, [&] { seen.push_back(rt.clock().now()); });
  });
  rt.advance(10);
  EXPECT_EQ(seen, (std::vector<double>{1.0, 1.25}));
  EXPECT_DOUBLE_EQ(rt.clock().now(), 10.0);
}

TEST(VirtualRuntime, CancelledAndReplacedWorkNeverRuns) {
  VirtualRuntime rt;
  int ran = 0;
  auto item = rt.main().after(1.0, [&] { ran += 1; });
  item->cancel();

  HeldWork held;
  held = rt.main().after(1.0, [&] { ran += 10; });
  held = rt.main().after(2.0, [&] { ran += 100; });  // replaces, cancelling the first
  EXPECT_TRUE(held.isPending());
  rt.advance(5);
  EXPECT_EQ(ran, 100);
  EXPECT_FALSE(held.isPending());

  {
    HeldWork scoped;
    scoped = rt.main().after(1.0, [&] { ran += 1000; });
  }  // destroyed holder cancels its work
  rt.advance(5);
  EXPECT_EQ(ran, 100);
  EXPECT_EQ(rt.pendingMainWork(), 0u);
}

TEST(VirtualRuntime, RepeatingTimerTicksAtItsIntervalUntilInvalidated) {
  VirtualRuntime rt;
  std::vector<double> ticks;
  auto timer = rt.main().every(300, 60, [&] { ticks.push_back(rt.clock().now()); });
  rt.advance(299);
  EXPECT_TRUE(ticks.empty());
  rt.advance(601);
  EXPECT_EQ(ticks, (std::vector<double>{300, 600, 900}));
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
  rt.advance(1000);
  EXPECT_EQ(ticks.size(), 3u);
}

TEST(VirtualRuntime, TimerMayStopItselfFromItsOwnTick) {
  VirtualRuntime rt;
  int ticks = 0;
  std::unique_ptr<RepeatingTimer> timer;
  timer = rt.main().every(1, 0, [&] {
    if (++ticks == 2) timer.reset();
  });
  rt.advance(10);
  EXPECT_EQ(ticks, 2);
}

TEST(VirtualRuntime, SerialQueuesRunOnlyWhenDrainedAndHopBackToMain) {
  VirtualRuntime rt;
  auto queue = rt.makeSerialQueue("wrenhaven.test", QueuePriority::utility);
  Lifetime owner;
  std::vector<std::string> order;
  runThenMain<int>(*queue, rt.main(), owner, [&] { order.push_back("work"); return 7; },
                   [&](int result) { order.push_back("done " + std::to_string(result)); });
  queue->async([&] { order.push_back("second"); });
  rt.advance(1);
  EXPECT_TRUE(order.empty());
  EXPECT_EQ(rt.pendingSerialTasks(), 2u);
  rt.drainSerialQueues();
  EXPECT_EQ(order, (std::vector<std::string>{"work", "second", "done 7"}));
  EXPECT_EQ(rt.serialQueue("wrenhaven.test"), queue.get());
}

TEST(VirtualRuntime, SyncRunsEverythingQueuedBeforeIt) {
  VirtualRuntime rt;
  auto queue = rt.makeSerialQueue("q", QueuePriority::utility);
  std::vector<int> order;
  queue->async([&] { order.push_back(1); });
  queue->sync([&] { order.push_back(2); });
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(Lifetime, WorkOfAGoneOwnerDoesNothing) {
  VirtualRuntime rt;
  auto queue = rt.makeSerialQueue("q", QueuePriority::utility);
  int done = 0;
  auto owner = std::make_unique<Lifetime>();
  runThenMain(*queue, rt.main(), *owner, [] {}, [&] { ++done; });
  auto guarded = owner->guard([&](int add) { done += add; });
  owner.reset();
  rt.drainSerialQueues();
  guarded(5);
  EXPECT_EQ(done, 0);
}

}  // namespace
}  // namespace wh
