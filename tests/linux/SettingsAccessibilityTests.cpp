// The settings program as a screen reader sees it: its window read through AT-SPI itself (the
// accessibility bus of at-spi2-core on a private session bus, and pyatspi, the client Orca is
// built on), page by page as the page list is chosen. Every setting has a named control that
// takes the keyboard focus.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "support/AgentHome.h"
#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"
#include "support/RigRequired.h"
#include "support/XvfbDisplay.h"

namespace wh {
namespace {

using namespace std::chrono_literals;

constexpr const char* kLauncher = "/usr/libexec/at-spi-bus-launcher";

TEST(SettingsAccessibilityTest, EverySettingHasANamedControlThatTakesTheFocus) {
  test::DBusDaemon bus;
  REQUIRE_RIG(bus.available(), bus.whyNot());
  test::XvfbDisplay display;
  REQUIRE_RIG(display.available, "no Xvfb");
  REQUIRE_RIG(std::filesystem::exists(kLauncher) &&
                  test::runCommand({"/usr/bin/python3", "-c", "import pyatspi"}).status == 0,
              "at-spi2-core or python3-pyatspi is missing (scripts/install-deps.sh installs them)");
  const test::ChildProcess::Environment session{{"DBUS_SESSION_BUS_ADDRESS", bus.address()},
                                                {"DISPLAY", display.name}};
  test::ChildProcess accessibilityBus({kLauncher, "--launch-immediately"}, session);
  ASSERT_TRUE(test::eventually([&] { return bus.hasOwner("org.a11y.Bus"); }, 10s));

  test::AgentHome home;
  const nlohmann::json devices = nlohmann::json::array({{{"address", "aa-bb-cc-dd-ee-ff"}, {"name", "WH-1000XM4"}}});
  home.writeSettings({{"onboardingDone", true},
                      {"devices", test::AgentHome::devicesValue(devices)},
                      {"agent.volumeApps", nlohmann::json::array({{{"bundleID", "org.example.Tuner"},
                                                                   {"name", "Tuner"},
                                                                   {"icon", ""},
                                                                   {"gain", 0.5},
                                                                   {"muted", false},
                                                                   {"playing", true}}})}});
  auto environment = home.environment(session);
  environment["DISPLAY"] = display.name;
  environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1";
  environment["ASAN_OPTIONS"] = std::string(std::getenv("ASAN_OPTIONS") ? std::getenv("ASAN_OPTIONS") : "") +
                                ":strict_string_checks=0";
  test::ChildProcess settings({WRENHAVEN_SETTINGS_PROGRAM_PATH}, environment);

  const auto read = test::runCommand({"/usr/bin/python3", WRENHAVEN_TEST_SUPPORT_DIR "/atspi_tree.py", "Wrenhaven Settings"},
                                     session, 60s);
  // The controls each page shows: a name for each, and the names of the rows they sit in (a
  // drop-down is read out with its row's name and its value).
  std::map<std::string, std::set<std::string>> named;
  std::vector<std::string> unnamed, unfocusable;
  std::string rowName;
  std::istringstream lines(read.output);
  for (std::string line; std::getline(lines, line);) {
    const auto object = nlohmann::json::parse(line, nullptr, false);
    ASSERT_FALSE(object.is_discarded() || object.contains("error")) << read.output;
    if (!object["showing"].get<bool>()) continue;
    const std::string page = object["page"], role = object["role"], name = object["name"];
    if (role == "filler" && !name.empty()) rowName = name;
    if (!object["interactive"].get<bool>()) continue;
    named[page].insert(role == "combo box" ? rowName : name);
    if (name.empty()) unnamed.push_back(page + ": " + role);
    if (!object["focusable"].get<bool>()) unfocusable.push_back(page + ": " + role + " " + name);
  }
  EXPECT_TRUE(unnamed.empty()) << testing::PrintToString(unnamed);
  EXPECT_TRUE(unfocusable.empty()) << testing::PrintToString(unfocusable);
  const std::map<std::string, std::vector<std::string>> settingsOfPages{
      {"Headphones", {"Show in Tray", "Keep Music Quality", "Connect Only", "Connect After Wake", "Disconnect Before Sleep",
                      "Icon"}},
      {"Music quality", {"Keep music quality", "During Calls", "Meeting apps"}},
      {"Media keys", {"Media keys", "Pause Media Keys", "When Nothing Is Playing"}},
      {"Volume by app", {"Tuner", "Mute Tuner"}},
      {"General", {"Show Tray Icon", "Welcome Guide: Open"}}};
  for (const auto& [page, titles] : settingsOfPages) {
    for (const auto& title : titles) {
      EXPECT_TRUE(named[page].contains(title)) << page << " lacks a control named \"" << title << "\"; it has "
                                               << testing::PrintToString(named[page]);
    }
  }
}

}  // namespace
}  // namespace wh
