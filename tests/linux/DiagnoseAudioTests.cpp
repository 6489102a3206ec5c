// "wrenhaven --diagnose" reading the audio sections from a private PulseAudio daemon.
#include <gtest/gtest.h>

#include "support/ChildProcess.h"
#include "support/PulseRig.h"

namespace wh {
namespace {

TEST(DiagnoseAudio, PrintsTheServersDevicesAndPlayingProcesses) {
  test::PulseRig rig;
  if (!rig.available()) GTEST_SKIP() << rig.whyNot();
  ASSERT_EQ(rig.pactl({"set-default-source", test::PulseRig::headphonesInput}).status, 0);
  auto player = rig.play("application.id=org.example.Player");
  ASSERT_TRUE(test::eventually([&] { return !rig.pactlLine({"list", "short", "sink-inputs"}).empty(); }));
  const auto result = test::runCommand({WRENHAVEN_AGENT_PATH, "--diagnose"},
                                       {{"PULSE_SERVER", rig.server()}, {"DISPLAY", std::nullopt},
                                        {"WAYLAND_DISPLAY", std::nullopt}, {"QT_QPA_PLATFORM", std::nullopt},
                                        {"DBUS_SESSION_BUS_ADDRESS", std::nullopt}},
                                       std::chrono::seconds(30));
  ASSERT_EQ(result.status, 0);
  EXPECT_NE(result.output.find("\n\nAudio devices:\n"
                               "  Built-in Audio Analog Stereo  [built-in out] 48000 Hz default output\n"
                               "  WH-1000XM4  [bluetooth out] 44100 Hz\n"
                               "  Buds Pro  [bluetooth out] 48000 Hz\n"
                               "  Virtual Sink  [aggregate out] 48000 Hz\n"
                               "  Built-in Audio Microphone  [built-in in] 48000 Hz\n"
                               "  WH-1000XM4 Microphone  [bluetooth in] 16000 Hz default input\n"),
            std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("\n\nAudio processes:\n  pid " + std::to_string(player->pid()) + " org.example.Player OUTPUT\n"),
            std::string::npos);
}

}  // namespace
}  // namespace wh
