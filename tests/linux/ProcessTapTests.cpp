// Process taps on private PulseAudio and PipeWire servers with real sound: a client plays a tone to
// the speakers; the level is measured at their monitor and pactl shows where the streams are.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <sstream>

#include "QtLoop.h"
#include "platform/linux/audio/PulseAudioHardware.h"
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
  PulseProcessTaps taps(hardware, {.server = rig.server()});
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
  const double latency = std::dynamic_pointer_cast<PulseProcessTaps::Tap>(tap)->latency();
  EXPECT_TRUE(latency >= 0 && latency < 0.25) << latency << " s from the tap sink to the speakers";
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

}  // namespace
}  // namespace wh::platform
