#include <gtest/gtest.h>

#include "core/app/AgentStatus.h"
#include "core/settingsapp/SettingsView.h"
#include "doubles/MemoryStore.h"

namespace wh::settingsapp {
namespace {

using Json = nlohmann::json;

class SettingsViewTest : public testing::Test, public CommandSender {
 protected:
  void send(const std::string& command, const nlohmann::json&) override { sent.push_back(command); }
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, false, this};
  std::vector<std::string> sent;
};

// Status keys as the store holds them, and what the Headphones, Volume and General pages show.
TEST_F(SettingsViewTest, StatusKeysReadAsShownOrUnknown) {
  struct Case {
    const char* name;
    std::vector<std::pair<const char*, StoreValue>> status;
    std::string phase, battery;
    std::optional<size_t> addable, volumeApps;
    std::optional<bool> launchAtLogin;
  };
  const std::string buds = "aa-bb-cc-dd-ee-ff";
  // Each case writes over the keys of the one before.
  settings.addDevice(buds, "Buds");
  const std::vector<Case> cases = {
      {"nothing published", {}, unknownText, unknownText, std::nullopt, std::nullopt, std::nullopt},
      {"all well formed",
       {{StatusKeys::bluetooth, StoreValue::fromJson({{buds, "Connected"}})},
        {StatusKeys::battery, StoreValue::fromJson({{buds, {{"left", 80}, {"right", 75}, {"case", 140}}}})},
        {StatusKeys::paired, StoreValue::fromJson(Json::array({{{"address", buds}, {"name", "Buds"}},
                                                               {{"address", "11-22-33-44-55-66"}, {"name", "Cans"}},
                                                               {{"name", "no address"}}}))},
        {StatusKeys::volumeApps, StoreValue::fromJson(Json::array({{{"bundleID", "org.a"}, {"gain", 0.5}}, 7}))},
        {StatusKeys::launchAtLogin, StoreValue::boolean(true)}},
       "Connected", "L 80% · R 75% · case 100%", 1, 1, true},
      {"wrong types",
       {{StatusKeys::bluetooth, StoreValue::string("Connected")},
        {StatusKeys::battery, StoreValue::fromJson({{buds, {{"single", "full"}}}})},
        {StatusKeys::paired, StoreValue::fromJson({{"address", buds}})},
        {StatusKeys::volumeApps, StoreValue::string("[]")},
        {StatusKeys::launchAtLogin, StoreValue::string("yes")}},
       unknownText, unknownText, std::nullopt, std::nullopt, std::nullopt},
      {"single battery, phase of another device",
       {{StatusKeys::bluetooth, StoreValue::fromJson({{"11-22-33-44-55-66", "Connected"}})},
        {StatusKeys::battery, StoreValue::fromJson({{buds, {{"single", 42}}}})}},
       unknownText, "42%", std::nullopt, std::nullopt, std::nullopt},
  };
  for (const auto& c : cases) {
    for (const auto& [key, value] : c.status) store.set(key, value);

    const auto view = readView(settings);
    ASSERT_EQ(view.headphones.size(), 1U) << c.name;
    EXPECT_EQ(view.headphones[0].phase, c.phase) << c.name;
    EXPECT_EQ(view.headphones[0].battery, c.battery) << c.name;
    EXPECT_EQ(view.addable ? std::optional(view.addable->size()) : std::nullopt, c.addable) << c.name;
    EXPECT_EQ(view.volumeApps ? std::optional(view.volumeApps->size()) : std::nullopt, c.volumeApps) << c.name;
    EXPECT_EQ(view.launchAtLogin, c.launchAtLogin) << c.name;
  }
}

// The microphone choice: the built-in one first, every other input that is neither Bluetooth nor
// aggregate, and a stored microphone that is gone kept as the (disabled) choice.
TEST_F(SettingsViewTest, MicrophoneChoicesFollowTheInputs) {
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
    setPreferredInput(settings, stored);
    const auto view = readView(settings, devices);
    std::vector<std::string> titles;
    for (const auto& choice : view.microphones.value()) {
      titles.push_back(choice.chosen ? "[" + choice.title + "]" : choice.title);
      EXPECT_EQ(choice.present, choice.uid != "gone") << choice.title;
    }
    EXPECT_EQ(titles, expected) << stored;
  }
}

// Every edit lands in the store through the facade, and the agent is told to reload.
TEST_F(SettingsViewTest, EditsAreSavedAndSendReload) {
  settings.addDevice("aa-bb-cc-dd-ee-ff", "Buds");

  editDevice(settings, "aa-bb-cc-dd-ee-ff", [](DeviceSetting& device) { device.connectOnWake = true; });
  editDevice(settings, "00-00-00-00-00-00", [](DeviceSetting& device) { device.name = "ghost"; });
  setAppVolume(settings, "org.a", {0.25F, false});
  setAppVolume(settings, "org.b", {1.0F, true});
  setFlag(settings, Keys::hideMenuIcon, true);
  setPreferredInput(settings, "alsa_input.usb-yeti");
  EXPECT_EQ(preferredInputUID(settings), "alsa_input.usb-yeti");
  setPreferredInput(settings, "");
  EXPECT_FALSE(store.object(Keys::preferredInputUID)) << "the built-in microphone is no stored choice";

  const auto view = readView(settings);
  ASSERT_EQ(view.headphones.size(), 1U);
  EXPECT_TRUE(view.headphones[0].setting.connectOnWake);
  EXPECT_EQ(view.headphones[0].setting.name, "Buds");
  EXPECT_EQ(settings.appVolumes().size(), 2U);
  EXPECT_FLOAT_EQ(settings.appVolumes()["org.a"].gain, 0.25F);
  EXPECT_FALSE(view.showTrayIcon);
  EXPECT_EQ(std::ranges::count(sent, "reload"), 7);
}

}  // namespace
}  // namespace wh::settingsapp
