// The real agent as a native Wayland client of sway, with waybar's tray on its session bus: its
// items register in the tray, and each one stands out from the bar, on a dark bar and on a light
// one; the main item's menu is the shell's and opens the panel as a window; a hotkey bound through
// the desktop portal connects the headphones. The pictures are saved for review.
#include <gtest/gtest.h>

#include <QColor>
#include <QImage>

#include <cstdlib>
#include <regex>

#include "support/AgentHome.h"
#include "support/PortalRig.h"
#include "support/RigRequired.h"
#include "support/SystemBusRig.h"
#include "support/TrayRig.h"
#include "support/WaylandRig.h"

namespace wh {
namespace {

using namespace std::chrono_literals;

struct Bar {
  const char* name;
  const char* colour;
  const char* text;
};

class WaylandTrayEndToEndTest : public testing::TestWithParam<Bar> {
 protected:
  test::AgentHome home;
  test::SystemBusRig bus{{.bluez = true, .logind = false, .upower = false, .sessionBus = true, .denyBluez = false}};
};

// The agent as a client of the desktop, with the Bluetooth rig's buses.
// Any warning of Qt's (the Wayland platform's about popups and placement among them) ends it.
std::unique_ptr<test::ChildProcess> launchOn(const test::WaylandRig& desktop, const test::AgentHome& home,
                                             const test::SystemBusRig& bus, std::string& failure) {
  auto environment = home.environment(bus.environment());
  for (const auto& [name, value] : desktop.environment()) environment[name] = value;
  environment["QT_FATAL_WARNINGS"] = "1";
  return home.launch(environment, failure);
}

// How many pixels of the picture differ clearly in lightness from its first column's (the bar).
// Headphones that are not connected are drawn faint, on purpose: the threshold lets them count.
int standingOut(const QImage& picture) {
  const int bar = QColor(picture.pixel(0, picture.height() / 2)).lightness();
  int count = 0;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) count += std::abs(QColor(picture.pixel(x, y)).lightness() - bar) > 40;
  }
  return count;
}

TEST_P(WaylandTrayEndToEndTest, ItemsRegisterInTheBarsTrayAndStandOutFromTheBar) {
  REQUIRE_RIG(bus.available(), bus.whyNot());
  test::WaylandRig desktop({.sessionBus = bus.sessionBusAddress(), .barColour = GetParam().colour,
                            .textColour = GetParam().text});
  REQUIRE_RIG(desktop.available(), desktop.whyNot());
  ASSERT_TRUE(bus.addHeadphones());
  home.writeSettings({{"onboardingDone", true},
                      {"devices", test::AgentHome::devicesValue(nlohmann::json::array(
                                      {{{"address", "aa-bb-cc-dd-ee-ff"}, {"name", "WH-1000XM4"}}}))}});
  std::string failure;
  auto agent = launchOn(desktop, home, bus, failure);
  ASSERT_TRUE(agent) << failure;
  ASSERT_TRUE(test::eventually([&] { return desktop.trayItems().size() == 2; }, 20s)) << home.log();

  // The tray sits at the bar's right end; its items are drawn a moment after they register.
  const int trayWidth = 120;
  const auto file = std::filesystem::path(WRENHAVEN_SCREENSHOT_DIR) / (std::string("tray-wayland-") + GetParam().name + ".png");
  std::filesystem::create_directories(file.parent_path());
  QImage picture;
  EXPECT_TRUE(test::eventually(
      [&] {
        const std::string region = std::to_string(test::WaylandRig::width - trayWidth) + ",0 " +
                                   std::to_string(trayWidth) + "x" + std::to_string(test::WaylandRig::barHeight);
        return desktop.screenshot(file, region) && picture.load(QString::fromStdString(file.string())) &&
               standingOut(picture) >= 2 * 30;
      },
      10s))
      << "the items do not stand out from the bar: " << (picture.isNull() ? -1 : standingOut(picture))
      << " clear pixels in " << file;
  EXPECT_TRUE(agent->running()) << home.log();
}

// The Bluetooth rig with a session bus, and an agent's home.
class WaylandDesktopTest : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_RIG(bus.available(), bus.whyNot()); }
  test::AgentHome home;
  test::SystemBusRig bus{{.bluez = true, .logind = false, .upower = false, .sessionBus = true, .denyBluez = false}};
};

class WaylandPanelEndToEndTest : public WaylandDesktopTest {};
class WaylandHotkeysEndToEndTest : public WaylandDesktopTest {};

