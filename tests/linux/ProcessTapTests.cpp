// Process taps on private PulseAudio and PipeWire servers with real sound: a client plays a tone to
// the speakers; the level is measured at their monitor and pactl shows where the streams are.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <sstream>

#include "QtLoop.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/pipewire/PipeWireConnection.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/volume/PulseProcessTaps.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"

namespace wh::platform {
namespace {

using test::PulseRig;
using Mode = ProcessTap::Mode;

class ProcessTapTest : public testing::TestWithParam<test::SoundServer> {
 protected:
  bool qt_ = (test::qtApplication(), true);
  PulseRig rig{GetParam()};
  QtRuntime runtime;
  // The first letters of the sink of each of the client's streams, then "+tap" per tap sink.
  std::string placement(std::uint32_t client) const {
    std::map<std::string, std::string> sinks;
    std::istringstream sinkLines(rig.pactl({"list", "short", "sinks"}).output);
    std::istringstream inputLines(rig.pactl({"list", "short", "sink-inputs"}).output);
    for (std::string index, name, rest; sinkLines >> index >> name && std::getline(sinkLines, rest);) sinks[index] = name;
    std::string out;
    for (std::string index, sink, owner, rest; inputLines >> index >> sink >> owner && std::getline(inputLines, rest);) {
      if (owner == std::to_string(client)) out += sinks[sink].substr(0, 5) + " ";
    }
    for (const auto& [index, name] : sinks) out += name.starts_with(PulseProcessTaps::sinkPrefix) ? "+tap" : "";
    return out;
  }
  // The audio process object of a client program, once the hardware layer lists it.
  static AudioObjectID processOf(PulseAudioHardware& hardware, const test::ChildProcess& program) {
    AudioObjectID process = 0;
    test::eventually([&] {
      for (auto id : hardware.processObjects()) process = hardware.processPID(id) == program.pid() ? id : process;
      return process != 0;
    });
    return process;
  }
};

TEST_P(ProcessTapTest, GainAndMuteCoverLaterStreamsAndStopOrAFailedBuildLeavesNothing) {
  REQUIRE_RIG(rig.available(), rig.whyNot());
  PulseAudioHardware hardware(runtime.main(), {.server = rig.server()});
  ASSERT_TRUE(hardware.waitUntilReady(10));
  PulseProcessTaps taps(hardware, {.server = rig.server(), .pipeWireRemote = rig.pipeWireSocket()});
  auto tone = rig.client({"--tone"});
  ASSERT_TRUE(tone);
  const AudioObjectID process = processOf(hardware, *tone);
  ASSERT_NE(process, 0U);
  const std::uint32_t client = *hardware.clientServerIndex(process);
  const std::string speakers = PulseRig::laptopSpeakers;
  const double full = rig.level(speakers);
  ASSERT_GT(full, -20) << "the tone plays";
  const auto build = [&](Mode mode, std::optional<std::string> output) {
    return taps.build({"org.example.Player", {process}, mode, std::move(output), 0.5F, {}});
  };

  EXPECT_EQ(std::get<ProcessTap::Failure>(build(Mode::gain, std::nullopt)),
            (ProcessTap::Failure{ProcessTap::Failure::Step::aggregate, ProcessTap::badDeviceStatus}));
  EXPECT_EQ(placement(client), "alsa_ ");
  auto tap = std::get<std::shared_ptr<ProcessTap>>(build(Mode::gain, speakers));
  EXPECT_NEAR(rig.level(speakers, full - 6.02), full - 6.02, 0.5);
  EXPECT_TRUE(tap->box().sawSignal());
  // On PipeWire the gain runs inside its graph (PipeWireProcessTapTest); elsewhere over two streams.
  auto* pulseTap = std::dynamic_pointer_cast<PulseProcessTaps::Tap>(tap).get();
  EXPECT_EQ(pulseTap->pipeWirePath() != nullptr, GetParam() == test::SoundServer::pipeWire);
  const double latency = pulseTap->latency();
  if (pulseTap->pipeWirePath() == nullptr) {
    EXPECT_TRUE(latency >= 0 && latency < 0.25) << latency << " s from the tap sink to the speakers";
  }
  tap->stop();
  EXPECT_EQ(placement(client), "alsa_ ");

  tap = std::get<std::shared_ptr<ProcessTap>>(build(Mode::mute, speakers));
  tone->terminate(SIGHUP);  // a second stream, after the tap was built
  EXPECT_TRUE(test::eventually([&] { return placement(client) == "wrenh wrenh +tap"; })) << placement(client);
  EXPECT_LT(rig.level(speakers, -200), -60);
  std::istringstream inputs(rig.pactl({"list", "short", "sink-inputs"}).output);
  for (std::string index, sink, owner, rest; inputs >> index >> sink >> owner && std::getline(inputs, rest);) {
    if (owner == std::to_string(client)) rig.pactl({"move-sink-input", index, speakers});
  }
  EXPECT_TRUE(test::eventually([&] { return placement(client) == "wrenh wrenh +tap"; })) << "taken back: " << placement(client);

  // The tap built next takes over the sink: the streams stay, and the last tap to stop gives them back.
  auto next = std::get<std::shared_ptr<ProcessTap>>(build(Mode::gain, speakers));
  EXPECT_EQ(placement(client), "wrenh wrenh +tap");
  tap->stop();
  EXPECT_GT(rig.level(speakers), -60);
  next->stop();
  EXPECT_EQ(placement(client), "alsa_ alsa_ ");
}

// A stream that may not be moved: the tap says once that it cannot keep the app's sound, and the
// stream plays on. The tap's sink is listed to clients as no hardware output, marked virtual.
TEST_P(ProcessTapTest, SaysWhenItCannotKeepAStreamAndIsNoOutputForOthers) {
  REQUIRE_RIG(rig.available(), rig.whyNot());
  PulseAudioHardware hardware(runtime.main(), {.server = rig.server()});
  ASSERT_TRUE(hardware.waitUntilReady(10));
  PulseProcessTaps taps(hardware, {.server = rig.server()});
  auto fixed = rig.client({"--tone", "--dont-move"});
  ASSERT_TRUE(fixed);
  const AudioObjectID process = processOf(hardware, *fixed);
  ASSERT_NE(process, 0U);
  std::atomic<int> lost{0};
  auto tap = std::get<std::shared_ptr<ProcessTap>>(
      taps.build({"org.example.Player", {process}, Mode::mute, PulseRig::laptopSpeakers, 1.0F, [&] { ++lost; }}));
  EXPECT_EQ(lost, 1);
  EXPECT_EQ(placement(*hardware.clientServerIndex(process)), "alsa_ +tap");
  EXPECT_GT(rig.level(PulseRig::laptopSpeakers), -20) << "it plays on";

  std::string sink = rig.pactl({"list", "sinks"}).output;
  sink = sink.substr(sink.find(std::string("Name: ") + PulseProcessTaps::sinkPrefix));
  sink = sink.substr(0, sink.find("\nSink #"));
  EXPECT_EQ(sink.substr(0, sink.find('\n', sink.find("Flags:"))).find("HARDWARE"), sink.npos) << sink;
  EXPECT_NE(sink.find("node.virtual = \"true\""), sink.npos) << sink;
  tap->stop();
}

INSTANTIATE_TEST_SUITE_P(S, ProcessTapTest, test::bothSoundServers(), test::soundServerTestName);

// On PipeWire a gain tap's sink is played to the output by a node of the tap's inside the graph:
// half the gain at the speakers, no stream of the tap's on the pulse server for the filter node,
// and nothing of it left after the stop. With the daemon out of reach, the pulse protocol's path
// takes over.
TEST(PipeWireProcessTapTest, TheGainRunsInsideTheGraphInEachDesignAndLeavesNothing) {
  const bool qt = (test::qtApplication(), true);
  ASSERT_TRUE(qt);
  PulseRig rig(test::SoundServer::pipeWire);
  REQUIRE_RIG(rig.available(), rig.whyNot());
  QtRuntime runtime;
  PulseAudioHardware hardware(runtime.main(), {.server = rig.server()});
  ASSERT_TRUE(hardware.waitUntilReady(10));
  auto tone = rig.client({"--tone"});
  ASSERT_TRUE(tone);
  AudioObjectID process = 0;
  ASSERT_TRUE(test::eventually([&] {
    for (auto id : hardware.processObjects()) process = hardware.processPID(id) == tone->pid() ? id : process;
    return process != 0;
  }));
  const std::string speakers = PulseRig::laptopSpeakers;
  const double full = rig.level(speakers);
  ASSERT_GT(full, -20) << "the tone plays";
  auto graph = PipeWireConnection::open({.remote = rig.pipeWireSocket()});
  ASSERT_TRUE(std::holds_alternative<std::unique_ptr<PipeWireConnection>>(graph));
  auto& pw = *std::get<std::unique_ptr<PipeWireConnection>>(graph);
  const auto tapNodes = [&] {
    EXPECT_EQ(pw.roundtrip(), std::nullopt);
    int count = 0;
    for (const auto& node : pw.globals(PW_TYPE_INTERFACE_Node)) {
      const std::string* name = node.property(PW_KEY_NODE_NAME);
      count += name != nullptr && name->starts_with(PulseProcessTaps::sinkPrefix) ? 1 : 0;
    }
    return count;
  };
  const auto tapStreams = [&] { return rig.pactl({"list", "sink-inputs"}).output.find("Wrenhaven") != std::string::npos; };

  using Design = PipeWireGainPath::Design;
  struct Case {
    std::optional<Design> design;
    bool reachable;
    int nodes;           // the tap's nodes in the graph while it runs: its sink, and the gain's own
    bool pulseStreams;   // whether the tap has streams on the pulse server
  };
  for (const auto& [design, reachable, nodes, pulseStreams] :
       {Case{Design::filter, true, 2, false}, Case{Design::streamPair, true, 3, true}, Case{Design::filter, false, 1, true}}) {
    SCOPED_TRACE(testing::Message() << "design " << (design == Design::filter ? "filter" : "stream pair")
                                    << (reachable ? "" : ", the daemon out of reach"));
    PulseProcessTaps taps(hardware, {.server = rig.server(),
                                     .pipeWirePath = design,
                                     .pipeWireRemote = reachable ? rig.pipeWireSocket() : "/nonexistent/pipewire-0"});
    auto built = taps.build({"org.example.Player", {process}, Mode::gain, speakers, 0.5F, {}});
    ASSERT_TRUE(std::holds_alternative<std::shared_ptr<ProcessTap>>(built));
    auto tap = std::dynamic_pointer_cast<PulseProcessTaps::Tap>(std::get<std::shared_ptr<ProcessTap>>(built));
    EXPECT_NEAR(rig.level(speakers, full - 6.02), full - 6.02, 0.5);
    EXPECT_EQ(tap->pipeWirePath() != nullptr, reachable);
    if (reachable) {
      EXPECT_TRUE(test::eventually([&] { return tap->pipeWirePath()->quantum() > 0; }));
    }
    EXPECT_EQ(tapNodes(), nodes);
    EXPECT_EQ(tapStreams(), pulseStreams);
    tap->stop();
    EXPECT_NEAR(rig.level(speakers, full), full, 0.5) << "full volume again";
    EXPECT_TRUE(test::eventually([&] { return tapNodes() == 0; })) << "the tap's nodes are gone";
    EXPECT_FALSE(tapStreams());
  }
}

}  // namespace
}  // namespace wh::platform
