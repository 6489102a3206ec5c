// The real agent on an X display with a desktop tray on its session bus: it registers its main
// item and one item per headphones that asks for one, each under an id of its own, also with a
// tray that starts after the agent; a click on a headphones item toggles them on the Bluetooth
// rig, their menu holds the device entries and its entries act, an item hidden from its menu
// leaves the tray, and a restarted tray gets the items back.
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
  // The desktop's tray starts after the agent.
  tray = std::make_unique<test::TrayRig>(bus.sessionBusAddress(), false);
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

  ASSERT_TRUE(test::eventually([&] { return home.log().find("no tray") != std::string::npos; }, 15s)) << home.log();
  // Said where the settings program reads it, and gone once a tray is there.
  const auto trayProblem = [&] { return home.status("agent.trayProblem").get<std::string>(); };
  EXPECT_TRUE(test::eventually([&] { return trayProblem().find("no tray") != std::string::npos; }, 10s)) << trayProblem();
  ASSERT_TRUE(tray->startTray());
  ASSERT_TRUE(test::eventually([&] { return tray->items().size() == 2; }, 15s)) << home.log();
  EXPECT_TRUE(test::eventually([&] { return trayProblem().empty(); }, 10s)) << trayProblem();
  const std::string item = tray->itemShowing("WH-1000XM4");
  ASSERT_FALSE(item.empty()) << tray->toolTip(tray->items()[0]) << tray->toolTip(tray->items()[1]);
  std::string ids;
  for (const auto& each : tray->items()) ids += tray->property(each, "Id");
  EXPECT_NE(ids.find("'wrenhaven'"), std::string::npos) << ids;
  EXPECT_NE(ids.find("'wrenhaven-aa-bb-cc-dd-ee-ff'"), std::string::npos) << ids;
  const std::string menu = tray->call(item, "/MenuBar", {"com.canonical.dbusmenu.GetLayout", "0", "--", "-1", "[]"});
  std::string labels;
  for (const auto& label : test::matches(menu, std::regex("'label': <'([^']*)'>"))) labels += label + "|";
  EXPECT_EQ(labels, "Not connected|Connect|Show in Tray|Keep Music Quality|Connect Only|Connect After Wake|"
                    "Disconnect Before Sleep|Icon|Earbuds|Headphones|Speaker|Hotkey: None|Record Hotkey…|Remove WH-1000XM4|");

  tray->call(item, "/StatusNotifierItem", {"org.kde.StatusNotifierItem.Activate", "10", "10"});
  EXPECT_TRUE(test::eventually([&] { return bus.isConnected(kHeadphones); }, 20s)) << home.log();
  EXPECT_TRUE(test::eventually([&] { return tray->toolTip(item).find("WH-1000XM4: Connected") != std::string::npos; }, 10s))
      << tray->toolTip(item);

  // The menu the tray draws follows the state, and its entries act.
  std::string layout;
  ASSERT_TRUE(test::eventually([&] {
    layout = tray->call(item, "/MenuBar", {"com.canonical.dbusmenu.GetLayout", "0", "--", "-1", "[]"});
    return !test::menuEntryId(layout, "Disconnect").empty();
  }, 10s)) << layout;
  tray->call(item, "/MenuBar", {"com.canonical.dbusmenu.Event", test::menuEntryId(layout, "Disconnect"), "clicked", "<0>", "0"});
  EXPECT_TRUE(test::eventually([&] { return !bus.isConnected(kHeadphones); }, 20s)) << home.log();
  layout = tray->call(item, "/MenuBar", {"com.canonical.dbusmenu.GetLayout", "0", "--", "-1", "[]"});
  tray->call(item, "/MenuBar", {"com.canonical.dbusmenu.Event", test::menuEntryId(layout, "Show in Tray"), "clicked", "<0>", "0"});
  EXPECT_TRUE(test::eventually([&] { return tray->items().size() == 1; }, 10s)) << home.log();

  ASSERT_TRUE(tray->restartTray());
  EXPECT_TRUE(test::eventually([&] { return tray->items().size() == 1; }, 15s));
  EXPECT_TRUE(agent->running());
}

}  // namespace
}  // namespace wh
