#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/notify/NotificationCenter.h"
#include "core/settings/Address.h"
#include "doubles/MemoryStore.h"
#include "core/settings/Records.h"
#include "core/settings/Settings.h"

namespace wh {
namespace {

class RecordingSender : public CommandSender {
 public:
  void send(const std::string& command, const nlohmann::json& userInfo) override {
    sent.emplace_back(command, userInfo);
  }
  std::vector<std::pair<std::string, nlohmann::json>> sent;
};

class SettingsTest : public testing::Test {
 protected:
  MemoryStore store;
  NotificationCenter notifications;
  RecordingSender commands;
  Settings agent{store, notifications, true, &commands};
  Settings settingsApp{store, notifications, false, &commands};
  std::vector<std::string> posted;
  NotificationCenter::Observation observation =
      notifications.observe(Settings::changedName, [this](const std::string& key) { posted.push_back(key); });

  void storeDevicesJson(const std::string& text) { store.set(Keys::devices, StoreValue::data(text)); }
  nlohmann::json storedJson(const char* key) const {
    const auto value = store.object(key);
    if (!value || value->asData() == nullptr) return nullptr;
    return nlohmann::json::parse(*value->asData());
  }
};

DeviceSetting device(std::string address, std::string name) {
  DeviceSetting setting;
  setting.address = std::move(address);
  setting.name = std::move(name);
  return setting;
}

TEST_F(SettingsTest, OldAndPartialDeviceRecordsLoadWithTheDefaultsAndKnownIcons) {
  storeDevicesJson(R"([
    {"address": "aa-bb-cc-dd-ee-01", "name": "Old"},
    {"address": "aa-bb-cc-dd-ee-02", "name": "Pro", "icon": "airpodsPro", "connectOnly": true, "unknown": 1},
    {"address": "aa-bb-cc-dd-ee-03", "name": "Max", "icon": "airpodsMax", "hotkey": null},
    {"address": "aa-bb-cc-dd-ee-04", "name": "Fruit", "icon": "banana", "showInMenuBar": null},
    {"address": "aa-bb-cc-dd-ee-05", "name": "Pods", "icon": "airpods", "pinInput": false,
     "hotkey": {"keyCode": 4294967295, "modifiers": 6.0}},
    {"address": "aa-bb-cc-dd-ee-06", "name": "Box", "icon": "speaker", "connectOnWake": true,
     "disconnectOnSleep": true}
  ])");

  const auto devices = agent.devices();
  ASSERT_EQ(devices.size(), 6u);

  EXPECT_EQ(devices[0], (DeviceSetting{.address = "aa-bb-cc-dd-ee-01",
                                       .name = "Old",
                                       .icon = "headphones",
                                       .showInMenuBar = true,
                                       .pinInput = true,
                                       .connectOnWake = false,
                                       .disconnectOnSleep = false,
                                       .connectOnly = false,
                                       .hotkey = std::nullopt}));

