#include <gtest/gtest.h>

#include <limits>

#include "core/settings/Address.h"
#include "core/settings/Settings.h"
#include "doubles/MemoryStore.h"

namespace wh {
namespace {

class SettingsTest : public testing::Test, public CommandSender {
 protected:
  void send(const std::string& command, const nlohmann::json&) override { sent.push_back(command); }
  void storeDevices(const std::string& text) { store.set(Keys::devices, StoreValue::data(text)); }

  MemoryStore store;
  NotificationCenter notifications;
  Settings agent{store, notifications, true, this};
  std::vector<std::string> sent, posted;
  NotificationCenter::Observation observation =
      notifications.observe(Settings::changedName, [this](const std::string& key) { posted.push_back(key); });
};

TEST_F(SettingsTest, DeviceRecordsLoadWithDefaultsAndOneBadRecordReadsAsNoDevices) {
  const std::string good = R"({"address": "aa-bb-cc-dd-ee-01", "name": "Old", "icon": "airpodsPro", "hotkey": null,
                               "showInMenuBar": null})";
  storeDevices("[" + good + R"(, {"address": "aa-bb-cc-dd-ee-02", "name": "Pods", "icon": "banana",
    "pinInput": false, "hotkey": {"keyCode": 4294967295, "modifiers": 6.0}, "unknown": 1}])");
  ASSERT_EQ(agent.devices().size(), 2u);
  EXPECT_EQ(agent.devices()[0], (DeviceSetting{.address = "aa-bb-cc-dd-ee-01", .name = "Old", .icon = "earbuds"}));
  EXPECT_EQ(agent.devices()[1].icon, "headphones");
  EXPECT_FALSE(agent.devices()[1].pinInput);
  EXPECT_EQ(agent.devices()[1].hotkey, (HotkeyCombo{4294967295U, 6U}));

  for (const char* bad : {R"({"name": "x"})", R"({"address": 12, "name": "x"})",
                          R"({"address": "aa", "name": "x", "showInMenuBar": "yes"})",
                          R"({"address": "aa", "name": "x", "hotkey": {"keyCode": 1}})",
                          R"({"address": "aa", "name": "x", "hotkey": {"keyCode": -1, "modifiers": 0}})",
                          R"({"address": "aa", "name": "x", "hotkey": {"keyCode": 1.5, "modifiers": 0}})",
                          R"({"address": "aa", "name": "x", "hotkey": {"keyCode": 4294967296, "modifiers": 0}})",
                          R"("not a record")", R"(1] [)"}) {
    storeDevices("[" + good + ", " + bad + "]");
    EXPECT_TRUE(agent.devices().empty()) << bad;
  }
  store.set(Keys::devices, StoreValue::string("[" + good + "]"));
  EXPECT_TRUE(agent.devices().empty()) << "a string is not data";
}

TEST_F(SettingsTest, SavedDevicesReadBackEqualAndAddAndRemoveWorkOnTheNormalAddress) {
  const DeviceSetting first{.address = "aa-bb-cc-dd-ee-01", .name = "Studio \"ü\"", .connectOnWake = true,
                            .hotkey = HotkeyCombo{40, 0x900}};
  const DeviceSetting second{.address = "aa-bb-cc-dd-ee-02", .name = "Buds", .icon = "earbuds",
                             .showInMenuBar = false, .pinInput = false, .disconnectOnSleep = true, .connectOnly = true};
  agent.setDevices({first, second});
  EXPECT_EQ(agent.devices(), (std::vector<DeviceSetting>{first, second}));

  agent.removeDevice("AA:BB:CC:DD:EE:01");
  agent.addDevice("aa:bb:cc:dd:ee:02", "Another name");  // known: not written, not announced
  agent.addDevice("77:88:99:AA:BB:CC", "Desk Speaker");
  EXPECT_EQ(agent.devices(), (std::vector<DeviceSetting>{second, {.address = "77-88-99-aa-bb-cc",
                                                                   .name = "Desk Speaker", .icon = "speaker"}}));
  EXPECT_EQ(posted, (std::vector<std::string>{"", "", ""}));
  EXPECT_EQ(normalizeAddress("aA:Bb-cc:DD:ee:FF"), "aa-bb-cc-dd-ee-ff");
}

