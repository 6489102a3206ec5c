#include "core/AgentWorld.h"

namespace wh {
namespace {

class AgentStatusTest : public test::AgentWorld {
 protected:
  AgentStatusTest() {
    remember();
    stack.add("11-22-33-44-55-66", "Studio Cans");
    status.listen({[this] { ++bluetoothStarts; }, [this](bool onboarding) { opened.push_back(onboarding); },
                   [this] { host.openBluetoothSettings(); }, [this] { host.showKeyAccess(); }});
  }
  int bluetoothStarts = 0;
  std::vector<bool> opened;
};

TEST_F(AgentStatusTest, PublishWritesTheKeysAndSignalsOnlyWhenSomethingChanged) {
  status.publish();
  EXPECT_EQ(channel.statusPosts, 1);
  EXPECT_EQ(stored(StatusKeys::bluetoothAccess), "undetermined");
  EXPECT_EQ(stored(StatusKeys::bluetooth), nlohmann::json::object());
  const auto writes = store.writes();
  status.publish();
  EXPECT_EQ(channel.statusPosts, 1);
  EXPECT_EQ(store.writes(), writes) << "nothing changed, nothing written";

  services.bluetooth.set(buds, BluetoothManager::Phase::failed("Bluetooth is off"));
  authority.state = BluetoothAuthorization::denied;
  status.publish();
  EXPECT_EQ(channel.statusPosts, 2);
  EXPECT_EQ(stored(StatusKeys::bluetooth), (nlohmann::json{{buds, "failed:Bluetooth is off"}}));
  EXPECT_EQ(stored(StatusKeys::bluetoothAccess), "denied");

  // The adapter's state is published, and a change of it reaches the refresh by itself.
  EXPECT_EQ(stored(StatusKeys::bluetoothAdapter), "on");
  int changes = 0;
  services.bluetooth.onChange = [&] { ++changes, status.publish(); };
  for (auto state : {BluetoothAdapterState::noService, BluetoothAdapterState::noAdapter, BluetoothAdapterState::off}) {
    stack.setAdapter(state);
    EXPECT_EQ(AgentStatus::adapterState(stored(StatusKeys::bluetoothAdapter).get<std::string>()), state) << "read back as it was written";
  }
  EXPECT_EQ(changes, 3);
  EXPECT_EQ(channel.statusPosts, 5);
}

TEST_F(AgentStatusTest, AccessibilityIsAskedOffTheMainThreadAndAChangeComesBackThroughTheRefresh) {
  int refreshes = 0;
  status.accessibility().start([&] { ++refreshes; });
  for (int i = 0; i < 10; ++i) status.publish();
  EXPECT_EQ(host.accessChecks, 0) << "publishing never asks the host";
  EXPECT_TRUE(stored(StatusKeys::accessibility).is_null()) << "nothing to say before the first answer";
  rt.drainSerialQueues();
  EXPECT_EQ(refreshes, 1);
  status.publish();
  EXPECT_EQ(stored(StatusKeys::accessibility), false);

  host.trusted = true;  // the user joined the input group: the slow timer notices
  rt.advance(AccessibilityCheck::recheckInterval);
  rt.drainSerialQueues();
  EXPECT_EQ(refreshes, 2);
  status.publish();
  EXPECT_EQ(stored(StatusKeys::accessibility), true);
  rt.advance(AccessibilityCheck::recheckInterval);
  rt.drainSerialQueues();
  EXPECT_EQ(refreshes, 2) << "the same answer is no change";

  host.trusted = false;
  channel.send("requestAccessibility");
  rt.drainSerialQueues();
  EXPECT_EQ(refreshes, 3);
  EXPECT_EQ(host.accessChecks, 4);
  EXPECT_EQ(host.keyAccessShown, 1) << "the person sees how access is granted";
  // The settings program shows its own panel and only asks the agent to look again.
  channel.send("requestAccessibility", {{"panel", false}});
  rt.drainSerialQueues();
  EXPECT_EQ(host.keyAccessShown, 1);
  EXPECT_EQ(host.accessChecks, 5);
}

TEST_F(AgentStatusTest, BatteryLevelsArePublishedWhileLessThanTenMinutesOld) {
  sources.live = {{std::nullopt, std::string(buds), {.left = 80, .caseLevel = 40}}};
  services.battery.refresh({{buds, "Sleep Buds"}});
  rt.drainSerialQueues();
  status.publish();
  EXPECT_EQ(stored(StatusKeys::battery),
            (nlohmann::json{{buds, {{"left", 80}, {"case", 40}, {"readAt", "2026-01-01T00:00:00.000Z"}}}}));
  rt.advance(AgentStatus::batteryMaxAge - 1);
  status.publish();
  EXPECT_EQ(stored(StatusKeys::battery).size(), 1u);
  rt.advance(1);
  status.publish();
  EXPECT_EQ(stored(StatusKeys::battery), nlohmann::json::object());
}

TEST_F(AgentStatusTest, TheStatusQuestionIsAnsweredEveryTimeWithTheCurrentKeys) {
  services.bluetooth.set(buds, BluetoothManager::Phase::connecting());
  for (int asked = 1; asked <= 2; ++asked) {
    channel.send(statusCommand);
    EXPECT_EQ(channel.statusPosts, asked) << "answered although nothing changed since the last answer";
  }
  EXPECT_EQ(stored(StatusKeys::bluetooth), (nlohmann::json{{buds, "connecting"}}));
  channel.send("listPaired");
  EXPECT_EQ(channel.statusPosts, 3) << "the paired list was new";
  channel.send("listPaired");
  EXPECT_EQ(channel.statusPosts, 3) << "other commands still signal only a change";
}

TEST_F(AgentStatusTest, MalformedAndUnknownCommandsOnlyPublish) {
  for (const auto& [command, userInfo] : std::vector<std::pair<std::string, nlohmann::json>>{
           {"toggle", {{"address", 42}}}, {"toggle", {}}, {"onboardingVisible", {{"value", "yes"}}},
           {"no such command", {{"value", true}}}, {"", nlohmann::json::array()}, {"toggle:", {}}}) {
    channel.send(command, userInfo);
  }
  EXPECT_TRUE(services.bluetooth.phase().empty());
  EXPECT_EQ(authority.watchStarts, 0);
  EXPECT_FALSE(store.object(StatusKeys::paired));
  EXPECT_EQ(channel.statusPosts, 1);
  EXPECT_EQ(rt.pendingMainWork(), 0u) << "no onboarding watch for a value that is not a bool";
}

TEST_F(AgentStatusTest, CommandsReachTheManagerTheSettingsAndTheActionsAndFollowTheBluetoothPermission) {
  authority.state = BluetoothAuthorization::denied;
  channel.send("requestBluetooth");
  EXPECT_EQ(host.bluetoothSettingsOpened, 1);
  authority.state = BluetoothAuthorization::undetermined;
  channel.send("requestBluetooth");
  EXPECT_EQ(authority.watchStarts, 1) << "asks for access";
  channel.send("toggle:aa-bb-cc-dd-ee-ff");
  rt.drainSerialQueues();
  EXPECT_EQ(services.bluetooth.phaseOf(buds)->kind(), BluetoothManager::Phase::Kind::connected);
  // The user-info form waits for Bluetooth access, starts the manager and lists the paired devices.
  channel.send("toggle", {{"address", "11:22:33:44:55:66"}});
  EXPECT_FALSE(services.bluetooth.phaseOf("11-22-33-44-55-66"));
  authority.change(BluetoothAuthorization::allowedAlways);
  EXPECT_EQ(bluetoothStarts, 1);
  EXPECT_EQ(services.bluetooth.phaseOf("11-22-33-44-55-66")->kind(), BluetoothManager::Phase::Kind::connecting);
  EXPECT_EQ(stored(StatusKeys::paired), (nlohmann::json{{{"address", "11-22-33-44-55-66"}, {"name", "Studio Cans"}},
                                                        {{"address", buds}, {"name", "Sleep Buds"}}}));

  std::vector<std::string> changes;
  auto watch = notifications.observe(Settings::changedName, [&](const std::string& key) { changes.push_back(key); });
  channel.send("reload");
  EXPECT_EQ(changes, std::vector<std::string>{"reload"});
  channel.send("openSettings");
  channel.send("openGuide");
  EXPECT_EQ(opened, (std::vector<bool>{false, true}));

  // Launch at login: a value that is not a bool counts as false; a refusal is logged and changes nothing.
  channel.send("setLaunchAtLogin", {{"value", true}});
  EXPECT_EQ(stored(StatusKeys::launchAtLogin), true);
  channel.send("setLaunchAtLogin", {{"value", "no"}});
  EXPECT_EQ(stored(StatusKeys::launchAtLogin), false);
  loginItems.refusal = "read-only file system";
  channel.send("setLaunchAtLogin", {{"value", true}});
  EXPECT_EQ(stored(StatusKeys::launchAtLogin), false);
  EXPECT_EQ(log->lines.back(), "launch at login change failed: read-only file system");
}

TEST_F(AgentStatusTest, OnboardingWatchListsPairedDevicesEveryThreeSecondsWhileTheSettingsProgramRuns) {
  channel.send("onboardingVisible", {{"value", true}});
  EXPECT_EQ(stored(StatusKeys::paired).size(), 2u);
  stack.add("22-22-22-22-22-22", "New Buds");
  rt.advance(2.9);
  EXPECT_EQ(stored(StatusKeys::paired).size(), 2u);
  rt.advance(0.1);
  EXPECT_EQ(stored(StatusKeys::paired).size(), 3u);

  channel.settingsRunning = false;  // the settings program quits: the next tick stops the watch
  stack.add("33-33-33-33-33-33", "Old Buds");
  rt.advance(3);
  EXPECT_EQ(stored(StatusKeys::paired).size(), 3u);
  EXPECT_EQ(rt.pendingMainWork(), 0u);

  channel.settingsRunning = true;
  channel.send("onboardingVisible", {{"value", true}});
  channel.send("onboardingVisible", {{"value", false}});
  EXPECT_EQ(rt.pendingMainWork(), 0u);
}

TEST_F(AgentStatusTest, PinnerCommandsSetTheOverrideEndAFightAndEvaluateWithoutAPublishOfTheirOwn) {
  hardware.deviceList = {
      {3, "alsa_input.pci-0000_00_1f.3.analog-stereo", "Built-in Microphone", Transport::builtIn, 1, 0, 48000.0},
      {4, "bluez_input.AA_BB_CC_DD_EE_FF.0", "WH-1000XM4", Transport::bluetooth, 1, 0, 16000.0}};
  auto& input = hardware.defaults[AudioProperty::defaultInputDevice];
  input = 4;
  channel.send("allowHeadphoneMic");
  EXPECT_EQ(services.pinner.status(), InputPinner::Status::releasedManually());
  EXPECT_EQ(*input, 4u) << "the headphone microphone stays";
  EXPECT_EQ(channel.statusPosts, 0) << "the pinner reports its own change";
  channel.send("backToMusicQuality");
  EXPECT_EQ(*input, 3u) << "back on the built-in microphone";
  rt.runReady();  // the server's answer
  status.publish();
  EXPECT_EQ(stored(StatusKeys::pinStatus), "pinned:Built-in Microphone");
  EXPECT_EQ(stored(StatusKeys::inCall), false);

  input = 4;  // moved away again: asking to try again evaluates at once
  channel.send("tryAgain");
  EXPECT_EQ(*input, 3u);
}

}  // namespace
}  // namespace wh
