// The real agent giving one application its own volume on private PulseAudio and PipeWire servers,
// with real sound measured at the output's monitor: half the gain, a new default output, mute
// through the settings program's "reload", and the sound given back after the agent was killed.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "support/AgentHome.h"
#include "support/DBusDaemon.h"
#include "support/PulseRig.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using test::PulseRig;

class AppVolumeEndToEndTest : public testing::TestWithParam<test::SoundServer> {
 protected:
  void launch(const char* volumes) {
    home.writeSettings({{"appVolumes", {{"$data", volumes}}}});
    auto environment = home.environment(pulse.clientEnvironment());
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
    std::string failure;
    agent = home.launch(environment, failure);
    ASSERT_TRUE(agent) << failure;
  }
  test::AgentHome home;
  PulseRig pulse{GetParam()};
  test::DBusDaemon bus;
  std::unique_ptr<test::ChildProcess> agent;
};

TEST_P(AppVolumeEndToEndTest, HalfGainFollowsTheOutputMutesOnReloadAndSurvivesAKilledAgent) {
  if (!pulse.available()) GTEST_SKIP() << pulse.whyNot();
  if (!bus.available()) GTEST_SKIP() << bus.whyNot();
  std::filesystem::create_directories(home.path() / ".local/share/applications");
  std::ofstream(home.path() / ".local/share/applications/org.example.Tone.desktop")
      << "[Desktop Entry]\nType=Application\nName=Tone\nIcon=tone\nExec=pulse_client --tone\n";
  auto tone = pulse.client({"--tone"}, "application.id=org.example.Tone");
  ASSERT_TRUE(tone);
  const std::string speakers = PulseRig::laptopSpeakers, buds = pulse.nodeName(PulseRig::headphonesOutput);
  const double full = pulse.level(speakers);
  ASSERT_GT(full, -20) << "the tone plays";

  launch(R"({"org.example.Tone":{"gain":0.5,"muted":false},"broken":{"gain":"loud"}})");
  EXPECT_NEAR(pulse.level(speakers, full - 6.02), full - 6.02, 0.5) << home.log();
  EXPECT_EQ(home.status("agent.taps"), nlohmann::json({{"org.example.Tone", "gain"}}));
  EXPECT_EQ(home.status("agent.volumeApps"), nlohmann::json::parse(R"([{"bundleID":"org.example.Tone","name":"Tone",
      "icon":"tone","gain":0.5,"muted":false,"playing":true}])"));

  pulse.pactl({"set-default-sink", buds});
  EXPECT_NEAR(pulse.level(buds, full - 6.02), full - 6.02, 0.5) << "rebuilt to the new default output";
  EXPECT_LT(pulse.level(speakers, -200), -60);

  home.writeSettings({{"appVolumes", {{"$data", R"({"org.example.Tone":{"gain":0.5,"muted":true}})"}}}});
  ASSERT_EQ(test::AgentHome::command(bus.address(), {"'reload'", "@a{sv} {}"}).status, 0);
  EXPECT_LT(pulse.level(buds, -200), -60) << "muted";

  agent->terminate(SIGKILL);
  agent->waitFor(5s);
  launch("{}");
  EXPECT_NEAR(pulse.level(buds, full), full, 0.5) << "the killed agent's tap is gone: " << home.log();
  EXPECT_EQ(home.status("agent.taps"), nlohmann::json::object());
}

INSTANTIATE_TEST_SUITE_P(Servers, AppVolumeEndToEndTest, test::bothSoundServers(), test::soundServerTestName);

}  // namespace
}  // namespace wh
