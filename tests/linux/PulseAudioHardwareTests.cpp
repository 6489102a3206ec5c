// The sound server adapter, the audio process monitor over it and the agent's diagnostics, against
// private PulseAudio and PipeWire servers with a laptop's card, Bluetooth headphones and real clients.
#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <thread>
#include <functional>

#include "QtLoop.h"
#include "core/audio/AudioProcesses.h"
#include "core/audio/CoreAudio.h"
#include "platform/linux/audio/ProcFsProcessTable.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/audio/XdgDesktopEntries.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "support/AgentHome.h"
#include "support/CapturedLog.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"

namespace wh::platform {
namespace {

using namespace std::chrono_literals;
using test::PulseRig;

class PulseAudioHardwareTest : public testing::TestWithParam<test::SoundServer> {
 protected:
  bool qt_ = (test::qtApplication(), true);
  PulseRig rig{GetParam()};
  QtRuntime runtime;

  void SetUp() override {
    REQUIRE_RIG(rig.available(), rig.whyNot());
  }
  std::unique_ptr<PulseAudioHardware> connect() {
    auto hardware = std::make_unique<PulseAudioHardware>(runtime.main(), PulseAudioHardware::Options{.server = rig.server()});
    EXPECT_TRUE(hardware->waitUntilReady(10)) << hardware->lastError();
    return hardware;
  }
  // Keeps the answer to one write, with the default output that reads showed when it came.
  struct Answer {
    std::optional<WriteAnswer> answer;
    std::optional<AudioObjectID> outputThen;
    WriteDone keeper(AudioHardware& hardware) {
      return [this, &hardware](const WriteAnswer& given) {
        answer = given;
        outputThen = DefaultDevice::id(hardware, Direction::output);
      };
    }
    bool came() const { return answer.has_value(); }
  };
  static AudioObjectID idOf(AudioHardware& hardware, const std::string& uid) {
    const auto device = AudioDevice::byUID(hardware, uid);
    return device ? device->id : audioObjectUnknown;
  }
  // The process object the adapter lists that `which` picks (or with `pid`), once it does, or 0.
  static AudioObjectID processOf(AudioHardware& hardware, std::function<bool(AudioObjectID)> which) {
    AudioObjectID found = audioObjectUnknown;
    test::eventually([&] {
      for (auto id : hardware.processObjects()) found = which(id) ? id : found;
      return found != audioObjectUnknown;
    });
    return found;
  }
  static AudioObjectID processOf(AudioHardware& hardware, pid_t pid) {
    return processOf(hardware, [&](AudioObjectID id) { return hardware.processPID(id) == pid; });
  }
};

// The agent's diagnostics show the devices as the adapter reads them: monitors left out, sinks
// first in the server's order, every BlueZ node form as Bluetooth. Nothing else starts.
TEST_P(PulseAudioHardwareTest, DiagnosticsListTheDevicesWithTransportRateAndDefaultsAndThePlayingProcesses) {
  ASSERT_EQ(rig.pactl({"set-default-source", PulseRig::headphonesInput}).status, 0);
  auto player = rig.play("application.id=org.example.Player");
  ASSERT_TRUE(test::eventually([&] { return !rig.pactlLine({"list", "short", "sink-inputs"}).empty(); }));
  test::AgentHome home;
  const auto result =
      test::runCommand({WRENHAVEN_AGENT_PATH, "--diagnose"}, home.environment(rig.clientEnvironment()), 30s);
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_NE(result.output.find("\n\nAudio devices:\n"
                               "  Built-in Audio Analog Stereo  [built-in out] 48000 Hz default output\n"
                               "  WH-1000XM4  [bluetooth out] 44100 Hz\n"
                               "  Buds Pro  [bluetooth out] 48000 Hz\n"
                               "  Virtual Sink  [aggregate out] 48000 Hz\n"
                               "  Built-in Audio Microphone  [built-in in] 48000 Hz\n"
                               "  WH-1000XM4 Microphone  [bluetooth in] 16000 Hz default input\n"
                               "  WH-1000XM4  [bluetooth in] 48000 Hz\n"),
            std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("\nAudio processes:\n  pid " + std::to_string(player->pid()) + " org.example.Player OUTPUT\n"),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(home.path() / "state")) << "not even the log";
}

TEST_P(PulseAudioHardwareTest, DefaultsSetHereReachTheServerAndThoseSetElsewhereReachTheListeners) {
  auto hw = connect();
  int outputCalls = 0, inputCalls = 0;
  CA::Listener output(*hw, audioSystemObject, AudioProperty::defaultOutputDevice, [&] { ++outputCalls; });
  CA::Listener input(*hw, audioSystemObject, AudioProperty::defaultInputDevice, [&] { ++inputCalls; });
  const AudioObjectID headphones = idOf(*hw, PulseRig::headphonesOutput);
  Answer accepted;
  DefaultDevice::set(*hw, Direction::output, headphones, accepted.keeper(*hw));
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::output), headphones) << "reads follow the write at once";
  EXPECT_FALSE(accepted.came()) << "answered on the main queue";
  ASSERT_TRUE(test::spinUntil([&] { return accepted.came(); }));
  EXPECT_EQ(accepted.answer, WriteAnswer::accept());
  EXPECT_TRUE(test::eventually([&] { return rig.pactlLine({"get-default-sink"}) == PulseRig::headphonesOutput; }));
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls == 1; }));
  ASSERT_EQ(rig.pactl({"set-default-sink", PulseRig::laptopSpeakers}).status, 0);
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls == 2; }));
  test::spinFor(200);
  EXPECT_EQ(inputCalls, 0) << "output touches nothing else";
  Answer notAnOutput;
  DefaultDevice::set(*hw, Direction::output, idOf(*hw, PulseRig::headphonesInput), notAnOutput.keeper(*hw));
  ASSERT_TRUE(test::spinUntil([&] { return notAnOutput.came(); }));
  EXPECT_EQ(notAnOutput.answer, WriteAnswer::refuse("no such output device"));
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::laptopSpeakers);
}

