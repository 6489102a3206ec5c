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

TEST_F(BatteryCacheTest, MatchesLiveEntriesByAddressOrElseByProductNameAndDropsTheRest) {
  sources.live = {{std::nullopt, std::string("AA:BB:CC:DD:EE:FF"), single(80)},
                  {std::string("Studio Cans"), std::nullopt, single(55)},
                  {std::string("Keyboard"), std::string("99:99:99:99:99:99"), single(10)},
                  {std::string("Sleep Buds"), std::string("22:22:22:22:22:22"), single(1)}};
  cache.refresh(both);
  cache.refresh(both);  // one refresh at a time
  EXPECT_TRUE(cache.refreshing());
  rt.drainSerialQueues();
  EXPECT_EQ(sources.liveReads, 1);
  ASSERT_EQ(cache.levels().size(), 2u);
  EXPECT_EQ(cache.levels().at("aa-bb-cc-dd-ee-ff").single, 80);
  EXPECT_EQ(cache.levels().at("11-22-33-44-55-66").single, 55);
  EXPECT_EQ(cache.levels().at("aa-bb-cc-dd-ee-ff").readAt, rt.clock().wallNow());
  EXPECT_EQ(sources.slowReads, 0) << "the live source covered every headphones";
  EXPECT_EQ(changes, 1);
  EXPECT_FALSE(cache.refreshing());
}

TEST_F(BatteryCacheTest, SlowSourceRunsAtMostOnceAMinuteAndTheLiveSourceWins) {
  sources.live = {{std::nullopt, std::string("aa-bb-cc-dd-ee-ff"), single(80)}};
  BatteryLevels buds;
  buds.left = 40;
  BatteryLevels cans;
  cans.left = 70;
  cans.right = 60;
  sources.slow = {{"aa-bb-cc-dd-ee-ff", buds}, {"11-22-33-44-55-66", cans}, {"99-99-99-99-99-99", single(5)}};
  cache.refresh(both);
  rt.drainSerialQueues();
  EXPECT_EQ(sources.slowReads, 1);
  EXPECT_EQ(cache.levels().at("aa-bb-cc-dd-ee-ff").single, 80) << "the live value wins";
  EXPECT_EQ(cache.levels().at("11-22-33-44-55-66").left, 70);
  EXPECT_EQ(cache.levels().count("99-99-99-99-99-99"), 0u);

  // Within a minute only the live source is read; the slow source's levels are kept meanwhile.
  rt.advance(59);
  cache.refresh(both);
  rt.drainSerialQueues();
  EXPECT_EQ(sources.slowReads, 1);
  EXPECT_EQ(cache.levels().at("11-22-33-44-55-66").left, 70);
  rt.advance(2);
  cache.refresh(both);
  rt.drainSerialQueues();
  EXPECT_EQ(sources.slowReads, 2);
}

TEST_F(BatteryCacheTest, ChangesOnlyWhenTheLevelsChange) {
  sources.live = {{std::nullopt, std::string("aa-bb-cc-dd-ee-ff"), single(80)}};
  cache.refresh({{"aa-bb-cc-dd-ee-ff", "Sleep Buds"}});
  rt.drainSerialQueues();
  cache.refresh({{"aa-bb-cc-dd-ee-ff", "Sleep Buds"}});
  rt.drainSerialQueues();
  EXPECT_EQ(changes, 1) << "same levels read at the same moment";
  rt.advance(1);
  cache.refresh({{"aa-bb-cc-dd-ee-ff", "Sleep Buds"}});
  rt.drainSerialQueues();
  EXPECT_EQ(changes, 2) << "a new reading time is a change";
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

TEST(BluetoothAccess, RunsWorkAtOnceWhenAllowedAndWithoutWatching) {
  test::FakeBluetoothAuthority authority;
  authority.state = BluetoothAuthorization::allowedAlways;
  NotificationCenter notifications;
  BluetoothAccess access{authority, notifications};
  int ran = 0;
  access.whenAllowed([&] { ++ran; });
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(authority.watchStarts, 0);
}

TEST(BluetoothAccess, KeepsWorkWhileDeniedAndRunsItOnceInOrderWhenGranted) {
  test::FakeBluetoothAuthority authority;
  NotificationCenter notifications;
  BluetoothAccess access{authority, notifications};
  int notices = 0;
  auto watch = notifications.observe(BluetoothAccess::changedName, [&](const std::string&) { ++notices; });
  std::vector<int> ran;
  access.whenAllowed([&] { ran.push_back(1); });
  access.whenAllowed([&] { ran.push_back(2); });
  EXPECT_EQ(authority.watchStarts, 1);

  authority.change(BluetoothAuthorization::denied);
  EXPECT_TRUE(access.isDenied());
  EXPECT_TRUE(ran.empty());
  authority.change(BluetoothAuthorization::restricted);
  EXPECT_TRUE(access.isDenied());
  EXPECT_EQ(notices, 2);

  authority.change(BluetoothAuthorization::allowedAlways);
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
  authority.change(BluetoothAuthorization::allowedAlways);
  EXPECT_EQ(ran.size(), 2u) << "the list was emptied";
  EXPECT_EQ(notices, 4);
  EXPECT_FALSE(access.isDenied());
}

}  // namespace
}  // namespace wh
