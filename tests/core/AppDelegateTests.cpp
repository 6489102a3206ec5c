#include <gtest/gtest.h>

#include "core/app/AppDelegate.h"
#include "doubles/MemoryApps.h"
#include "doubles/MemoryAudioHardware.h"
#include "doubles/VirtualRuntime.h"
#include "doubles/MemoryStore.h"
#include "support/CapturedLog.h"
#include "doubles/FakeAppHost.h"
#include "doubles/FakeAgentChannel.h"
#include "doubles/FakeBluetooth.h"

namespace wh {
namespace {

using Kind = BluetoothManager::Phase::Kind;


class AppDelegateTest : public testing::Test {
 protected:
  static constexpr const char* buds = "aa-bb-cc-dd-ee-ff";


  void remember() {
    settings.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
    stack.add(buds, "Sleep Buds");
  }
  OutputSwitcher::Audio audio() {
    return {[this](const std::string& address) -> std::optional<OutputSwitcher::DeviceID> {
              if (outputPresent && address == buds) return 7;
              return std::nullopt;
            },
            [this]() -> std::optional<OutputSwitcher::DeviceID> { return defaultOutput; },
            [this](OutputSwitcher::DeviceID id) {
              defaultOutput = id;
              return true;
            },
            [](OutputSwitcher::DeviceID) { return std::string("Sleep Buds"); }};
  }