// A sink the adapter still knows but the server no longer has (gone while the write was on its
// way): the server refuses, and the refusal comes after the adapter has read back what it kept.
TEST_P(PulseAudioHardwareTest, TheServersRefusalOfADefaultIsLoggedAndAnsweredAfterReadsShowWhatItKept) {
  test::CapturedLog log;
  auto hw = connect();
  const AudioObjectID speakers = idOf(*hw, PulseRig::laptopSpeakers);
  ASSERT_EQ(DefaultDevice::id(*hw, Direction::output), speakers);
  const std::string gone = rig.nodeName("bluez_output.11_22_33_44_55_66.1");
  hw->applyDevice({997, true, gone, "Gone Buds", 48000, false, true, false, {{"device.api", "bluez5"}}, std::nullopt});
  Answer refused;
  hw->setDefaultDevice(AudioProperty::defaultOutputDevice, idOf(*hw, gone), refused.keeper(*hw));
  ASSERT_TRUE(test::spinUntil([&] { return refused.came(); }));
  EXPECT_FALSE(refused.answer->accepted);
  EXPECT_TRUE(log->has("the sound server refused a change: " + refused.answer->reason)) << refused.answer->reason;
  EXPECT_EQ(refused.outputThen, speakers) << "read back before the answer";
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::laptopSpeakers);
}

