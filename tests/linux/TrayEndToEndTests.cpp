// The real agent on an X display with a desktop tray on its session bus: it registers its main
// item and one item per headphones that asks for one, a click on a headphones item toggles them
// on the Bluetooth rig, their menu holds the device entries, and a restarted tray gets them back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "support/AgentHome.h"
#include "support/SystemBusRig.h"
#include "support/TrayRig.h"

namespace wh {
namespace {

using namespace std::chrono_literals;

constexpr const char* kHeadphones = test::SystemBusRig::headphonesAddress;

// The first group of every match, in order.
std::vector<std::string> matches(const std::string& text, const std::regex& pattern) {
  std::vector<std::string> found;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern); it != std::sregex_iterator(); ++it) found.push_back((*it)[1]);
  return found;
}

class TrayEndToEndTest : public testing::Test {
 protected:
  std::vector<std::string> items() const { return matches(tray->items(), std::regex("'(:[0-9.]+)'")); }
  std::string call(const std::string& item, const std::string& path, const std::vector<std::string>& method) const {
    std::vector<std::string> argv{"gdbus", "call", "--session", "--dest", item, "--object-path", path, "--method"};
    argv.insert(argv.end(), method.begin(), method.end());
    return test::runCommand(argv, {{"DBUS_SESSION_BUS_ADDRESS", bus.sessionBusAddress()}}).output;
  }
  std::string toolTip(const std::string& item) const {
    return call(item, "/StatusNotifierItem", {"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierItem", "ToolTip"});
  }
  // The item whose tooltip names the headphones.
  std::string headphonesItem() const {
    for (const auto& item : items()) {
      if (toolTip(item).find("WH-1000XM4") != std::string::npos) return item;
    }
    return {};
  }

  test::AgentHome home;
  test::SystemBusRig bus{{.bluez = true, .logind = false, .upower = false, .sessionBus = true, .denyBluez = false}};
  std::unique_ptr<test::TrayRig> tray;
};

TEST_F(TrayEndToEndTest, ItemsRegisterToggleTheHeadphonesCarryTheirMenuAndComeBackAfterTheTrayRestarts) {
  if (!bus.available()) GTEST_SKIP() << bus.whyNot();
  tray = std::make_unique<test::TrayRig>(bus.sessionBusAddress());
  if (!tray->available()) GTEST_SKIP() << tray->whyNot();
  ASSERT_TRUE(bus.addHeadphones());
  const nlohmann::json devices = nlohmann::json::array(
      {{{"address", "aa-bb-cc-dd-ee-ff"}, {"name", "WH-1000XM4"}},
       {{"address", "11-22-33-44-55-66"}, {"name", std::string(300, 'x')}, {"icon", "no such icon"}, {"showInMenuBar", false}}});
  home.writeSettings({{"devices", test::AgentHome::devicesValue(devices)}});
  auto environment = home.environment(bus.environment());
  environment["DISPLAY"] = tray->display();
  // Qt's X11 platform reads past a terminator in libxkbcommon-x11, which strict string checks report.
  const char* sanitizer = std::getenv("ASAN_OPTIONS");
  environment["ASAN_OPTIONS"] = std::string(sanitizer != nullptr ? sanitizer : "") + ":strict_string_checks=0";
  std::string failure;
  auto agent = home.launch(environment, failure);
  ASSERT_TRUE(agent) << failure;

  ASSERT_TRUE(test::eventually([&] { return items().size() == 2; }, 15s)) << tray->items() << home.log();
  const std::string item = headphonesItem();
  ASSERT_FALSE(item.empty()) << toolTip(items()[0]) << toolTip(items()[1]);
  const std::string menu = call(item, "/MenuBar", {"com.canonical.dbusmenu.GetLayout", "0", "--", "-1", "[]"});
  std::string labels;
  for (const auto& label : matches(menu, std::regex("'label': <'([^']*)'>"))) labels += label + "|";
  EXPECT_EQ(labels, "Not connected|Connect|Show in Menu Bar|Keep Music Quality|Connect Only|Connect After Wake|"
                    "Disconnect Before Sleep|Icon|Earbuds|Headphones|Speaker|Hotkey: None|Record Hotkey…|Remove WH-1000XM4|");

  call(item, "/StatusNotifierItem", {"org.kde.StatusNotifierItem.Activate", "10", "10"});
  EXPECT_TRUE(test::eventually([&] { return bus.isConnected(kHeadphones); }, 20s)) << home.log();
  EXPECT_TRUE(test::eventually([&] { return toolTip(item).find("WH-1000XM4: Connected") != std::string::npos; }, 10s))
      << toolTip(item);

  ASSERT_TRUE(tray->restartTray());
  EXPECT_TRUE(test::eventually([&] { return items().size() == 2; }, 15s)) << tray->items();
  EXPECT_TRUE(agent->running());
}

}  // namespace
}  // namespace wh