  EXPECT_EQ(devices[1].icon, "earbuds");
  EXPECT_TRUE(devices[1].connectOnly);
  EXPECT_EQ(devices[2].icon, "headphones");
  EXPECT_FALSE(devices[2].hotkey.has_value());
  EXPECT_EQ(devices[3].icon, "headphones");
  EXPECT_TRUE(devices[3].showInMenuBar) << "null reads like a missing key";
  EXPECT_EQ(devices[4].icon, "earbuds");
  EXPECT_FALSE(devices[4].pinInput);
  EXPECT_EQ(devices[4].hotkey, (HotkeyCombo{4294967295U, 6U}));
  EXPECT_EQ(devices[5].icon, "speaker");
  EXPECT_TRUE(devices[5].connectOnWake);
  EXPECT_TRUE(devices[5].disconnectOnSleep);
}

TEST_F(SettingsTest, OneBadDeviceRecordOrBadBodyReadsAsNoDevicesAtAll) {
  const std::string good = R"({"address": "aa-bb-cc-dd-ee-ff", "name": "Good"})";
  const std::vector<std::string> bad = {
      R"({"name": "No address"})",
      R"({"address": "aa-bb-cc-dd-ee-00"})",
      R"({"address": null, "name": "Null address"})",
      R"({"address": 12, "name": "Number address"})",
      R"({"address": "aa", "name": "x", "icon": 3})",
      R"({"address": "aa", "name": "x", "showInMenuBar": "yes"})",
      R"({"address": "aa", "name": "x", "pinInput": 1})",
      R"({"address": "aa", "name": "x", "connectOnly": "false"})",
      R"({"address": "aa", "name": "x", "hotkey": {"keyCode": 1}})",
      R"({"address": "aa", "name": "x", "hotkey": {"keyCode": -1, "modifiers": 0}})",
      R"({"address": "aa", "name": "x", "hotkey": {"keyCode": 1.5, "modifiers": 0}})",
      R"({"address": "aa", "name": "x", "hotkey": {"keyCode": 4294967296, "modifiers": 0}})",
      R"({"address": "aa", "name": "x", "hotkey": "cmd-k"})",
      R"("not a record")",
  };
  for (const auto& record : bad) {
    storeDevicesJson("[" + good + ", " + record + "]");
    EXPECT_TRUE(agent.devices().empty()) << record;
  }

  for (const std::string& body : std::vector<std::string>{"", "not json", R"({"address": "aa", "name": "x"})", "[" + good}) {
    storeDevicesJson(body);
    EXPECT_TRUE(agent.devices().empty()) << body;
  }
  store.set(Keys::devices, StoreValue::string("[" + good + "]"));
  EXPECT_TRUE(agent.devices().empty()) << "a string is not data";

  storeDevicesJson("[" + good + "]");
  EXPECT_EQ(agent.devices().size(), 1u) << "the good record alone loads";
}

TEST_F(SettingsTest, SavedDevicesWriteEveryKeyAndReadBackEqual) {
  const DeviceSetting first{.address = "aa-bb-cc-dd-ee-01",
                            .name = "Studio",
                            .connectOnWake = true,
                            .hotkey = HotkeyCombo{40, 0x100 | 0x800}};
  const DeviceSetting second{.address = "aa-bb-cc-dd-ee-02",
                             .name = "Buds \"quoted\" ünïcode",
                             .icon = "earbuds",
                             .showInMenuBar = false,
                             .pinInput = false,
                             .disconnectOnSleep = true,
                             .connectOnly = true};

  agent.setDevices({first, second});
  EXPECT_EQ(agent.devices(), (std::vector<DeviceSetting>{first, second}));

  const auto written = storedJson(Keys::devices);
  ASSERT_TRUE(written.is_array());
  for (const auto& record : written) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : record.items()) keys.push_back(key);
    std::sort(keys.begin(), keys.end());
    EXPECT_EQ(keys, (std::vector<std::string>{"address", "connectOnWake", "connectOnly", "disconnectOnSleep", "hotkey",
                                              "icon", "name", "pinInput", "showInMenuBar"}));
  }
  EXPECT_EQ(written[0]["hotkey"], (nlohmann::json{{"keyCode", 40}, {"modifiers", 0x900}}));
  EXPECT_TRUE(written[1]["hotkey"].is_null());

  // A record with an old icon text is rewritten with today's raw value on the next save.
  storeDevicesJson(R"([{"address": "aa-bb-cc-dd-ee-03", "name": "Pro", "icon": "airpodsPro"}])");
  agent.setDevices(agent.devices());
  EXPECT_EQ(storedJson(Keys::devices)[0]["icon"], "earbuds");
}

TEST(DeviceIcon, GuessTakesTheFirstMatchingRuleOnTheLowerCasedName) {
  const std::vector<std::pair<std::string, DeviceIcon>> cases = {
      {"Studio Max Speaker", DeviceIcon::speaker},  // speaker wins over max
      {"Galaxy Pods Max", DeviceIcon::headphones},  // max wins over pods
      {"Kitchen HiFi", DeviceIcon::speaker},
      {"HI-FI Tower", DeviceIcon::speaker},
      {"Living Room SOUNDBAR", DeviceIcon::speaker},
      {"AirPods Pro", DeviceIcon::earbuds},
      {"Sleep Buds", DeviceIcon::earbuds},
      {"Jabra Earbud", DeviceIcon::earbuds},
      {"Sport In-Ear", DeviceIcon::earbuds},
      {"WH-1000XM4", DeviceIcon::headphones},
      {"", DeviceIcon::headphones},
  };
  for (const auto& [name, icon] : cases) EXPECT_EQ(guessDeviceIcon(name), icon) << name;
}

TEST(DeviceIcon, SavedMapsOldNamesAndFallsBackToHeadphones) {
  EXPECT_EQ(savedDeviceIcon("airpods"), DeviceIcon::earbuds);
  EXPECT_EQ(savedDeviceIcon("airpodsPro"), DeviceIcon::earbuds);
  EXPECT_EQ(savedDeviceIcon("airpodsMax"), DeviceIcon::headphones);
  for (DeviceIcon icon : allDeviceIcons) EXPECT_EQ(savedDeviceIcon(rawValue(icon)), icon);
  EXPECT_EQ(savedDeviceIcon("Speaker"), DeviceIcon::headphones);
  EXPECT_EQ(savedDeviceIcon(""), DeviceIcon::headphones);
}

