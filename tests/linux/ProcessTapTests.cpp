// Process taps on private PulseAudio and PipeWire servers with real sound: a client plays a tone to
// the speakers and the level is measured at the speakers' monitor.
#include <gtest/gtest.h>

#include <csignal>
#include <sstream>

#include "QtLoop.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/volume/PulseProcessTaps.h"
#include "support/PulseRig.h"

namespace wh::platform {
namespace {

using test::PulseRig;
using Mode = ProcessTap::Mode;

class ProcessTapTest : public testing::TestWithParam<test::SoundServer> {
 protected:
  bool qt_ = (test::qtApplication(), true);
  PulseRig rig{GetParam()};
  QtRuntime runtime;
  void SetUp() override {
    if (!rig.available()) GTEST_SKIP() << rig.whyNot();
  }
  // "sink-of-each-stream" of the client, and whether any tap sink exists.
  std::string placement(std::uint32_t client) const {
    std::map<std::string, std::string> sinks;
    std::istringstream sinkLines(rig.pactl({"list", "short", "sinks"}).output), inputLines(rig.pactl({"list", "short", "sink-inputs"}).output);
    for (std::string index, name, rest; sinkLines >> index >> name && std::getline(sinkLines, rest);) sinks[index] = name;
    std::string out;
    for (std::string index, sink, owner, rest; inputLines >> index >> sink >> owner && std::getline(inputLines, rest);) {
      if (owner == std::to_string(client)) out += (out.empty() ? "" : " ") + sinks[sink].substr(0, 14);
    }
    for (const auto& [index, name] : sinks) out += name.starts_with(PulseProcessTaps::sinkPrefix) ? " +tap" : "";
    return out;
  }
};

TEST_P(ProcessTapTest, GainMuteLaterStreamsStopAndLeftoversWithRealSound) {
  PulseAudioHardware hardware(runtime.main(), {.server = rig.server()});
  ASSERT_TRUE(hardware.waitUntilReady(10));
  PulseProcessTaps taps(hardware, {.server = rig.server()});
  auto tone = rig.client({"--tone"});
  ASSERT_TRUE(tone);
  AudioObjectID process = 0;
  ASSERT_TRUE(test::eventually([&] {
    for (auto id : hardware.processObjects()) process = hardware.processPID(id) == tone->pid() ? id : process;
    return process != 0;
  }));
  const std::uint32_t client = *hardware.clientServerIndex(process);
  const std::string speakers = PulseRig::laptopSpeakers, direct = speakers.substr(0, 14);
  double full = 0;
  ASSERT_TRUE(test::eventually([&] { return (full = rig.level(speakers)) > -20; })) << "the tone plays";
  const auto build = [&](Mode mode, std::optional<std::string> output) {
    return taps.build({"org.example.Player", {process}, mode, std::move(output), 0.5F});
  };
  const auto levelNear = [&](double wanted) {
    double level = 0;
    test::eventually([&] { return std::abs((level = rig.level(speakers)) - wanted) < 0.5; }, std::chrono::seconds(5));
    return level;
  };

  EXPECT_EQ(std::get<ProcessTap::Failure>(build(Mode::gain, std::nullopt)),
            (ProcessTap::Failure{ProcessTap::Failure::Step::aggregate, ProcessTap::badDeviceStatus}));
  EXPECT_EQ(placement(client), direct) << "a failed build leaves nothing behind";

  auto tap = std::get<std::shared_ptr<ProcessTap>>(build(Mode::gain, speakers));
  EXPECT_NEAR(levelNear(full - 6.02), full - 6.02, 0.5);
  EXPECT_TRUE(tap->box().sawSignal());
  tap->box().setGain(0);
  EXPECT_LT(levelNear(-200), -60);
  tap->stop();
  EXPECT_NEAR(levelNear(full), full, 0.5);
  EXPECT_EQ(placement(client), direct);

  tap = std::get<std::shared_ptr<ProcessTap>>(build(Mode::mute, speakers));
  tone->terminate(SIGHUP);  // a second stream, after the tap was built
  EXPECT_TRUE(test::eventually([&] { return placement(client) == "wrenhaven_tap. wrenhaven_tap. +tap"; }))
      << placement(client);
  EXPECT_LT(rig.level(speakers), -60);
  tap->stop();
  EXPECT_EQ(placement(client), direct + " " + direct);

  // What a killed agent leaves: a tap sink holding the application's streams.
  rig.pactl({"load-module", "module-null-sink", "sink_name=wrenhaven_tap.left"});
  std::istringstream inputs(rig.pactl({"list", "short", "sink-inputs"}).output);
  for (std::string index, rest; inputs >> index && std::getline(inputs, rest);) {
    rig.pactl({"move-sink-input", index, "wrenhaven_tap.left"});
  }
  ASSERT_EQ(placement(client), "wrenhaven_tap. wrenhaven_tap. +tap");
  taps.removeLeftovers();
  EXPECT_TRUE(test::eventually([&] { return placement(client) == direct + " " + direct; })) << placement(client);
}

INSTANTIATE_TEST_SUITE_P(S, ProcessTapTest, test::bothSoundServers(), test::soundServerTestName);

}  // namespace
}  // namespace wh::platform
