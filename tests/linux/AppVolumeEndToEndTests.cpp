// The real agent giving one application its own volume on private PulseAudio and PipeWire servers,
// with real sound measured at the output's monitor: half the gain, a new default output (with no
// burst at full volume while the tap moves), full volume leaving nothing behind, mute
// through the settings program's "reload", and the sound given back after the agent was killed;
// then the output device unplugged, the server restarted and an app gone while its tap is built;
// a stream that something keeps moving away, reported; and each stop signal giving a muted app its
// sound back as Quit does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "core/settings/Settings.h"
#include "platform/linux/audio/PulseMirror.h"
#include "platform/linux/pipewire/PipeWireConnection.h"
#include "platform/linux/settings/JsonFileStore.h"
#include "support/AgentHome.h"
#include "support/DBusDaemon.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using test::PulseRig;

class AppVolumeEndToEndTest : public testing::TestWithParam<test::SoundServer> {
 protected:
  void SetUp() override {
    REQUIRE_RIG(pulse.available(), pulse.whyNot());
    REQUIRE_RIG(bus.available(), bus.whyNot());
  }
  void launch(const char* volumes) {
    home.writeSettings({{"appVolumes", {{"$data", volumes}}}});
    auto environment = home.environment(pulse.clientEnvironment());
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
    std::string failure;
    agent = home.launch(environment, failure);
    ASSERT_TRUE(agent) << failure;
  }
  // Mutes the tone as the settings program would: under the store's lock, beside the agent's own
  // status writes, which a plain rewrite of the file could lose.
  void muteTone() {
    platform::JsonFileStore(home.settingsFile())
        .set(Keys::appVolumes, StoreValue::data(R"({"org.example.Tone":{"gain":0.5,"muted":true}})"));
  }
  std::unique_ptr<test::ChildProcess> playTone() {
    test::writeFile(home.path() / ".local/share/applications/org.example.Tone.desktop",
                    "[Desktop Entry]\nType=Application\nName=Tone\nIcon=tone\nExec=pulse_client --tone\n");
    return pulse.client({"--tone"}, "application.id=org.example.Tone");
  }
  // What taps put on the server: the lines of `pactl list` that name a tap sink or a tap stream.
  std::string tapTraces() const {
    std::istringstream lines(pulse.pactl({"list"}).output);
    std::string traces;
    for (std::string line; std::getline(lines, line);) {
      const bool tap = line.find("wrenhaven_tap.") != line.npos || line.find("media.name = \"Wrenhaven") != line.npos;
      traces += tap ? line + "\n" : "";
    }
    return traces;
  }
  // The names of the tap's nodes in PipeWire's graph (its sink, and the node that applies the
  // gain), which the pulse server does not all list; none on PulseAudio.
  std::vector<std::string> graphNodes() const {
    std::vector<std::string> names;
    if (GetParam() != test::SoundServer::pipeWire) return names;
    auto opened = platform::PipeWireConnection::open({.remote = pulse.pipeWireSocket()});
    if (auto* failure = std::get_if<platform::PipeWireConnection::Failure>(&opened)) {
      ADD_FAILURE() << failure->text();
      return names;
    }
    for (const auto& node : std::get<0>(opened)->globals(PW_TYPE_INTERFACE_Node)) {
      const std::string* name = node.property(PW_KEY_NODE_NAME);
      if (name != nullptr && name->starts_with(platform::tapSinkPrefix)) names.push_back(*name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  // Records an output's monitor until `loudest` is asked: then the level of its loudest 10 ms.
  struct Listener {
    std::unique_ptr<test::ChildProcess> parec;
    double loudest() {
      parec->terminate(SIGTERM);
      parec->waitFor(5s);
      const std::string raw = parec->output();
      std::vector<float> samples(raw.size() / sizeof(float));
      if (!samples.empty()) std::memcpy(samples.data(), raw.data(), samples.size() * sizeof(float));
      double loudest = -200;
      for (std::size_t at = 0; at + 480 <= samples.size(); at += 480) {
        double sum = 0;
        for (std::size_t i = at; i < at + 480; ++i) sum += double(samples[i]) * samples[i];
        loudest = std::max(loudest, 10 * std::log10(sum / 480 + 1e-20));
      }
      return loudest;
    }
  };
  Listener listen(const std::string& sink) const {
    return {std::make_unique<test::ChildProcess>(
        std::vector<std::string>{"parec", "--raw", "--format=float32le", "--channels=1", "--rate=48000",
                                 "--latency-msec=10", "-d", pulse.nodeName(sink) + ".monitor"},
        pulse.clientEnvironment())};
  }
  test::AgentHome home;
  PulseRig pulse{GetParam()};
  test::DBusDaemon bus;
  std::unique_ptr<test::ChildProcess> agent;
};

TEST_P(AppVolumeEndToEndTest, HalfGainFollowsTheOutputMutesOnReloadAndSurvivesAKilledAgent) {
  auto tone = playTone();
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

  muteTone();
  ASSERT_EQ(test::AgentHome::command(bus.address(), {"'reload'", "@a{sv} {}"}).status, 0);
  EXPECT_LT(pulse.level(buds, -200), -60) << "muted";

  agent->terminate(SIGKILL);
  agent->waitFor(5s);
  launch("{}");
  EXPECT_NEAR(pulse.level(buds, full), full, 0.5) << "the killed agent's tap is gone: " << home.log();
  EXPECT_EQ(home.status("agent.taps"), nlohmann::json::object());
}

TEST_P(AppVolumeEndToEndTest, AGainTapOutlivesItsOutputAndTheServerAndAnAppGoneMidBuildLeavesNothing) {
  const std::string speakers = PulseRig::laptopSpeakers, buds = pulse.nodeName(PulseRig::headphonesOutput);
  ASSERT_EQ(pulse.pactl({"set-default-sink", buds}).status, 0);
  auto tone = playTone();
  ASSERT_TRUE(tone);
  const double full = pulse.level(buds), half = full - 6.02;
  launch(R"({"org.example.Tone":{"gain":0.5,"muted":false}})");
  EXPECT_NEAR(pulse.level(buds, half), half, 0.5) << home.log();

  ASSERT_TRUE(pulse.removeDevice(PulseRig::headphonesOutput));
  EXPECT_NEAR(pulse.level(speakers, half), half, 0.5) << "rebuilt on the output that is left: " << home.log();

  pulse.stop();
  ASSERT_TRUE(pulse.start()) << pulse.whyNot();
  tone = playTone();  // the first one ended with its server
  ASSERT_TRUE(tone);
  EXPECT_NEAR(pulse.level(speakers, half), half, 0.5) << "rebuilt on the new server: " << home.log();
  EXPECT_EQ(home.status("agent.volumeProblem"), "") << "builds that failed while the server was away are over";
  ASSERT_NE(tapTraces(), "") << "the running tap shows in the listing";

  // The app ends while its mute tap is being built: the server holds the build until it has gone.
  muteTone();
  pulse.signalDaemon(SIGSTOP);
  ASSERT_EQ(test::AgentHome::command(bus.address(), {"'reload'", "@a{sv} {}"}).status, 0);
  ASSERT_TRUE(test::eventually([&] { return home.log().find("building mute tap for org.example.Tone") != std::string::npos; }))
      << home.log();
  tone->terminate(SIGKILL);
  pulse.signalDaemon(SIGCONT);
  // A muted app keeps its tap for 20 s after its last stream, for a stream that comes back.
  EXPECT_TRUE(test::eventually([&] { return tapTraces().empty(); }, 45s)) << tapTraces() << home.log();
  EXPECT_TRUE(test::eventually([&] { return home.status("agent.taps") == nlohmann::json::object(); })) << home.log();
}

// A new default output under a gain tap: the tap follows at once and neither output hears the app
// at full volume meanwhile (on PipeWire the gain runs inside the graph). Back to full volume, the
// tap goes at once and leaves nothing.
TEST_P(AppVolumeEndToEndTest, ANewOutputUnderAGainTapBringsNoFullVolumeBurstAndFullVolumeLeavesNothing) {
  const std::string speakers = PulseRig::laptopSpeakers, buds = pulse.nodeName(PulseRig::headphonesOutput);
  auto tone = playTone();
  ASSERT_TRUE(tone);
  const double full = pulse.level(speakers), half = full - 6.02;
  launch(R"({"org.example.Tone":{"gain":0.5,"muted":false}})");
  ASSERT_NEAR(pulse.level(speakers, half), half, 0.5) << home.log();
  const auto nodes = graphNodes();
  if (GetParam() == test::SoundServer::pipeWire) {
    ASSERT_EQ(nodes.size(), 2U) << "the tap's sink and its gain node";
    EXPECT_TRUE(nodes[1].ends_with(".gain")) << nodes[1];
    EXPECT_EQ(pulse.pactl({"list", "sink-inputs"}).output.find("Wrenhaven"), std::string::npos)
        << "no stream of the tap's on the pulse server";
  }

  auto atSpeakers = listen(speakers), atBuds = listen(buds);
  std::this_thread::sleep_for(300ms);  // both recorders running
  ASSERT_EQ(pulse.pactl({"set-default-sink", buds}).status, 0);
  EXPECT_NEAR(pulse.level(buds, half), half, 0.5) << "on the new output: " << home.log();
  EXPECT_LT(pulse.level(speakers, -200), -60);
  EXPECT_LT(atSpeakers.loudest(), half + 1) << "no burst on the old output";
  EXPECT_LT(atBuds.loudest(), half + 1) << "no burst on the new output";
  if (GetParam() == test::SoundServer::pipeWire) {
    EXPECT_TRUE(test::eventually([&] { return graphNodes().size() == 2; })) << testing::PrintToString(graphNodes());
    EXPECT_EQ(home.log().find("over the pulse protocol"), std::string::npos) << "relinked inside the graph: " << home.log();
  }

  platform::JsonFileStore(home.settingsFile())
      .set(Keys::appVolumes, StoreValue::data(R"({"org.example.Tone":{"gain":1,"muted":false}})"));
  ASSERT_EQ(test::AgentHome::command(bus.address(), {"'reload'", "@a{sv} {}"}).status, 0);
  EXPECT_NEAR(pulse.level(buds, full), full, 0.5) << home.log();
  EXPECT_TRUE(test::eventually([&] { return tapTraces().empty() && graphNodes().empty(); }))
      << tapTraces() << testing::PrintToString(graphNodes());
}

// Something keeps moving a muted app's stream back to the speakers: the agent lets it go and says
// so in its status (the panel's "Volume by app stopped").
TEST_P(AppVolumeEndToEndTest, AStreamKeptFromItsTapIsReported) {
  auto tone = playTone();
  ASSERT_TRUE(tone);
  launch(R"({"org.example.Tone":{"gain":1,"muted":true}})");
  ASSERT_LT(pulse.level(PulseRig::laptopSpeakers, -200), -60) << "muted: " << home.log();
  const auto mover = pulse.keepMovingStreams(PulseRig::laptopSpeakers);
  EXPECT_TRUE(test::eventually(
      [&] { return home.status("agent.volumeProblem") == "Could not change the volume of Tone"; }, 60s))
      << home.log();
}

// A service manager's stop, Ctrl+C and a hang-up each end the agent as Quit does: status 0, the
// muted app's streams back on the output at full level, no tap sink left, the teardown logged.
TEST_P(AppVolumeEndToEndTest, EachStopSignalGivesAMutedAppItsSoundBack) {
  const std::string speakers = PulseRig::laptopSpeakers;
  auto tone = playTone();
  ASSERT_TRUE(tone);
  const double full = pulse.level(speakers);
  ASSERT_GT(full, -20) << "the tone plays";
  const auto tapSinks = [&] {
    const std::string sinks = pulse.pactl({"list", "short", "sinks"}).output;
    return sinks.find(platform::tapSinkPrefix) != sinks.npos;
  };

  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    const std::string name = std::string("SIG") + sigabbrev_np(signal);
    SCOPED_TRACE(name);
    launch(R"({"org.example.Tone":{"gain":1,"muted":true}})");
    ASSERT_LT(pulse.level(speakers, -200), -60) << "muted: " << home.log();
    ASSERT_TRUE(tapSinks());

    agent->terminate(signal);
    EXPECT_EQ(agent->waitFor(30s), 0) << home.log();
    EXPECT_NEAR(pulse.level(speakers, full), full, 0.5) << "the tone is back: " << tapTraces();
    EXPECT_FALSE(tapSinks()) << pulse.pactl({"list", "short", "sinks"}).output;
    const std::string log = home.log();
    const auto stopping = log.rfind("stopping on " + name), removed = log.rfind("removed tap for org.example.Tone");
    EXPECT_TRUE(stopping != log.npos && removed != log.npos && stopping < removed) << log;
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, AppVolumeEndToEndTest, test::bothSoundServers(), test::soundServerTestName);

}  // namespace
}  // namespace wh