TEST(Address, NormalFormIsLowerCaseWithDashes) {
  EXPECT_EQ(normalizeAddress("AA:BB:CC:DD:EE:FF"), "aa-bb-cc-dd-ee-ff");
  EXPECT_EQ(normalizeAddress("aa-Bb:cc-DD:ee-ff"), "aa-bb-cc-dd-ee-ff");
  EXPECT_EQ(normalizeAddress("aa-bb-cc-dd-ee-ff"), "aa-bb-cc-dd-ee-ff");
}

TEST_F(SettingsTest, AddDeviceAppendsANormalisedEntryOnceAndIgnoresAKnownAddress) {
  agent.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
  DeviceSetting expected = device("aa-bb-cc-dd-ee-ff", "Sleep Buds");
  expected.icon = "earbuds";
  EXPECT_EQ(agent.devices(), std::vector<DeviceSetting>{expected});
  EXPECT_EQ(posted, std::vector<std::string>{""});

  const auto writes = store.writes();
  agent.addDevice("AA:BB:CC:DD:EE:FF", "Sleep Buds");
  agent.addDevice("aa-bb-cc-dd-ee-ff", "Another name");
  EXPECT_EQ(store.writes(), writes) << "a known address is not written again";
  EXPECT_EQ(posted.size(), 1u) << "nor announced";

  // A hand-edited entry in another form still counts as known.
  storeDevicesJson(R"([{"address": "11:22:33:44:55:66", "name": "Edited"}])");
  agent.addDevice("11-22-33-44-55-66", "Edited");
  EXPECT_EQ(agent.devices().size(), 1u);

  agent.addDevice("77-88-99-AA-BB-CC", "Desk Speaker");
  ASSERT_EQ(agent.devices().size(), 2u);
  EXPECT_EQ(agent.devices()[1].address, "77-88-99-aa-bb-cc");
  EXPECT_EQ(agent.devices()[1].icon, "speaker");
}

TEST_F(SettingsTest, RemoveDeviceKeepsTheOthersInOrderAndAlwaysWrites) {
  agent.setDevices({device("aa-bb-cc-dd-ee-01", "One"), device("AA:BB:CC:DD:EE:02", "Two"),
                    device("aa-bb-cc-dd-ee-03", "Three")});
  posted.clear();

  agent.removeDevice("aa:bb:cc:dd:ee:02");
  EXPECT_EQ(agent.devices(),
            (std::vector<DeviceSetting>{device("aa-bb-cc-dd-ee-01", "One"), device("aa-bb-cc-dd-ee-03", "Three")}));

  const auto writes = store.writes();
  agent.removeDevice("00-00-00-00-00-00");
  EXPECT_EQ(store.writes(), writes + 1);
  EXPECT_EQ(agent.devices().size(), 2u);
  EXPECT_EQ(posted, (std::vector<std::string>{"", ""}));
}

TEST_F(SettingsTest, AppVolumesStoreOnlyChangedAppsAndReadBackWhatWasKept) {
  agent.setAppVolumes({{"a", {1.0F, false}}, {"b", {0.999F, false}}, {"c", {1.0F, true}}, {"d", {0.5F, false}},
                       {"e", {1.5F, false}}});
  EXPECT_EQ(agent.appVolumes(), (AppVolumes{{"c", {1.0F, true}}, {"d", {0.5F, false}}}));
  EXPECT_EQ(posted, std::vector<std::string>{"appVolumes"});

  agent.setAppVolumes({{"quiet", {0.998F, false}}});
  EXPECT_EQ(agent.appVolumes().at("quiet").gain, 0.998F) << "the gain survives the trip through text";

  agent.setAppVolumes({});
  EXPECT_TRUE(agent.appVolumes().empty());
}

TEST_F(SettingsTest, UnreadableAppVolumesReadAsEmptyAndAnUnwritableGainRemovesTheKey) {
  for (const char* body : {R"({"a": {"gain": 0.5}})", R"({"a": {"gain": "0.5", "muted": false}})",
                                 R"({"a": {"gain": 0.5, "muted": false}, "b": 3})", R"({"a": {"gain": 1e39, "muted": false}})",
                                 R"([{"gain": 0.5, "muted": false}])", "{"}) {
    store.set(Keys::appVolumes, StoreValue::data(body));
    EXPECT_TRUE(agent.appVolumes().empty()) << body;
  }
  store.set(Keys::appVolumes, StoreValue::data(R"({"a": {"gain": 0, "muted": true, "extra": "ignored"}})"));
  EXPECT_EQ(agent.appVolumes(), (AppVolumes{{"a", {0.0F, true}}}));

  agent.setAppVolumes({{"a", {std::numeric_limits<float>::quiet_NaN(), false}}});
  EXPECT_FALSE(store.object(Keys::appVolumes).has_value());
  agent.setAppVolumes({{"a", {std::numeric_limits<float>::infinity(), true}}});
  EXPECT_FALSE(store.object(Keys::appVolumes).has_value());
}

