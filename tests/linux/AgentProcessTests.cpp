// The real agent binary, run as a user would run it, against a private session bus and a
// temporary home.
#include <gtest/gtest.h>

#include <signal.h>


#include "platform/linux/app/SystemInfo.h"
#include "support/AgentHome.h"
#include "support/DBusDaemon.h"
#include "support/RigRequired.h"
#include "support/StandInSocket.h"
#include "support/XvfbDisplay.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;

class AgentProcessTest : public testing::Test {
 protected:
  // A desktop-less environment in the temporary home, on that session bus (or none); `recorded`
  // puts the sound server and the system bus behind sockets that record whoever connects.
  ChildProcess::Environment environment(const std::string& busAddress, bool recorded) const {
    const auto when = [recorded](std::string value) { return recorded ? std::optional(value) : std::nullopt; };
    return home.environment({{"DBUS_SESSION_BUS_ADDRESS", busAddress.empty() ? std::nullopt : std::optional(busAddress)},
                             {"PULSE_SERVER", when("unix:" + (home.path() / "pulse").string())},
                             {"DBUS_SYSTEM_BUS_ADDRESS", when("unix:path=" + (home.path() / "system").string())}});
  }
  // Nothing connected to the sound server or the system bus.
  void expectNoConnections() const {
    ASSERT_EQ(soundServer.whyNot() + systemBus.whyNot(), "");
    EXPECT_FALSE(soundServer.connected()) << "the sound server was reached";
    EXPECT_FALSE(systemBus.connected()) << "the system bus was reached";
  }

  test::AgentHome home;
  test::StandInSocket soundServer{home.path() / "pulse", test::StandInSocket::Kind::stream};
  test::StandInSocket systemBus{home.path() / "system", test::StandInSocket::Kind::stream};
};

TEST_F(AgentProcessTest, HelpVersionAndMistakesEndAtOnceWithTheUsualStatus) {
  struct Case {
    std::string argument;
    int status;
    std::string outputStart;  // standard output; a mistake goes to standard error only
  };
  for (const auto& [argument, status, outputStart] : std::vector<Case>{{"--version", 0, "Wrenhaven 0.1.0 ("},
                                                                       {"-h", 0, "Usage: wrenhaven [options]"},
                                                                       {"--diagnose=now", 2, ""},
                                                                       {"--bogus", 2, ""},
                                                                       {"stray", 2, ""}}) {
    const auto result = test::runCommand({WRENHAVEN_AGENT_PATH, argument}, environment("", true), 30s);
    EXPECT_EQ(result.status, status) << argument;
    EXPECT_EQ(result.output.substr(0, outputStart.size()), outputStart) << argument << ": " << result.output;
    if (outputStart.empty()) {
      EXPECT_EQ(result.output, "") << argument;
    }
  }
  expectNoConnections();
}

TEST_F(AgentProcessTest, RunsHeadlessAndASecondInstanceReopensTheFirstAndQuitsBeforeBuildingAnything) {
  test::DBusDaemon bus;
  REQUIRE_RIG(bus.available(), bus.whyNot());
  home.writeSettings({{"hideMenuIcon", true}});
  std::string failure;
  auto first = home.launch(environment(bus.address(), false), failure);
  ASSERT_TRUE(first) << failure;
  EXPECT_NE(home.log().find(") started on " + platform::systemVersion() + ", accessibility "), std::string::npos);
  EXPECT_NE(home.log().find("no display: running without tray icons"), std::string::npos) << home.log();
  EXPECT_TRUE(bus.hasOwner("com.quintelbarrows.wrenhaven"));
  EXPECT_EQ(home.status("hideMenuIcon"), true);

  ChildProcess second({WRENHAVEN_AGENT_PATH}, environment(bus.address(), true));
  EXPECT_EQ(second.waitFor(30s), 0) << "the second instance quits quietly";
  expectNoConnections();
  EXPECT_TRUE(first->running()) << "the first keeps running";
  EXPECT_TRUE(test::eventually([&] { return home.status("hideMenuIcon") == false; }, 10s))
      << "the first handled the reopen by showing its icon again: " << test::readFile(home.settingsFile());
  EXPECT_EQ(home.log().find("started on"), home.log().rfind("started on")) << "one start line";

  first->terminate(SIGTERM);
  EXPECT_TRUE(first->waitFor(30s).has_value());
}

TEST_F(AgentProcessTest, ASecondSettingsProgramHandsOverToTheFirstAndEnds) {
  test::XvfbDisplay display;
  test::DBusDaemon bus;
  REQUIRE_RIG(display.available && bus.available(), "no Xvfb and xdotool, or " + bus.whyNot());
  auto env = environment(bus.address(), false);
  env["DISPLAY"] = display.name;
  // Qt's X11 platform (libxkbcommon-x11) trips the sanitizer's strict string checks: off, as in ui_tests.
  env["ASAN_OPTIONS"] = std::string(std::getenv("ASAN_OPTIONS") ? std::getenv("ASAN_OPTIONS") : "") + ":strict_string_checks=0";
  ChildProcess first({WRENHAVEN_SETTINGS_PROGRAM_PATH}, env);
  ASSERT_TRUE(test::eventually([&] { return bus.hasOwner("com.quintelbarrows.wrenhaven.settings"); }, 30s));
  ChildProcess second({WRENHAVEN_SETTINGS_PROGRAM_PATH}, env);
  EXPECT_EQ(second.waitFor(10s), 0) << "the second copy raises the first and ends";
  EXPECT_TRUE(first.running()) << "the first keeps running";
}

TEST_F(AgentProcessTest, UnderATestRunnerTheAgentStartsNothing) {
  test::DBusDaemon bus;
  REQUIRE_RIG(bus.available(), bus.whyNot());
  auto env = environment(bus.address(), true);
  env["XCTestConfigurationFilePath"] = "/dev/null";
  ChildProcess agent({WRENHAVEN_AGENT_PATH}, env);
  // Once it idles in its event loop it has got through launching: by then it must neither have
  // logged, nor connected, nor taken the bus name.
  ASSERT_TRUE(test::eventually([&] { return agent.waitingForEvents(); }, 30s)) << "the agent never went idle";
  EXPECT_TRUE(agent.running());
  expectNoConnections();
  EXPECT_FALSE(bus.hasOwner("com.quintelbarrows.wrenhaven"));
  EXPECT_FALSE(std::filesystem::exists(home.path() / "state")) << "not even the log";
}

}  // namespace
}  // namespace wh
