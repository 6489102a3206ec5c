#include <gtest/gtest.h>

#include <limits>

#include "core/app/AgentStatus.h"
#include "core/settings/Address.h"
#include "core/settings/Settings.h"
#include "core/settingsapp/SettingsView.h"
#include "doubles/MemoryStore.h"

namespace wh {
namespace {

using namespace settingsapp;
using Json = nlohmann::json;

// The agent's settings and the settings program's over one store; the commands they send.
class SettingsTest : public testing::Test, public CommandSender {
 protected:
  void send(const std::string& command, const nlohmann::json&) override { sent.push_back(command); }
  void storeDevices(const std::string& text) { store.set(Keys::devices, StoreValue::data(text)); }

  MemoryStore store;
  NotificationCenter notifications;
  Settings agent{store, notifications, true, this};
  Settings settingsApp{store, notifications, false, this};
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

// Status keys as the store holds them, and what the pages show of them: the words of the tray's
// menus and the panel's rows, never the agent's own codes.
TEST_F(SettingsTest, StatusKeysReadAsShownOrUnknown) {
  struct Case {
    const char* name;
    std::vector<std::pair<const char*, StoreValue>> status;
    std::string phase, battery;
    std::optional<size_t> addable, volumeApps;
    std::optional<bool> launchAtLogin;
    std::string pinStatus, mediaKeys;
  };
  const std::string buds = "aa-bb-cc-dd-ee-ff";
  setFlag(settingsApp, Keys::mediaKeysEnabled, true);
  // Each case writes over the keys of the one before.
  settingsApp.addDevice(buds, "Buds");
  const std::vector<Case> cases = {
      {"nothing published", {}, unknownText, noBatteryText, std::nullopt, std::nullopt, std::nullopt, unknownText, unknownText},
      {"all well formed",
       {{StatusKeys::bluetooth, StoreValue::fromJson({{buds, "connected"}})},
        {StatusKeys::battery, StoreValue::fromJson({{buds, {{"left", 80}, {"right", 75}, {"case", 140}}}})},
        {StatusKeys::paired, StoreValue::fromJson(Json::array({{{"address", buds}, {"name", "Buds"}},
                                                               {{"address", "11-22-33-44-55-66"}, {"name", "Cans"}},
                                                               {{"name", "no address"}}}))},
        {StatusKeys::volumeApps, StoreValue::fromJson(Json::array({{{"bundleID", "org.a"}, {"name", "Radio"}, {"gain", 0.5}}, 7}))},
        {StatusKeys::launchAtLogin, StoreValue::boolean(true)},
        {StatusKeys::pinStatus, StoreValue::string("pinned:Yeti: Mic")},
        {StatusKeys::mediaKeys, StoreValue::string("running")},
        {StatusKeys::mediaKeysTarget, StoreValue::string("org.a")}},
       "Connected", "L 80% · R 75% · case 100%", 1, 1, true, "Using Yeti: Mic for calls and dictation", "Controls Radio"},
      {"failure, keys without access",
       {{StatusKeys::bluetooth, StoreValue::fromJson({{buds, "failed:The device did not answer"}})},
        {StatusKeys::pinStatus, StoreValue::string("noMicrophone")},
        {StatusKeys::mediaKeys, StoreValue::string("needsAccessibility")}},
       "The device did not answer", "L 80% · R 75% · case 100%", 1, 1, true,
       "This computer has no built-in microphone", "Needs key access to read the keys"},
      {"wrong types",
       {{StatusKeys::bluetooth, StoreValue::string("connected")},
        {StatusKeys::battery, StoreValue::fromJson({{buds, {{"single", "full"}}}})},
        {StatusKeys::paired, StoreValue::fromJson({{"address", buds}})},
        {StatusKeys::volumeApps, StoreValue::string("[]")},
        {StatusKeys::launchAtLogin, StoreValue::string("yes")},
        {StatusKeys::pinStatus, StoreValue::string("pinned")},
        {StatusKeys::mediaKeys, StoreValue::boolean(true)}},
       unknownText, noBatteryText, std::nullopt, std::nullopt, std::nullopt, unknownText, unknownText},
      {"single battery, phase of another device",
       {{StatusKeys::bluetooth, StoreValue::fromJson({{"11-22-33-44-55-66", "connected"}})},
        {StatusKeys::battery, StoreValue::fromJson({{buds, {{"single", 42}}}})}},
       unknownText, "42%", std::nullopt, std::nullopt, std::nullopt, unknownText, unknownText},
  };
  for (const auto& c : cases) {
    for (const auto& [key, value] : c.status) store.set(key, value);

    const auto view = readView(settingsApp);
    ASSERT_EQ(view.headphones.size(), 1U) << c.name;
    EXPECT_EQ(view.headphones[0].status, c.phase) << c.name;
    EXPECT_EQ(view.headphones[0].battery, c.battery) << c.name;
    EXPECT_EQ(view.addable ? std::optional(view.addable->size()) : std::nullopt, c.addable) << c.name;
    EXPECT_EQ(view.volumeApps ? std::optional(view.volumeApps->size()) : std::nullopt, c.volumeApps) << c.name;
    EXPECT_EQ(view.launchAtLogin, c.launchAtLogin) << c.name;
    EXPECT_EQ(view.pinStatus, c.pinStatus) << c.name;
    EXPECT_EQ(view.mediaKeysState, c.mediaKeys) << c.name;
  }
  setFlag(settingsApp, Keys::mediaKeysPaused, true);
  EXPECT_EQ(readView(settingsApp).mediaKeysState, "Paused: the desktop handles the keys") << "the settings decide first";

  store.set(StatusKeys::volumeApps, StoreValue::fromJson(Json::array({{{"bundleID", "org.a"}, {"gain", 0.5}}})));
  store.set(StatusKeys::volumeProblem, StoreValue::string(AppVolumeController::permissionText));
  setAppVolume(settingsApp, "org.a", {0.25F, true});
  const auto view = readView(settingsApp);
  const VolumeRow& app = view.volumeApps.value().at(0);
  EXPECT_TRUE(app.gain == 0.25F && app.muted) << "the person's own setting shows before the agent publishes it";
  EXPECT_EQ(view.volumeProblemTitle, "Allow audio recording") << "the panel's words for the silent taps";
}

// The microphone choice: the built-in one first, every other input that is neither Bluetooth nor
// aggregate, and a stored microphone that is gone kept as the (disabled) choice.
TEST_F(SettingsTest, MicrophoneChoicesFollowTheInputs) {
  const auto in = [](AudioObjectID id, const char* uid, std::uint32_t transport) { return AudioDevice{id, uid, uid, transport, true, false}; };
  const std::vector<AudioDevice> devices{{1, "speakers", "speakers", Transport::builtIn, false, true}, in(2, "pci", Transport::builtIn),
                                         in(3, "yeti", fourCharCode("usb ")), in(4, "buds", Transport::bluetooth),
                                         in(5, "combined", Transport::aggregate), in(6, "mini", fourCharCode("usb "))};
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {  // stored, titles with the chosen one in []
      {"", {"[Built-in Microphone]", "yeti", "mini"}},
      {"mini", {"Built-in Microphone", "yeti", "[mini]"}},
      {"pci", {"[Built-in Microphone]", "yeti", "mini"}},
      {"gone", {"Built-in Microphone", "yeti", "mini", "[gone (not connected)]"}}};
  for (const auto& [stored, expected] : cases) {
    setPreferredInput(settingsApp, stored);
    const auto view = readView(settingsApp, devices);
    std::vector<std::string> titles;
    for (const auto& choice : view.microphones.value()) {
      titles.push_back(choice.chosen ? "[" + choice.title + "]" : choice.title);
      EXPECT_EQ(choice.present, choice.uid != "gone") << choice.title;
    }
    EXPECT_EQ(titles, expected) << stored;
  }
}

// Every edit lands in the store through the facade, and the agent is told to reload.
TEST_F(SettingsTest, EditsAreSavedAndSendReload) {
  settingsApp.addDevice("aa-bb-cc-dd-ee-ff", "Buds");

  editDevice(settingsApp, "aa-bb-cc-dd-ee-ff", [](DeviceSetting& device) { device.connectOnWake = true; });
  editDevice(settingsApp, "00-00-00-00-00-00", [](DeviceSetting& device) { device.name = "ghost"; });
  setAppVolume(settingsApp, "org.a", {0.25F, false});
  setAppVolume(settingsApp, "org.b", {1.0F, true});
  setFlag(settingsApp, Keys::hideMenuIcon, true);
  setPreferredInput(settingsApp, "alsa_input.usb-yeti");
  EXPECT_EQ(preferredInputUID(settingsApp), "alsa_input.usb-yeti");
  setPreferredInput(settingsApp, "");
  EXPECT_FALSE(store.object(Keys::preferredInputUID)) << "the built-in microphone is no stored choice";

  const auto view = readView(settingsApp);
  ASSERT_EQ(view.headphones.size(), 1U);
  EXPECT_TRUE(view.headphones[0].setting.connectOnWake);
  EXPECT_EQ(view.headphones[0].setting.name, "Buds");
  EXPECT_EQ(settingsApp.appVolumes().size(), 2U);
  EXPECT_FLOAT_EQ(settingsApp.appVolumes()["org.a"].gain, 0.25F);
  EXPECT_FALSE(view.showTrayIcon);
  EXPECT_EQ(std::ranges::count(sent, "reload"), 7);
}

}  // namespace
}  // namespace wh
