#include <gtest/gtest.h>

#include "core/bluetooth/BatteryCache.h"
#include "core/bluetooth/BluetoothAccess.h"
#include "doubles/VirtualRuntime.h"
#include "doubles/FakeBluetooth.h"

namespace wh {
namespace {

BatteryLevels single(int percent) { return {{}, {}, {}, percent, {}}; }

class BatteryCacheTest : public testing::Test {
 protected:
  BatteryCacheTest() {
    cache.onChange = [this] { ++changes; };
  }
  VirtualRuntime rt;
  test::FakeBatterySources sources;
  BatteryCache cache{rt, sources};
  int changes = 0;
  BatteryCache::Devices both{{"AA:BB:CC:DD:EE:FF", "Sleep Buds"}, {"11:22:33:44:55:66", "Studio Cans"}};
};

TEST_F(BatteryCacheTest, MatchesByAddressOrNameOneRefreshAtATimeAndChangesOnlyWithTheLevels) {
  sources.live = {{std::nullopt, std::string("AA:BB:CC:DD:EE:FF"), single(80)},
                  {std::string("Studio Cans"), std::nullopt, single(55)},
                  {std::string("Keyboard"), std::string("99:99:99:99:99:99"), single(10)},
                  {std::string("Sleep Buds"), std::string("22:22:22:22:22:22"), single(1)}};
  for (const double pause : {0.0, 0.0, 1.0}) {
    rt.advance(pause);
    cache.refresh(both);
    cache.refresh(both);  // one refresh at a time
    EXPECT_TRUE(cache.refreshing());
    rt.drainSerialQueues();
    EXPECT_FALSE(cache.refreshing());
  }
  EXPECT_EQ(sources.liveReads, 3);
  ASSERT_EQ(cache.levels().size(), 2u);
  EXPECT_EQ(cache.levels().at("aa-bb-cc-dd-ee-ff").single, 80);
  EXPECT_EQ(cache.levels().at("11-22-33-44-55-66").single, 55);
  EXPECT_EQ(cache.levels().at("aa-bb-cc-dd-ee-ff").readAt, rt.clock().wallNow());
  EXPECT_EQ(sources.slowReads, 0) << "the live source covered every headphones";
  EXPECT_EQ(changes, 2) << "same levels read at the same moment are no change; a new reading time is";
}

TEST_F(BatteryCacheTest, SlowSourceRunsAtMostOnceAMinuteAndTheLiveSourceWins) {
  sources.live = {{std::nullopt, std::string("aa-bb-cc-dd-ee-ff"), single(80)}};
  sources.slow = {{"aa-bb-cc-dd-ee-ff", single(40)}, {"11-22-33-44-55-66", single(70)}, {"99-99-99-99-99-99", single(5)}};
  // Within a minute only the live source is read; the slow source's levels are kept meanwhile.
  for (const auto& [pause, slowReads, cans] : std::vector<std::tuple<double, int, int>>{{0, 1, 70}, {59, 1, 70}, {2, 2, 20}}) {
    rt.advance(pause);
    cache.refresh(both);
    rt.drainSerialQueues();
    EXPECT_EQ(sources.slowReads, slowReads);
    EXPECT_EQ(cache.levels().at("aa-bb-cc-dd-ee-ff").single, 80) << "the live value wins";
    EXPECT_EQ(cache.levels().at("11-22-33-44-55-66").single, cans);
    EXPECT_EQ(cache.levels().count("99-99-99-99-99-99"), 0u);
    sources.slow["11-22-33-44-55-66"] = single(20);
  }
}

TEST(BatteryLevels, SummaryAndBadge) {
  struct Case {
    std::optional<int> left, right, caseLevel, single;
    std::string summary;
    std::optional<int> badge;
  };
  for (const auto& c : std::vector<Case>{{80, 75, 40, {}, "L 80% · R 75% · Case 40%", 75},
                                         {{}, {}, {}, 100, "100%", 100},
                                         {{}, {}, 30, {}, "Case 30%", 30}}) {
    const BatteryLevels levels{c.left, c.right, c.caseLevel, c.single, {}};
    EXPECT_EQ(levels.summary(), c.summary);
    EXPECT_EQ(levels.badge(), c.badge);
  }
  EXPECT_FALSE(BatteryLevels{}.badge() || BatteryLevels{}.hasAnyLevel());
}

TEST(BluetoothAccess, RunsWorkAtOnceWhenAllowedOrElseOnceInOrderWhenGranted) {
  test::FakeBluetoothAuthority authority;
  NotificationCenter notifications;
  std::vector<int> ran;
  authority.state = BluetoothAuthorization::allowedAlways;
  BluetoothAccess{authority, notifications}.whenAllowed([&] { ran.push_back(0); });
  EXPECT_EQ(ran, std::vector<int>{0});
  EXPECT_EQ(authority.watchStarts, 0);

  authority.state = BluetoothAuthorization::undetermined;
  BluetoothAccess access{authority, notifications};
  int notices = 0;
  auto watch = notifications.observe(BluetoothAccess::changedName, [&](const std::string&) { ++notices; });
  access.whenAllowed([&] { ran.push_back(1); });
  access.whenAllowed([&] { ran.push_back(2); });
  EXPECT_EQ(authority.watchStarts, 1);
  for (const auto state : {BluetoothAuthorization::denied, BluetoothAuthorization::restricted}) {
    authority.change(state);
    EXPECT_TRUE(access.isDenied());
  }
  EXPECT_EQ(ran, std::vector<int>{0});
  authority.change(BluetoothAuthorization::allowedAlways);
  authority.change(BluetoothAuthorization::allowedAlways);
  EXPECT_EQ(ran, (std::vector<int>{0, 1, 2})) << "once each, in order";
  EXPECT_EQ(notices, 4);
  EXPECT_FALSE(access.isDenied());
}

}  // namespace
}  // namespace wh
