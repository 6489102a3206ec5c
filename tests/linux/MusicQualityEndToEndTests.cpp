// The real agent keeping the headphones in music quality on private PulseAudio and PipeWire
// servers: the default input goes back to the computer's own microphone, lets go during calls,
// and stops when another program keeps fighting it.
#include <gtest/gtest.h>

#include <thread>

#include <nlohmann/json.hpp>

#include "support/AgentHome.h"
#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using test::PulseRig;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class MusicQualityEndToEndTest : public testing::TestWithParam<test::SoundServer> {
 protected:
  void SetUp() override {
    REQUIRE_RIG(pulse.available(), pulse.whyNot());
    REQUIRE_RIG(bus.available(), bus.whyNot());
    home.writeSettings(nlohmann::json::object());
    auto environment = home.environment(pulse.clientEnvironment());
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
    environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";
    std::string failure;
    agent = home.launch(environment, failure);
    ASSERT_TRUE(agent) << failure;
    ASSERT_TRUE(test::eventually([&] { return !pinStatus().empty(); }, 10s)) << log();
  }

  std::string log() const { return home.log(); }
  nlohmann::json status(const std::string& key) const { return home.status(key); }
  // A text the agent published, or "" while it has published none.
  std::string text(const std::string& key) const {
    const auto value = status(key);
    return value.is_string() ? value.get<std::string>() : "";
  }
  std::string pinStatus() const { return text("agent.pinStatus"); }
  std::string defaultSource() const { return pulse.pactlLine({"get-default-source"}); }
  void select(const std::string& source) const { pulse.pactl({"set-default-source", pulse.nodeName(source)}); }
  std::string outputQuality() const { return text("agent.outputQuality"); }
  // Waits until the agent has handled what the server reported before now: the server reports
  // in order, so once the agent's output quality has followed the default output to the headphones
  // and back, every earlier change of the default input has been seen and acted on.
  void handledSoFar() const {
    pulse.pactl({"set-default-sink", PulseRig::headphonesOutput});
    ASSERT_TRUE(test::eventually([&] { return !outputQuality().empty(); }, 10s)) << log();
    pulse.pactl({"set-default-sink", PulseRig::laptopSpeakers});
    ASSERT_TRUE(test::eventually([&] { return outputQuality().empty(); }, 10s)) << log();
  }

  test::AgentHome home;
  PulseRig pulse{GetParam()};
  test::DBusDaemon bus;
  std::unique_ptr<test::ChildProcess> agent;
};

TEST_P(MusicQualityEndToEndTest, AHeadphoneMicrophoneOrItsLoopbackMadeDefaultIsMovedBackToTheComputersOwn) {
  EXPECT_EQ(defaultSource(), PulseRig::laptopMicrophone);
  const auto selected = std::chrono::steady_clock::now();
  select(PulseRig::headphonesInput);
  ASSERT_TRUE(test::eventually([&] { return defaultSource() == PulseRig::laptopMicrophone; }, 10s)) << log();
  RecordProperty("pin_back_ms", static_cast<int>(secondsSince(selected) * 1000));
  EXPECT_TRUE(test::eventually([&] { return pinStatus() == "pinned:Built-in Audio Microphone"; }, 10s)) << pinStatus();
  // WirePlumber 0.5's loopback source says it is Bluetooth by its name and bluez5.loopback only.
  select(PulseRig::headphonesLoopback);
  ASSERT_TRUE(test::eventually([&] { return log().find("(was WH-1000XM4)") != std::string::npos; }, 10s)) << log();
  EXPECT_TRUE(test::eventually([&] { return defaultSource() == PulseRig::laptopMicrophone; }, 10s));
  pulse.pactl({"set-default-sink", PulseRig::headphonesOutput});
  EXPECT_TRUE(test::eventually([&] { return status("agent.outputQuality") == "WH-1000XM4: 44.1 kHz, full quality"; }));
  EXPECT_EQ(status("agent.profileGuard"), "idle") << "no card on a server without hardware";
}

TEST_P(MusicQualityEndToEndTest, AProgramThatKeepsSwitchingBackMakesThePinnerStopAndSayItIsFighting) {
  // Switch back as soon as the agent has corrected, as a stubborn program would.
  int switches = 0;
  for (auto begin = std::chrono::steady_clock::now(); secondsSince(begin) < 15 && pinStatus() != "fighting";) {
    if (defaultSource() != PulseRig::headphonesInput) {
      select(PulseRig::headphonesInput);
      ++switches;
    }
    std::this_thread::sleep_for(20ms);
  }
  ASSERT_EQ(pinStatus(), "fighting") << log();
  EXPECT_EQ(switches, 6) << "five corrections are made; the sixth within ten seconds is not";
  handledSoFar();
  EXPECT_EQ(defaultSource(), PulseRig::headphonesInput) << "the agent no longer corrects";
}

TEST_P(MusicQualityEndToEndTest, AMeetingAppRecordingReleasesThePinAndItReturnsThreeSecondsAfterTheCall) {
  auto call = pulse.record("application.id=us.zoom.xos application.name=Zoom");
  ASSERT_TRUE(test::eventually([&] { return pinStatus() == "releasedForCall"; }, 10s)) << pinStatus() << log();
  select(PulseRig::headphonesInput);
  handledSoFar();
  EXPECT_EQ(defaultSource(), PulseRig::headphonesInput) << "released during the call";

  const auto ended = std::chrono::steady_clock::now();
  call.reset();  // the call ends
  ASSERT_TRUE(test::eventually([&] { return defaultSource() == PulseRig::laptopMicrophone; }, 15s)) << log();
  const double after = secondsSince(ended);
  EXPECT_GE(after, 2.9) << "not before the three seconds";
  EXPECT_LT(after, 6.0);
}

INSTANTIATE_TEST_SUITE_P(Servers, MusicQualityEndToEndTest, test::bothSoundServers(), test::soundServerTestName);

}  // namespace
}  // namespace wh
