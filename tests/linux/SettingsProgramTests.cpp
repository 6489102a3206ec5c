// The settings program run as a user runs it, on a private X display and session bus.
#include <gtest/gtest.h>

#include <signal.h>

#include <cstdlib>

#include "support/AgentHome.h"
#include "support/DBusDaemon.h"
#include "support/XvfbDisplay.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;

TEST(SettingsProgramTest, ASecondCopyHandsOverToTheFirstAndEnds) {
  test::XvfbDisplay display;
  if (!display.available) GTEST_SKIP() << "no Xvfb and xdotool to run a display with";
  test::DBusDaemon bus;
  if (!bus.available()) GTEST_SKIP() << bus.whyNot();
  test::AgentHome home;
  home.writeSettings({{"onboardingDone", true}});
  auto environment = home.environment({{"DBUS_SESSION_BUS_ADDRESS", bus.address()}});
  environment["DISPLAY"] = display.name;
  // Qt's X11 platform (libxkbcommon-x11) reads names past their end with strndup, which the strict
  // string checks of the sanitizer build report: they are off for the program, as for ui_tests.
  if (const char* asan = std::getenv("ASAN_OPTIONS")) environment["ASAN_OPTIONS"] = std::string(asan) + ":strict_string_checks=0";

  ChildProcess first({WRENHAVEN_SETTINGS_PROGRAM_PATH}, environment);
  ASSERT_TRUE(test::eventually([&] { return bus.hasOwner("com.quintelbarrows.wrenhaven.settings"); }, 30s));
  ChildProcess second({WRENHAVEN_SETTINGS_PROGRAM_PATH}, environment);
  EXPECT_EQ(second.waitFor(10s), 0) << "the second copy raises the first and ends";
  EXPECT_TRUE(first.running()) << "the first keeps running";
  first.terminate(SIGTERM);
  EXPECT_TRUE(first.waitFor(30s).has_value());
}

}  // namespace
}  // namespace wh