  VirtualRuntime rt;
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  test::FakeAppHost host;
  test::FakeBluetoothStack stack;
  test::FakeSleepWatcher sleep;
  test::FakeBatterySources sources;
  test::FakeBluetoothAuthority authority;
  test::FakeAgentChannel channel;
  bool outputPresent = true;
  std::optional<OutputSwitcher::DeviceID> defaultOutput = 1;
  MemoryAudioHardware hardware;
  MemoryProcessTable processTable;
  MemoryDesktopEntries desktopEntries;
  AppGrouping grouping{processTable, desktopEntries};
  AudioProcessMonitor monitor{rt, hardware, grouping};
  Services services{rt, settings, {stack, sleep, sources, audio(), hardware, monitor}};
  BluetoothAccess access{authority, notifications};
  AgentStatus status{rt, settings, services, access, channel, host};
  test::CapturedLog log;
  AppDelegate delegate{rt,       settings, notifications, host,   BuildInfo{"com.quintelbarrows.wrenhaven", "0.1.0", "7"},
                       services, access,   status,        monitor};
};

TEST_F(AppDelegateTest, UnderATestRunnerNothingStarts) {
  remember();
  authority.state = BluetoothAuthorization::allowedAlways;
  host.variables.insert("XCTestConfigurationFilePath");
  delegate.applicationDidFinishLaunching();
  EXPECT_FALSE(delegate.started());
  EXPECT_EQ(host.claims, 0);
  EXPECT_FALSE(services.bluetooth.started());
  EXPECT_EQ(channel.statusPosts, 0);
  EXPECT_FALSE(channel.handler);
  EXPECT_EQ(hardware.listenerCount(), 0u) << "the audio process monitor did not start";
  EXPECT_TRUE(log->lines.empty());
}

TEST_F(AppDelegateTest, ASecondInstanceTerminatesWithoutStartingAnything) {
  remember();
  authority.state = BluetoothAuthorization::allowedAlways;
  host.otherInstance = true;
  delegate.applicationDidFinishLaunching();
  EXPECT_EQ(host.terminations, 1);
  EXPECT_FALSE(delegate.started());
  EXPECT_FALSE(services.bluetooth.started());
  EXPECT_EQ(channel.statusPosts, 0);
  EXPECT_TRUE(log->lines.empty());
}

TEST_F(AppDelegateTest, LaunchListensPublishesAndLogsTheStartLine) {
  remember();
  settings.addDevice("11:22:33:44:55:66", "Studio Max");
  host.trusted = true;
  delegate.applicationDidFinishLaunching();
  ASSERT_TRUE(delegate.started());
  EXPECT_GT(hardware.listenerCount(), 0u) << "the audio process monitor follows the sound server";
  EXPECT_TRUE(channel.handler) << "listening for commands";
  EXPECT_EQ(channel.statusPosts, 1) << "the first status is published";
  EXPECT_EQ(log->lines.back(), "Wrenhaven 0.1.0 (7) started on Debian GNU/Linux 12 (bookworm), "
                               "accessibility true, 2 saved devices");
  AppDelegate unknown{rt, settings, notifications, host, BuildInfo{"x", "", ""}, services, access, status, monitor};
  host.trusted = false;
  EXPECT_EQ(unknown.startLine(),
            "Wrenhaven ? (?) started on Debian GNU/Linux 12 (bookworm), accessibility false, 2 saved devices");
}

TEST_F(AppDelegateTest, WithoutRememberedHeadphonesBluetoothIsNotTouched) {
  delegate.applicationDidFinishLaunching();
  EXPECT_EQ(authority.watchStarts, 0) << "nobody is asked for Bluetooth access";
  EXPECT_FALSE(services.bluetooth.started());
}

TEST_F(AppDelegateTest, TheBluetoothManagerStartsOnceWhenAccessIsGranted) {
  remember();
  delegate.applicationDidFinishLaunching();
  EXPECT_EQ(authority.watchStarts, 1);
  EXPECT_FALSE(services.bluetooth.started());
  authority.change(BluetoothAuthorization::allowedAlways);
  EXPECT_TRUE(services.bluetooth.started());
  EXPECT_TRUE(stack.observing);
  // A settings change asks again; the running manager is not started twice but refreshed.
  stack.devices[buds].connected = true;
  settings.setCallMode(CallModeOption::alwaysPinned);
  EXPECT_EQ(services.bluetooth.phaseOf(buds)->kind(), Kind::connected);
}

TEST_F(AppDelegateTest, AnyNumberOfChangesInOneTurnGiveExactlyOneRefreshThatEndsByPublishing) {
  remember();
  authority.state = BluetoothAuthorization::allowedAlways;
  delegate.applicationDidFinishLaunching();
  std::vector<std::string> steps;
  delegate.addRefreshStep([&] { steps.push_back("status menu"); });
  delegate.addRefreshStep([&] { steps.push_back("device items"); });
  const int posts = channel.statusPosts;
  for (int i = 0; i < 10; ++i) delegate.refreshAction()();
  services.bluetooth.set(buds, BluetoothManager::Phase::connecting());  // onChange is the refresh action
  EXPECT_TRUE(steps.empty()) << "the refresh waits for the next turn";
  rt.runReady();
  EXPECT_EQ(steps, (std::vector<std::string>{"status menu", "device items"}));
  EXPECT_EQ(channel.statusPosts, posts + 1);
  EXPECT_EQ(store.object(StatusKeys::bluetooth)->json(), (nlohmann::json{{buds, "connecting"}}));
}

TEST_F(AppDelegateTest, RefreshAskedForAfterTheDelegateIsGoneDoesNothing) {
  int refreshes = 0;
  std::function<void()> action;
  {
    AppDelegate shortLived{rt, settings, notifications, host, BuildInfo{}, services, access, status, monitor};
    shortLived.addRefreshStep([&] { ++refreshes; });
    action = shortLived.refreshAction();
    action();  // queued while alive
  }
  action();
  rt.runReady();
  EXPECT_EQ(refreshes, 0);
}

TEST_F(AppDelegateTest, SettingsChangesRefreshExceptAppVolumes) {
  delegate.applicationDidFinishLaunching();
  rt.runReady();  // the refresh that launching asked for
  int refreshes = 0;
  delegate.addRefreshStep([&] { ++refreshes; });
  settings.setAppVolumes({{"org.videolan.vlc", AppVolumeSetting{0.5F, false}}});
  rt.runReady();
  EXPECT_EQ(refreshes, 0);
  channel.send("reload");
  rt.runReady();
  EXPECT_EQ(refreshes, 1);
}

TEST_F(AppDelegateTest, AUserConnectMovesTheOutputAndRefreshesBatteriesThreeSecondsLater) {
  remember();
  authority.state = BluetoothAuthorization::allowedAlways;
  delegate.applicationDidFinishLaunching();
  BatteryLevels levels;
  levels.single = 64;
  sources.live = {{std::nullopt, std::string(buds), levels}};
  services.switcher.repairUsed.insert(buds);

  channel.send("toggle:AA:BB:CC:DD:EE:FF");
  rt.drainSerialQueues();
  EXPECT_EQ(defaultOutput, 7u) << "the output moved to the headphones";
  EXPECT_EQ(services.switcher.repairUsed.count(buds), 0u) << "a user connect grants a new repair";
  rt.advance(2.9);
  rt.drainSerialQueues();
  EXPECT_TRUE(services.battery.levels().empty());
  rt.advance(0.1);
  rt.drainSerialQueues();
  EXPECT_EQ(services.battery.levels().at(buds).single, 64);
}

TEST_F(AppDelegateTest, RepairAndExternalConnectionsDoNotMoveTheOutputButStillRefreshBatteries) {
  remember();
  authority.state = BluetoothAuthorization::allowedAlways;
  delegate.applicationDidFinishLaunching();
  stack.connectFromOutside(buds);
  rt.advance(3);
  rt.drainSerialQueues();
  EXPECT_EQ(defaultOutput, 1u);
  EXPECT_EQ(sources.liveReads, 1);
}

TEST_F(AppDelegateTest, AHeadphoneWhoseOutputNeverAppearsIsReconnectedOnceWithReasonRepair) {
  remember();
  authority.state = BluetoothAuthorization::allowedAlways;
  delegate.applicationDidFinishLaunching();
  outputPresent = false;
  channel.send("toggle:" + std::string(buds));
  rt.drainSerialQueues();
  stack.calls.clear();
  for (int i = 0; i < 120; ++i) {  // 12 seconds in steps, running the Bluetooth queue as it fills
    rt.advance(0.1);
    rt.drainSerialQueues();
  }
  EXPECT_EQ(stack.calls, (std::vector<std::string>{"close aa-bb-cc-dd-ee-ff", "open aa-bb-cc-dd-ee-ff"}));
  EXPECT_NE(std::find(log->lines.begin(), log->lines.end(), "connecting aa-bb-cc-dd-ee-ff (repair, attempt 1)"),
            log->lines.end());
  EXPECT_EQ(services.bluetooth.phaseOf(buds)->kind(), Kind::connected);
  for (int i = 0; i < 100; ++i) {
    rt.advance(0.1);
    rt.drainSerialQueues();
  }
  EXPECT_EQ(log->lines.back(), "gave up setting output for aa-bb-cc-dd-ee-ff");
  EXPECT_EQ(stack.calls.size(), 2u);
}

TEST_F(AppDelegateTest, TheRepairReportsFalseForHeadphonesThatAreNotConnected) {
  delegate.applicationDidFinishLaunching();
  std::optional<bool> result;
  services.switcher.reconnect(buds, [&](bool connected) { result = connected; });
  EXPECT_EQ(result, false);
  EXPECT_TRUE(stack.calls.empty());
}

TEST_F(AppDelegateTest, TheBatteryTimerRefreshesConnectedHeadphonesEveryFiveMinutes) {
  remember();
  authority.state = BluetoothAuthorization::allowedAlways;
  delegate.applicationDidFinishLaunching();
  rt.advance(300);
  rt.drainSerialQueues();
  EXPECT_EQ(sources.liveReads, 0) << "nothing connected, nothing to read";
  stack.connectFromOutside(buds);
  rt.advance(3);
  rt.drainSerialQueues();
  const int afterConnect = sources.liveReads;
  rt.advance(297);
  rt.drainSerialQueues();
  EXPECT_EQ(sources.liveReads, afterConnect + 1);
  EXPECT_EQ(delegate.batteryDevices(true), (std::vector<std::pair<std::string, std::string>>{{buds, "Sleep Buds"}}));
}

TEST_F(AppDelegateTest, ReopenShowsAHiddenMenuIconAgainThroughTheChangeStep) {
  delegate.applicationDidFinishLaunching();
  std::vector<std::string> changes;
  auto watch = notifications.observe(Settings::changedName, [&](const std::string& key) { changes.push_back(key); });

  EXPECT_TRUE(delegate.applicationShouldHandleReopen());
  EXPECT_TRUE(changes.empty()) << "nothing to change while the icon is shown";

  store.set(Keys::hideMenuIcon, StoreValue::boolean(true));
  ASSERT_TRUE(host.reopen) << "a later instance's reopen reaches this delegate";
  host.reopen();
  EXPECT_EQ(store.object(Keys::hideMenuIcon), StoreValue::boolean(false));
  EXPECT_EQ(changes, std::vector<std::string>{""});
}

}  // namespace
}  // namespace wh
