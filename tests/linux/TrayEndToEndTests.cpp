// The real agent on an X display with a desktop tray on its session bus: it registers its main
// item and one item per headphones that asks for one, a click on a headphones item toggles them
// on the Bluetooth rig, their menu holds the device entries, and a restarted tray gets them back.
#include <gtest/gtest.h>

#include <regex>

#include "support/AgentHome.h"
#include "support/SystemBusRig.h"
#include "support/TrayRig.h"

namespace wh {
namespace {

using namespace std::chrono_literals;

constexpr const char* kHeadphones = test::SystemBusRig::headphonesAddress;

class TrayEndToEndTest : public testing::Test {
 protected:
  std::vector<std::string> items() const {
    const std::string listed = tray->items();
    std::vector<std::string> names;
    const std::regex name("'(:[0-9.]+)'");
    for (auto it = std::sregex_iterator(listed.begin(), listed.end(), name); it != std::sregex_iterator(); ++it) {
      names.push_back((*it)[1]);
    }
    return names;
  }
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
  std::string failure;
  auto agent = home.launch(environment, failure);
  ASSERT_TRUE(agent) << failure;

  ASSERT_TRUE(test::eventually([&] { return items().size() == 2; }, 15s)) << tray->items() << home.log();
  const std::string item = headphonesItem();
  ASSERT_FALSE(item.empty()) << toolTip(items()[0]) << toolTip(items()[1]);
  const std::string menu = call(item, "/MenuBar", {"com.canonical.dbusmenu.GetLayout", "0", "--", "-1", "[]"});
  std::string labels;
  const std::regex label("'label': <'([^']*)'>");
  for (auto it = std::sregex_iterator(menu.begin(), menu.end(), label); it != std::sregex_iterator(); ++it) {
    labels += std::string((*it)[1]) + "|";
  }
  EXPECT_EQ(labels, "Not connected|Connect|Show in Menu Bar|Keep Music Quality|Connect Only|Connect After Wake|"
                    "Disconnect Before Sleep|Icon|Earbuds|Headphones|Speaker|Hotkey: None|Remove WH-1000XM4|");

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
