// The real agent on an X display with a desktop tray on its session bus: it registers its main
// item and one item per headphones that asks for one, a click on a headphones item toggles them
// on the Bluetooth rig, their menu holds the device entries, and a restarted tray gets them back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "support/AgentHome.h"
#include "support/RigRequired.h"
#include "support/SystemBusRig.h"
#include "support/TrayRig.h"

namespace wh {
namespace {

using namespace std::chrono_literals;

constexpr const char* kHeadphones = test::SystemBusRig::headphonesAddress;

class TrayEndToEndTest : public testing::Test {
 protected:
  test::AgentHome home;
  test::SystemBusRig bus{{.bluez = true, .logind = false, .upower = false, .sessionBus = true, .denyBluez = false}};
  std::unique_ptr<test::TrayRig> tray;
};

TEST_F(TrayEndToEndTest, ItemsRegisterToggleTheHeadphonesCarryTheirMenuAndComeBackAfterTheTrayRestarts) {
  REQUIRE_RIG(bus.available(), bus.whyNot());
  tray = std::make_unique<test::TrayRig>(bus.sessionBusAddress());
  REQUIRE_RIG(tray->available(), tray->whyNot());
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

  ASSERT_TRUE(test::eventually([&] { return tray->items().size() == 2; }, 15s)) << home.log();
  const std::string item = tray->itemShowing("WH-1000XM4");
  ASSERT_FALSE(item.empty()) << tray->toolTip(tray->items()[0]) << tray->toolTip(tray->items()[1]);
  const std::string menu = tray->call(item, "/MenuBar", {"com.canonical.dbusmenu.GetLayout", "0", "--", "-1", "[]"});
  std::string labels;
  for (const auto& label : test::matches(menu, std::regex("'label': <'([^']*)'>"))) labels += label + "|";
  EXPECT_EQ(labels, "Not connected|Connect|Show in Tray|Keep Music Quality|Connect Only|Connect After Wake|"
                    "Disconnect Before Sleep|Icon|Earbuds|Headphones|Speaker|Hotkey: None|Record Hotkey…|Remove WH-1000XM4|");

  tray->call(item, "/StatusNotifierItem", {"org.kde.StatusNotifierItem.Activate", "10", "10"});
  EXPECT_TRUE(test::eventually([&] { return bus.isConnected(kHeadphones); }, 20s)) << home.log();
  EXPECT_TRUE(test::eventually([&] { return tray->toolTip(item).find("WH-1000XM4: Connected") != std::string::npos; }, 10s))
      << tray->toolTip(item);

  ASSERT_TRUE(tray->restartTray());
  EXPECT_TRUE(test::eventually([&] { return tray->items().size() == 2; }, 15s));
  EXPECT_TRUE(agent->running());
}

}  // namespace
}  // namespace wh
