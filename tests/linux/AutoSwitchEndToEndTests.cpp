// The real agent and PulseAudio's module-bluetooth-policy on the private PulseAudio: automatic
// headset switching is off while the agent keeps music quality and back as the person had it when
// the agent stops, when "pinInput" goes off, and after a run killed outright, when the next run
// stops. (PipeWire's pulse server has no such module; the rig has no card to switch.)
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "platform/linux/settings/JsonFileStore.h"
#include "support/AgentHome.h"
#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using test::PulseRig;

class AutoSwitchEndToEndTest : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_RIG(pulse.available(), pulse.whyNot());
    REQUIRE_RIG(bus.available(), bus.whyNot());
    ASSERT_EQ(pulse.pactl({"load-module", "module-bluetooth-policy", "auto_switch=2"}).status, 0);
    home.writeSettings(nlohmann::json::object());
  }
  std::unique_ptr<test::ChildProcess> launch() {
    auto environment = home.environment(pulse.clientEnvironment());
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
    environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";
    std::string failure;
    auto agent = home.launch(environment, failure);
    EXPECT_TRUE(agent) << failure;
    return agent;
  }
  // The module's argument, or "(not loaded)".
  std::string argument() const {
    const auto loaded = pulse.moduleArguments("module-bluetooth-policy");
    return loaded.empty() ? "(not loaded)" : loaded.front();
  }
  bool onRecord() const {
    std::ifstream file(home.path() / "state" / "Wrenhaven" / "state.json");
    std::stringstream text;
    text << file.rdbuf();
    return text.str().find("auto_switch=2") != std::string::npos;
  }

  test::AgentHome home;
  PulseRig pulse{test::SoundServer::pulseAudio};
  test::DBusDaemon bus;
};

TEST_F(AutoSwitchEndToEndTest, OffWhileMusicQualityIsKeptAndThePersonsSettingBackAfterwardsAlsoAfterAKill) {
  auto agent = launch();
  ASSERT_TRUE(test::eventually([&] { return argument() == "auto_switch=0"; }, 10s)) << argument() << home.log();
  EXPECT_TRUE(onRecord()) << "written down before it was changed";

  // "pinInput" off puts it back, on again turns it off (the settings program's way: write through the
  // store, which merges with what the agent publishes there, then reload).
  platform::JsonFileStore store(home.settingsFile());
  const auto pinInput = [&](bool on) {
    store.set("pinInput", StoreValue::boolean(on));
    ASSERT_EQ(test::AgentHome::command(bus.address(), {"'reload'", "@a{sv} {}"}).status, 0);
  };
  pinInput(false);
  EXPECT_TRUE(test::eventually([&] { return argument() == "auto_switch=2"; }, 10s)) << argument() << home.log();
  EXPECT_FALSE(onRecord());
  pinInput(true);
  EXPECT_TRUE(test::eventually([&] { return argument() == "auto_switch=0"; }, 10s)) << argument() << home.log();

  // Killed: nothing can put it back, but the record says what the person had.
  agent->terminate(SIGKILL);
  agent->waitFor(10s);
  EXPECT_EQ(argument(), "auto_switch=0");
  EXPECT_TRUE(onRecord());

  // The next run keeps it off under the same record, and puts it back when it stops.
  std::filesystem::remove(home.logFile());  // so that its start is the next run's
  agent = launch();
  ASSERT_TRUE(agent);
  EXPECT_EQ(argument(), "auto_switch=0");
  agent->terminate(SIGTERM);
  EXPECT_EQ(agent->waitFor(10s), 0);
  EXPECT_EQ(argument(), "auto_switch=2") << home.log();
  EXPECT_FALSE(onRecord());
}

}  // namespace
}  // namespace wh