TEST(DeviceIconTest, TheGuessTakesTheFirstMatchingRuleAndOldSavedNamesMapToToday) {
  for (const auto& [name, icon] : std::vector<std::pair<std::string, DeviceIcon>>{
           {"Studio Max Speaker", DeviceIcon::speaker}, {"Galaxy Pods Max", DeviceIcon::headphones},
           {"Living Room SOUNDBAR", DeviceIcon::speaker}, {"Sport In-Ear", DeviceIcon::earbuds},
           {"WH-1000XM4", DeviceIcon::headphones}}) {
    EXPECT_EQ(guessDeviceIcon(name), icon) << name;
  }
  for (DeviceIcon icon : allDeviceIcons) EXPECT_EQ(savedDeviceIcon(rawValue(icon)), icon);
  EXPECT_EQ(savedDeviceIcon("airpodsMax"), DeviceIcon::headphones);
  EXPECT_EQ(savedDeviceIcon("Speaker"), DeviceIcon::headphones);
}

TEST_F(SettingsTest, AppVolumesKeepOnlyChangedAppsAndAnythingUnreadableReadsAsEmpty) {
  agent.setAppVolumes({{"a", {1.0F, false}}, {"b", {0.999F, false}}, {"c", {1.0F, true}}, {"d", {0.5F, false}},
                       {"e", {1.5F, false}}, {"quiet", {0.998F, false}}});
  EXPECT_EQ(agent.appVolumes(), (AppVolumes{{"c", {1.0F, true}}, {"d", {0.5F, false}}, {"quiet", {0.998F, false}}}));
  EXPECT_EQ(posted, std::vector<std::string>{"appVolumes"});
  for (const char* body : {R"({"a": {"gain": 0.5}})", R"({"a": {"gain": "0.5", "muted": false}})",
                           R"({"a": {"gain": 1e39, "muted": false}})", R"([{"gain": 0.5, "muted": false}])", "{"}) {
    store.set(Keys::appVolumes, StoreValue::data(body));
    EXPECT_TRUE(agent.appVolumes().empty()) << body;
  }
  for (float gain : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    agent.setAppVolumes({{"a", {gain, true}}});
    EXPECT_FALSE(store.object(Keys::appVolumes).has_value()) << gain;
  }
}

TEST_F(SettingsTest, ChoicesAndSwitchesReadOnlyTheirOwnTypeElseTheDefault) {
  for (CallModeOption option : allCallModeOptions) {
    agent.setCallMode(option);
    EXPECT_EQ(agent.callMode(), option);
  }
  for (IdlePlayAction action : allIdlePlayActions) {
    agent.setIdlePlay(action);
    EXPECT_EQ(agent.idlePlay(), action);
  }
  for (const auto& other : {StoreValue::string("Spotify"), StoreValue::boolean(true), StoreValue::data("music"),
                            StoreValue::number(1), StoreValue::stringArray({"true"})}) {
    store.set(Keys::callMode, other);
    store.set(Keys::mediaKeysIdlePlay, other);
    store.set(Keys::mediaKeysEnabled, other.asBool() ? StoreValue::string("true") : other);
    EXPECT_EQ(agent.callMode(), CallModeOption::automatic);
    EXPECT_EQ(agent.idlePlay(), IdlePlayAction::ask);
    EXPECT_TRUE(agent.boolValue(Keys::mediaKeysEnabled, true));
    EXPECT_FALSE(agent.boolValue(Keys::mediaKeysEnabled, false));
  }
}

TEST_F(SettingsTest, OnlyTheSettingsProgramAsksTheAgentToReload) {
  agent.setCallMode(CallModeOption::alwaysPinned);
  agent.changed("mediaKeys.enabled");
  EXPECT_TRUE(sent.empty());
  Settings settingsApp(store, notifications, false, this);
  settingsApp.setIdlePlay(IdlePlayAction::music);
  settingsApp.setAppVolumes({});
  EXPECT_EQ(sent, (std::vector<std::string>{"reload", "reload"}));
  EXPECT_EQ(posted, (std::vector<std::string>{"", "mediaKeys.enabled", "", "appVolumes"}));
  Settings unconnected(store, notifications, false, nullptr);
  unconnected.setCallMode(CallModeOption::automatic);
  EXPECT_EQ(posted.back(), "") << "without a channel it still announces in-process";
  EXPECT_TRUE(Shared::isAgent("com.quintelbarrows.wrenhaven"));
  EXPECT_FALSE(Shared::isAgent("com.quintelbarrows.wrenhaven.settings"));
  EXPECT_FALSE(Shared::isAgent(std::nullopt));
}

}  // namespace
}  // namespace wh
