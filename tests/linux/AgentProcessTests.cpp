// The real agent binary, run as a user would run it, against a private session bus and a
// temporary home.
#include <gtest/gtest.h>

#include <signal.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "platform/linux/app/SystemInfo.h"
#include "support/AgentHome.h"
#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;

using test::readFile;

class AgentProcessTest : public testing::Test {
 protected:
  test::AgentHome home;

  // A desktop-less environment in the temporary home, on that session bus (or none).
  ChildProcess::Environment environment(const std::string& busAddress) const {
    return home.environment(
        {{"DBUS_SESSION_BUS_ADDRESS", busAddress.empty() ? std::nullopt : std::optional(busAddress)}});
  }
  std::filesystem::path logFile() const { return home.logFile(); }
  std::filesystem::path settingsFile() const { return home.settingsFile(); }
};

TEST_F(AgentProcessTest, DiagnosePrintsTheReportAndExitsWithoutDisplayBusOrLog) {
  auto result = test::runCommand({WRENHAVEN_AGENT_PATH, "--diagnose"}, environment(""), 30s);
  ASSERT_EQ(result.status, 0);
  EXPECT_EQ(result.output.rfind("Wrenhaven 0.1.0 (", 0), 0u) << result.output;
  EXPECT_NE(result.output.find(") on " + platform::systemVersion() + "\n"), std::string::npos) << result.output;
  EXPECT_EQ(result.output.back(), '\n');
  EXPECT_FALSE(std::filesystem::exists(home.path() / "state")) << "nothing else starts, not even the log";
}

TEST_F(AgentProcessTest, RunsHeadlessLogsItsStartLineAndASecondInstanceReopensTheFirstAndQuits) {
  test::DBusDaemon bus;
  if (!bus.available()) GTEST_SKIP() << bus.whyNot();
  std::filesystem::create_directories(settingsFile().parent_path());
  std::ofstream(settingsFile()) << R"({"hideMenuIcon": true})";

  ChildProcess first({WRENHAVEN_AGENT_PATH}, environment(bus.address()));
  ASSERT_TRUE(test::eventually([&] { return readFile(logFile()).find("started on") != std::string::npos; }, 30s))
      << "log: " << readFile(logFile());
  const std::string log = readFile(logFile());
  EXPECT_NE(log.find(" INFO Wrenhaven 0.1.0 ("), std::string::npos) << log;
  EXPECT_NE(log.find(") started on " + platform::systemVersion() + ", accessibility "), std::string::npos) << log;
  EXPECT_NE(log.find(", 0 saved devices\n"), std::string::npos) << log;
  EXPECT_NE(log.find("no display: running without tray icons"), std::string::npos) << log;
  EXPECT_TRUE(bus.hasOwner("com.quintelbarrows.wrenhaven"));

  ChildProcess second({WRENHAVEN_AGENT_PATH}, environment(bus.address()));
  EXPECT_EQ(second.waitFor(30s), 0) << "the second instance quits quietly";
  EXPECT_TRUE(first.running()) << "the first keeps running";
  // The first handled the reopen: the hidden menu icon is shown again.
  EXPECT_TRUE(test::eventually([&] { return readFile(settingsFile()).find("false") != std::string::npos; }, 10s))
      << readFile(settingsFile());
  std::size_t starts = 0;
  for (std::size_t at = 0; (at = readFile(logFile()).find("started on", at)) != std::string::npos; ++at) ++starts;
  EXPECT_EQ(starts, 1u);

  first.terminate(SIGTERM);
  EXPECT_TRUE(first.waitFor(30s).has_value());
}

TEST_F(AgentProcessTest, UnderATestRunnerTheAgentStartsNothing) {
  test::DBusDaemon bus;
  if (!bus.available()) GTEST_SKIP() << bus.whyNot();
  auto env = environment(bus.address());
  env["XCTestConfigurationFilePath"] = "/dev/null";
  ChildProcess agent({WRENHAVEN_AGENT_PATH}, env);
  // Give it time to get through launching; it must neither log a start nor take the bus name.
  std::this_thread::sleep_for(1500ms);
  EXPECT_TRUE(agent.running());
  EXPECT_FALSE(bus.hasOwner("com.quintelbarrows.wrenhaven"));
  EXPECT_EQ(readFile(home.path() / "state" / "Wrenhaven Tests" / "Wrenhaven Tests.log").find("started on"),
            std::string::npos);
}

}  // namespace
}  // namespace wh