TEST_P(PulseAudioHardwareTest, ClientsAreProcessesWithPidBundleIDAndRunningStateAndTheMonitorNamesTheirApps) {
  // The monitor reads the real /proc and a desktop entry file for clients without an application id.
  test::TempDir data{"wrenhaven-xdg"};
  test::writeFile(data.path() / "applications" / "org.example.Tool.desktop",
                  "[Desktop Entry]\nType=Application\nExec=pulse_client\n");
  auto hw = connect();
  ProcFsProcessTable table;
  XdgDesktopEntries entries({data.path() / "applications"});
  AppGrouping grouping(table, entries);
  AudioProcessMonitor monitor(runtime, *hw, grouping);
  monitor.start();
  auto player = rig.play("application.id=org.example.Player");
  auto recorder = rig.record();
  auto meter = rig.client({"--peak"});
  auto paused = rig.client({});
  auto anonymous = rig.play("application.process.id=unknown");
  ASSERT_TRUE(meter && paused);
  const AudioObjectID playing = processOf(*hw, player->pid()), recording = processOf(*hw, recorder->pid());
  const AudioObjectID metering = processOf(*hw, meter->pid()), pausing = processOf(*hw, paused->pid());
  EXPECT_EQ(hw->processBundleID(playing), "org.example.Player");
  EXPECT_TRUE(test::eventually([&] { return hw->processIsRunningOutput(playing) && hw->processIsRunningInput(recording); }));
  EXPECT_EQ(hw->processIsRunningInput(metering), false) << "a level meter is not input";
  EXPECT_TRUE(test::eventually([&] { return hw->processObjects().size() == 5; })) << "one whose pid is no number too";

  int runningCalls = 0, listCalls = 0;
  CA::Listener running(*hw, pausing, AudioProperty::processIsRunningOutput, [&] { ++runningCalls; });
  CA::Listener list(*hw, audioSystemObject, AudioProperty::processObjectList, [&] { ++listCalls; });
  paused->terminate(SIGUSR1);
  EXPECT_TRUE(test::spinUntil([&] { return runningCalls == 1 && hw->processIsRunningOutput(pausing) == false; }));
  EXPECT_TRUE(test::spinUntil([&] {
    const auto& all = monitor.processes();
    return std::any_of(all.begin(), all.end(), [&](const AudioProcess& p) {
      return p.pid == paused->pid() && p.appID == "org.example.Tool" && !p.runningOutput;
    });
  })) << "the monitor names its app and sees the pause";
  player.reset();
  EXPECT_TRUE(test::spinUntil([&] { return listCalls >= 1 && hw->processObjects().size() == 4; }));
  // Its streams may go before the client does.
  EXPECT_TRUE(test::spinUntil([&] { return hw->processIsRunningOutput(playing) == std::nullopt; }))
      << "a process that has gone reads as nothing";

  // Clients that end while they are being read leave no trace.
  std::vector<std::unique_ptr<test::ChildProcess>> players;
  for (int i = 0; i < 8; ++i) players.push_back(rig.client({}));
  for (auto& p : players) {
    if (p) p->terminate(SIGTERM);
    for (auto id : hw->processObjects()) hw->processIsRunningOutput(id);
  }
  EXPECT_TRUE(test::eventually([&] { return hw->processObjects().size() == 4; }));
}

// Neither server makes a card without sound hardware or a Bluetooth stack (docs/architecture.md): no
// profile is switched for real; a write for a card the server lacks (gone mid-switch) is refused.
TEST_P(PulseAudioHardwareTest, AVanishedCardRefusesItsProfileAndARecordingRunsOnTheDeviceItRecordsFrom) {
  test::CapturedLog log;
  auto hw = connect();
  EXPECT_TRUE(hw->cards().empty()) << "none is invented";
  PulseCardInfo card{998, "bluez_card.AA_BB_CC_DD_EE_FF", "WH-1000XM4", {{"device.api", "bluez5"}}, "a2dp-sink", {}};
  hw->applyCard(card);
  const AudioObjectID id = hw->cards().at(0).id;
  hw->removeCard(998);
  card.index = 999;  // back under another index
  hw->applyCard(card);
  ASSERT_EQ(hw->cards().at(0), (AudioCard{id, card.name, "WH-1000XM4", Transport::bluetooth, "a2dp-sink", {}}));
  Answer refused;
  hw->setCardProfile(id, "headset-head-unit", refused.keeper(*hw));
  ASSERT_TRUE(test::spinUntil([&] { return refused.came(); }));
  EXPECT_EQ(refused.answer, WriteAnswer::refuse("No such entity")) << "the server has no such card";
  EXPECT_TRUE(log->has("the sound server refused a change: No such entity"));
  const AudioObjectID headset = idOf(*hw, PulseRig::headphonesInput);
  test::ChildProcess recorder({"parecord", "-d", PulseRig::headphonesInput, "/dev/null"}, rig.clientEnvironment());
  EXPECT_TRUE(test::eventually([&] { return hw->deviceIsRunningSomewhere(headset) == true; }));
  recorder.terminate(SIGTERM);
  EXPECT_TRUE(test::eventually([&] { return hw->deviceIsRunningSomewhere(headset) == false; }));
}