TEST_F(WaylandPanelEndToEndTest, TheShellDrawsTheMainItemsMenuAndItsEntryOpensThePanelAsAWindow) {
  test::WaylandRig desktop({.sessionBus = bus.sessionBusAddress()});
  REQUIRE_RIG(desktop.available(), desktop.whyNot());
  // Past the first run: the settings program's guide would cover the panel.
  home.writeSettings({{"onboardingDone", true}});
  std::string failure;
  auto agent = launchOn(desktop, home, bus, failure);
  ASSERT_TRUE(agent) << failure;
  ASSERT_TRUE(test::eventually([&] { return desktop.trayItems().size() == 1; }, 20s)) << home.log();
  const std::string item = desktop.trayItems().front();
  const std::string service = item.substr(0, item.find('/'));
  const auto call = [&](const std::string& path, const std::vector<std::string>& method) {
    std::vector<std::string> argv{"gdbus", "call", "--session", "--dest", service, "--object-path", path, "--method"};
    argv.insert(argv.end(), method.begin(), method.end());
    return test::runCommand(argv, {{"DBUS_SESSION_BUS_ADDRESS", bus.sessionBusAddress()}}).output;
  };
  EXPECT_NE(call("/StatusNotifierItem", {"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierItem", "ItemIsMenu"})
                .find("true"),
            std::string::npos);
  const std::string layout = call("/MenuBar", {"com.canonical.dbusmenu.GetLayout", "0", "--", "-1", "[]"});
  std::string labels;
  for (const auto& label : test::matches(layout, std::regex("'label': <'([^']*)'>"))) labels += label + "|";
  EXPECT_EQ(labels, "Add Your Headphones…|Keep Music Quality|Media Keys|Open Wrenhaven…|Settings…|Quit Wrenhaven|");

  EXPECT_TRUE(desktop.windows().empty());
  call("/MenuBar", {"com.canonical.dbusmenu.Event", test::menuEntryId(layout, "Open Wrenhaven…"), "clicked", "<0>", "0"});
  EXPECT_TRUE(test::eventually([&] { return desktop.windows() == std::vector<std::string>{"Wrenhaven"}; }, 10s))
      << "windows: " << desktop.windows().size() << "\n" << home.log();
  // The panel is drawn: the desktop below the bar is no longer all one colour.
  const auto file = std::filesystem::path(WRENHAVEN_SCREENSHOT_DIR) / "panel-wayland.png";
  QImage picture;
  EXPECT_TRUE(test::eventually(
      [&] {
        const std::string region = "0," + std::to_string(test::WaylandRig::barHeight) + " " +
                                   std::to_string(test::WaylandRig::width) + "x" +
                                   std::to_string(test::WaylandRig::height - test::WaylandRig::barHeight);
        return desktop.screenshot(file, region) && picture.load(QString::fromStdString(file.string())) &&
               standingOut(picture) > 5000;
      },
      10s))
      << file;
  EXPECT_TRUE(agent->running()) << home.log();
}

TEST_F(WaylandHotkeysEndToEndTest, AHotkeyBoundThroughTheDesktopPortalConnectsTheHeadphones) {
  test::WaylandRig desktop({.sessionBus = bus.sessionBusAddress()});
  REQUIRE_RIG(desktop.available(), desktop.whyNot());
  test::PortalRig portal({.sessionBus = bus.sessionBusAddress(), .taken = {}, .rebind = {}});
  REQUIRE_RIG(portal.available(), portal.whyNot());
  ASSERT_TRUE(bus.addHeadphones());
  // F5 with Control and Shift, as stored.
  const nlohmann::json hotkey{{"keyCode", 96}, {"modifiers", 4096 | 512}};
  home.writeSettings({{"onboardingDone", true},
                      {"devices", test::AgentHome::devicesValue(nlohmann::json::array(
                                      {{{"address", "aa-bb-cc-dd-ee-ff"}, {"name", "WH-1000XM4"}, {"hotkey", hotkey}}}))}});
  std::string failure;
  auto agent = launchOn(desktop, home, bus, failure);
  ASSERT_TRUE(agent) << failure;
  ASSERT_TRUE(test::eventually([&] { return !portal.bindings().empty(); }, 20s)) << home.log();
  EXPECT_EQ(portal.bindings().back()["given"].dump(), R"({"hotkey-96-4608":"CTRL+SHIFT+F5"})");
  ASSERT_TRUE(portal.press("CTRL+SHIFT+F5"));
  EXPECT_TRUE(test::eventually([&] { return bus.isConnected(test::SystemBusRig::headphonesAddress); }, 20s))
      << home.log();
}

INSTANTIATE_TEST_SUITE_P(Bars, WaylandTrayEndToEndTest,
                         testing::Values(Bar{"dark", "#202020", "#ffffff"}, Bar{"light", "#f2f2f2", "#202020"}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace wh
