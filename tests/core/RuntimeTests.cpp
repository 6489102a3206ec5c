#include <gtest/gtest.h>

#include "doubles/VirtualRuntime.h"

namespace wh {
namespace {

TEST(VirtualRuntime, DueWorkRunsInTimeThenPostingOrderAtItsOwnTimeAndCancelledOrReplacedWorkNever) {
  VirtualRuntime rt;
  std::vector<std::string> order;
  const auto note = [&](std::string what) { return [&, what] { order.push_back(what + "@" + std::to_string(int(rt.clock().now() * 4))); }; };
  rt.main().after(2.0, note("b"));
  rt.main().after(1.0, [&] { rt.main().after(0.25, note("chained")); });
  rt.main().after(2.0, note("c"));
  rt.main().post(note("now"));
  rt.main().after(1.0, note("cancelled"))->cancel();
  HeldWork held;
  held = rt.main().after(1.0, note("replaced"));
  held = rt.main().after(3.0, note("held"));
  {
    HeldWork scoped;
    scoped = rt.main().after(1.0, note("scoped"));
  }
  rt.advance(1.5);
  EXPECT_EQ(order, (std::vector<std::string>{"now@0", "chained@5"}));
  EXPECT_TRUE(held.isPending());
  rt.advance(10);
  EXPECT_EQ(order, (std::vector<std::string>{"now@0", "chained@5", "b@8", "c@8", "held@12"}));
  EXPECT_DOUBLE_EQ(rt.clock().now(), 11.5);
  EXPECT_EQ(rt.pendingMainWork(), 0u);
}

TEST(VirtualRuntime, TimersTickAtTheirIntervalUntilInvalidatedOrDroppedFromTheirOwnTick) {
  VirtualRuntime rt;
  std::vector<double> ticks;
  auto timer = rt.main().every(300, 60, [&] { ticks.push_back(rt.clock().now()); });
  std::unique_ptr<RepeatingTimer> self;
  int selfTicks = 0;
  self = rt.main().every(100, 0, [&] {
    if (++selfTicks == 2) self.reset();
  });
  rt.advance(900);
  EXPECT_EQ(ticks, (std::vector<double>{300, 600, 900}));
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
  rt.advance(1000);
  EXPECT_EQ(ticks.size(), 3u);
  EXPECT_EQ(selfTicks, 2);
}

TEST(VirtualRuntime, SerialQueuesRunWhenDrainedInOrderAndHandBackToMainOnlyWhileTheOwnerLives) {
  VirtualRuntime rt;
  auto queue = rt.makeSerialQueue("wrenhaven.test", QueuePriority::utility);
  Lifetime owner;
  auto gone = std::make_unique<Lifetime>();
  std::vector<std::string> order;
  runThenMain<int>(*queue, rt.main(), owner, [&] { order.push_back("work"); return 7; },
                   [&](int result) { order.push_back("done " + std::to_string(result)); });
  runThenMain(*queue, rt.main(), *gone, [&] { order.push_back("orphan"); }, [&] { order.push_back("late"); });
  auto guarded = gone->guard([&] { order.push_back("guarded"); });
  gone.reset();
  guarded();
  rt.advance(1);
  EXPECT_TRUE(order.empty());
  queue->sync([&] { order.push_back("sync"); });
  EXPECT_EQ(order, (std::vector<std::string>{"work", "orphan", "sync"}));
  rt.drainSerialQueues();
  EXPECT_EQ(order.back(), "done 7");
}

}  // namespace
}  // namespace wh