// Only PipeWire's pulse server learns a client's sandbox from its socket.
class PipeWireSandboxTest : public PulseAudioHardwareTest {};

TEST_P(PipeWireSandboxTest, ASandboxedClientIsKnownByWhatTheServerSaysNotByWhatItSaysItself) {
  auto hw = connect();
  auto meeting = rig.sandboxedRecorder("us.zoom.Zoom", "application.process.id=4242 application.id=org.example.Fake");
  REQUIRE_RIG(meeting, "cannot make a sandbox here (unshare, mount and chroot)");
  const AudioObjectID object = processOf(*hw, [&](auto id) { return hw->processBundleID(id) == "us.zoom.Zoom"; });
  ASSERT_NE(object, audioObjectUnknown) << "attributed to its Flatpak application";
  EXPECT_EQ(hw->processPID(object), std::nullopt) << "its own pid counts inside the sandbox, not 4242";
  EXPECT_TRUE(test::eventually([&] { return hw->processIsRunningInput(object) == true; }));
}

TEST_P(PulseAudioHardwareTest, AServerThatFreezesDiesOrComesLateNeverHoldsAWriterAndIsPickedUpWithIDsAndListenersKept) {
  auto hw = connect();
  int outputCalls = 0;
  CA::Listener output(*hw, audioSystemObject, AudioProperty::defaultOutputDevice, [&] { ++outputCalls; });
  const auto before = AudioDevice::all(*hw);
  const AudioObjectID headphones = idOf(*hw, PulseRig::headphonesOutput);
  rig.signalDaemon(SIGSTOP);
  Answer lost;
  auto write = std::async(std::launch::async, [&] { DefaultDevice::set(*hw, Direction::output, headphones, lost.keeper(*hw)); });
  ASSERT_EQ(write.wait_for(20s), std::future_status::ready) << "a frozen server holds no writer";
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::output), headphones) << "reads follow the write at once";
  test::spinFor(200);
  EXPECT_FALSE(lost.came()) << "the server has not answered";
  rig.stop();
  ASSERT_TRUE(test::spinUntil([&] { return hw->devices().empty() && !hw->ready(); }));
  ASSERT_TRUE(test::spinUntil([&] { return lost.came(); }));
  EXPECT_EQ(lost.answer, WriteAnswer::refuse("the connection to the sound server ended"));
  Answer unsent;
  DefaultDevice::set(*hw, Direction::output, headphones, unsent.keeper(*hw));
  ASSERT_TRUE(test::spinUntil([&] { return unsent.came(); }));
  EXPECT_FALSE(unsent.answer->accepted) << "no server, no write";
  PulseAudioHardware late(runtime.main(), {.server = rig.server()});
  EXPECT_FALSE(late.waitUntilReady(10));
  EXPECT_EQ(late.lastError(), "Connection refused");

  ASSERT_TRUE(rig.start()) << rig.whyNot();
  ASSERT_TRUE(test::spinUntil([&] { return hw->ready() && AudioDevice::all(*hw).size() == before.size(); }, 20000));
  EXPECT_EQ(AudioDevice::all(*hw), before) << "the same devices under the same ids";
  EXPECT_TRUE(test::eventually([&] { return late.ready() && AudioDevice::all(late).size() == before.size(); }, 20s));
  const int calls = outputCalls;
  ASSERT_EQ(rig.pactl({"set-default-sink", PulseRig::headphonesOutput}).status, 0);
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls > calls; })) << "listeners outlive the restart";
}

INSTANTIATE_TEST_SUITE_P(Servers, PulseAudioHardwareTest, test::bothSoundServers(), test::soundServerTestName);
INSTANTIATE_TEST_SUITE_P(Servers, PipeWireSandboxTest, testing::Values(test::SoundServer::pipeWire),
                         test::soundServerTestName);

}  // namespace
}  // namespace wh::platform
