// The audio process monitor on the real runtime, the PulseAudio adapter, /proc and desktop entry
// files, with a real client playing on a private daemon.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "QtLoop.h"
#include "core/audio/AudioProcesses.h"
#include "platform/linux/audio/ProcFsProcessTable.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/audio/XdgDesktopEntries.h"
#include "support/CapturedLog.h"
#include "support/PulseRig.h"

namespace wh::platform {
namespace {

using namespace std::chrono_literals;

class AudioMonitorLiveTest : public testing::Test {
 protected:
  bool qt_ = (test::qtApplication(), true);
  test::PulseRig rig;
  test::TempDir data{"wrenhaven-xdg"};
  QtRuntime runtime;
  test::CapturedLog log;

  void SetUp() override {
    if (!rig.available()) GTEST_SKIP() << rig.whyNot();
  }
  bool logged(const std::string& line) const {
    return std::find(log->lines.begin(), log->lines.end(), line) != log->lines.end();
  }
};

TEST_F(AudioMonitorLiveTest, APlayingClientIsListedAndItsPauseAndResumeAreLogged) {
  const auto folder = data.path() / "applications";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "org.example.Player.desktop") << "[Desktop Entry]\nType=Application\nExec=pulse_client\n";
  PulseAudioHardware hardware(runtime.main(), {.server = rig.server()});
  ASSERT_TRUE(hardware.waitUntilReady(10)) << hardware.lastError();
  ProcFsProcessTable table;
  XdgDesktopEntries entries({folder});
  AppGrouping grouping(table, entries);
  AudioProcessMonitor monitor(runtime, hardware, grouping);
  int changes = 0;
  monitor.addObserver([&](const std::vector<AudioProcess>&) { ++changes; });
  monitor.start();

  // The server knows no application id for this one: /proc and the desktop entry do.
  auto player = rig.client({});
  ASSERT_TRUE(player);
  const auto listed = [&](bool playing) {
    const auto& list = monitor.processes();
    return std::any_of(list.begin(), list.end(), [&](const AudioProcess& p) {
      return p.pid == player->pid() && p.runningOutput == playing;
    });
  };
  ASSERT_TRUE(test::spinUntil([&] { return listed(true); }));
  const AudioProcess& process = monitor.processes().front();
  EXPECT_EQ(process.bundleID, "org.example.Player");
  EXPECT_EQ(process.appID, "org.example.Player");
  EXPECT_FALSE(process.runningInput);
  EXPECT_TRUE(log->lines.empty()) << "already playing when first seen";

  player->terminate(SIGUSR1);
  ASSERT_TRUE(test::spinUntil([&] { return listed(false); }));
  EXPECT_TRUE(logged("org.example.Player stopped output"));
  player->terminate(SIGUSR2);
  ASSERT_TRUE(test::spinUntil([&] { return listed(true); }));
  EXPECT_TRUE(logged("org.example.Player started output"));
  EXPECT_EQ(monitor.pollInterval(), AudioProcessMonitor::activePollInterval);

  const int before = changes;
  player.reset();
  ASSERT_TRUE(test::spinUntil([&] { return monitor.processes().empty(); }));
  EXPECT_GT(changes, before);
  EXPECT_EQ(log->lines.size(), 2u) << "a process that ends is not logged";
  EXPECT_EQ(monitor.pollInterval(), AudioProcessMonitor::idlePollInterval);
}

}  // namespace
}  // namespace wh::platform