TEST_F(SettingsTest, EnumerationsRoundTripTheirRawTextsAndReadUnknownTextsAsTheDefault) {
  for (CallModeOption option : allCallModeOptions) {
    agent.setCallMode(option);
    EXPECT_EQ(agent.callMode(), option);
  }
  agent.setCallMode(CallModeOption::automatic);
  EXPECT_EQ(store.object(Keys::callMode), StoreValue::string("auto"));
  for (IdlePlayAction action : allIdlePlayActions) {
    agent.setIdlePlay(action);
    EXPECT_EQ(store.object(Keys::mediaKeysIdlePlay), StoreValue::string(std::string(rawValue(action))));
    EXPECT_EQ(agent.idlePlay(), action);
  }
  EXPECT_EQ(std::vector<IdlePlayAction>(allIdlePlayActions.begin(), allIdlePlayActions.end()),
            (std::vector<IdlePlayAction>{IdlePlayAction::ask, IdlePlayAction::spotify, IdlePlayAction::music,
                                         IdlePlayAction::nothing}));

  store.set(Keys::callMode, StoreValue::string("alwaysPinned"));
  EXPECT_EQ(agent.callMode(), CallModeOption::alwaysPinned);
  store.set(Keys::callMode, StoreValue::string("banana"));
  EXPECT_EQ(agent.callMode(), CallModeOption::automatic);
  store.set(Keys::callMode, StoreValue::boolean(true));
  EXPECT_EQ(agent.callMode(), CallModeOption::automatic);
  store.set(Keys::callMode, StoreValue::data("alwaysPinned"));
  EXPECT_EQ(agent.callMode(), CallModeOption::automatic);

  store.set(Keys::mediaKeysIdlePlay, StoreValue::string("Spotify"));
  EXPECT_EQ(agent.idlePlay(), IdlePlayAction::ask);
  store.set(Keys::mediaKeysIdlePlay, StoreValue::string("music"));
  EXPECT_EQ(agent.idlePlay(), IdlePlayAction::music);
  store.set(Keys::mediaKeysIdlePlay, std::nullopt);
  EXPECT_EQ(agent.idlePlay(), IdlePlayAction::ask);
}

TEST_F(SettingsTest, BoolValueAcceptsOnlyBooleans) {
  EXPECT_TRUE(agent.boolValue(Keys::pinInput, true));
  EXPECT_FALSE(agent.boolValue(Keys::mediaKeysEnabled, false));

  store.set(Keys::pinInput, StoreValue::boolean(false));
  EXPECT_FALSE(agent.boolValue(Keys::pinInput, true));

  for (const auto& other : {StoreValue::string("true"), StoreValue::number(1), StoreValue::data("true"),
                            StoreValue::stringArray({"true"})}) {
    store.set(Keys::mediaKeysEnabled, other);
    EXPECT_FALSE(agent.boolValue(Keys::mediaKeysEnabled, false));
    EXPECT_TRUE(agent.boolValue(Keys::mediaKeysEnabled, true));
  }
}

TEST_F(SettingsTest, TheSettingsProgramAlsoAsksTheAgentToReloadTheAgentOnlyAnnounces) {
  agent.setCallMode(CallModeOption::alwaysPinned);
  agent.setAppVolumes({});
  agent.changed("mediaKeys.enabled");
  EXPECT_EQ(posted, (std::vector<std::string>{"", "appVolumes", "mediaKeys.enabled"}));
  EXPECT_TRUE(commands.sent.empty());

  posted.clear();
  settingsApp.setIdlePlay(IdlePlayAction::music);
  settingsApp.setAppVolumes({{"x", {0.5F, false}}});
  EXPECT_EQ(posted, (std::vector<std::string>{"", "appVolumes"}));
  ASSERT_EQ(commands.sent.size(), 2u);
  for (const auto& [command, userInfo] : commands.sent) {
    EXPECT_EQ(command, "reload");
    EXPECT_EQ(userInfo, nlohmann::json::object());
  }

  // Without a command channel the settings program still announces in-process.
  Settings unconnected(store, notifications, false, nullptr);
  unconnected.setCallMode(CallModeOption::automatic);
  EXPECT_EQ(posted.back(), "");
  EXPECT_EQ(commands.sent.size(), 2u);
}

TEST(Shared, OnlyTheAgentsOwnIdentifierIsTheAgent) {
  EXPECT_TRUE(Shared::isAgent("com.quintelbarrows.wrenhaven"));
  EXPECT_FALSE(Shared::isAgent("com.quintelbarrows.wrenhaven.settings"));
  EXPECT_FALSE(Shared::isAgent(""));
  EXPECT_FALSE(Shared::isAgent(std::nullopt));
}

}  // namespace
}  // namespace wh
