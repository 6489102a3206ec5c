// The sound server adapter, and the audio process monitor over it, against private PulseAudio and
// PipeWire servers with a laptop's card and Bluetooth headphones, and real clients on them.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <future>
#include <thread>

#include "QtLoop.h"
#include "core/audio/AudioProcesses.h"
#include "core/audio/CoreAudio.h"
#include "platform/linux/audio/ProcFsProcessTable.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/audio/XdgDesktopEntries.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "support/CapturedLog.h"
#include "support/PulseRig.h"

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
    if (!rig.available()) GTEST_SKIP() << rig.whyNot();
  }
  std::unique_ptr<PulseAudioHardware> connect(double operationTimeout = 2.0) {
    auto hardware = std::make_unique<PulseAudioHardware>(
        runtime.main(), PulseAudioHardware::Options{.server = rig.server(), .operationTimeout = operationTimeout});
    EXPECT_TRUE(hardware->waitUntilReady(10)) << hardware->lastError();
    return hardware;
  }
  static AudioObjectID idOf(AudioHardware& hardware, const std::string& uid) {
    const auto device = AudioDevice::byUID(hardware, uid);
    return device ? device->id : audioObjectUnknown;
  }
  // The process object of a pid once the adapter has it, or 0.
  static AudioObjectID processOf(AudioHardware& hardware, pid_t pid, std::chrono::milliseconds wait = 10s) {
    AudioObjectID found = audioObjectUnknown;
    test::eventually([&] {
      for (auto id : hardware.processObjects()) found = hardware.processPID(id) == pid ? id : found;
      return found != audioObjectUnknown;
    }, wait);
    return found;
  }
};

TEST_P(PulseAudioHardwareTest, DevicesAreTheSinksAndSourcesWithTheirTransportDirectionRateAndName) {
  auto hw = connect();
  const std::map<std::string, std::uint32_t> transports = {
      {PulseRig::laptopSpeakers, Transport::builtIn},      {PulseRig::laptopMicrophone, Transport::builtIn},
      {PulseRig::headphonesOutput, Transport::bluetooth},  {PulseRig::headphonesInput, Transport::bluetooth},
      {PulseRig::olderHeadphonesOutput, Transport::bluetooth}, {PulseRig::virtualSink, Transport::aggregate}};
  const auto all = AudioDevice::all(*hw);
  ASSERT_EQ(all.size(), transports.size()) << "monitor sources are no devices";
  EXPECT_EQ(all.front().uid, PulseRig::laptopSpeakers) << "sinks first, in the server's order";
  for (const auto& device : PulseRig::laptopWithHeadphones()) {
    const auto found = AudioDevice::byUID(*hw, device.name);
    ASSERT_TRUE(found) << device.name;
    EXPECT_EQ(found->name, device.description);
    EXPECT_EQ(found->transport, transports.at(device.name)) << device.name;
    EXPECT_EQ(found->hasOutput, device.sink);
    EXPECT_EQ(found->hasInput, !device.sink);
    EXPECT_EQ(hw->deviceNominalSampleRate(found->id), device.rate) << device.name;
  }
  EXPECT_EQ(AudioDevice::builtInMicrophone(*hw)->uid, PulseRig::laptopMicrophone);
  EXPECT_EQ(AudioDevice::forHeadphones(*hw, "aa-bb-cc-dd-ee-ff")->uid, PulseRig::headphonesOutput);
  EXPECT_EQ(AudioDevice::forHeadphones(*hw, PulseRig::olderHeadphonesAddress)->uid, PulseRig::olderHeadphonesOutput);
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::output), idOf(*hw, PulseRig::laptopSpeakers));
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::input), idOf(*hw, PulseRig::laptopMicrophone));
}

TEST_P(PulseAudioHardwareTest, DefaultsSetHereReachTheServerAndThoseSetElsewhereReachTheListeners) {
  auto hw = connect();
  int outputCalls = 0;
  int inputCalls = 0;
  int droppedCalls = 0;
  CA::Listener output(*hw, audioSystemObject, AudioProperty::defaultOutputDevice, [&] { ++outputCalls; });
  CA::Listener input(*hw, audioSystemObject, AudioProperty::defaultInputDevice, [&] { ++inputCalls; });
  auto dropped = std::make_unique<CA::Listener>(*hw, audioSystemObject, AudioProperty::defaultOutputDevice,
                                                [&] { ++droppedCalls; });
  const AudioObjectID headphones = idOf(*hw, PulseRig::headphonesOutput);

  EXPECT_TRUE(DefaultDevice::set(*hw, Direction::output, headphones));
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::output), headphones) << "reads follow the write at once";
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::headphonesOutput);
  EXPECT_TRUE(DefaultDevice::set(*hw, Direction::input, idOf(*hw, PulseRig::headphonesInput)));
  EXPECT_EQ(rig.pactlLine({"get-default-source"}), PulseRig::headphonesInput);
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls == 1 && inputCalls == 1 && droppedCalls == 1; }));

  ASSERT_EQ(rig.pactl({"set-default-sink", PulseRig::laptopSpeakers}).status, 0);
  // Waits without running the main queue: the report is queued, not delivered, when it is dropped.
  ASSERT_TRUE(test::eventually([&] { return DefaultDevice::id(*hw, Direction::output) != headphones; }));
  dropped.reset();
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls == 2; }));
  test::spinFor(200);
  EXPECT_EQ(droppedCalls, 1);
  EXPECT_EQ(inputCalls, 1) << "output touches nothing else";
  EXPECT_FALSE(DefaultDevice::set(*hw, Direction::output, idOf(*hw, PulseRig::headphonesInput))) << "not an output";
  EXPECT_FALSE(DefaultDevice::set(*hw, Direction::output, 4242)) << "no such device";
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::laptopSpeakers);
}

TEST_P(PulseAudioHardwareTest, ClientsAreProcessesWithPidBundleIDAndRunningState) {
  auto hw = connect();
  auto player = rig.play("application.id=org.example.Player");
  auto recorder = rig.record();
  auto meter = rig.client({"--peak"});
  auto paused = rig.client({"--corked"});
  auto anonymous = rig.play("application.process.id=unknown");
  ASSERT_TRUE(meter && paused);
  const AudioObjectID playing = processOf(*hw, player->pid());
  const AudioObjectID recording = processOf(*hw, recorder->pid());
  const AudioObjectID metering = processOf(*hw, meter->pid());
  const AudioObjectID pausing = processOf(*hw, paused->pid());
  ASSERT_TRUE(playing && recording && metering && pausing);
  EXPECT_EQ(hw->processBundleID(playing), "org.example.Player");
  EXPECT_FALSE(hw->processBundleID(recording));
  EXPECT_TRUE(test::eventually([&] { return hw->processIsRunningOutput(playing) && hw->processIsRunningInput(recording); }));
  EXPECT_EQ(hw->processIsRunningInput(playing), false);
  EXPECT_EQ(hw->processIsRunningOutput(recording), false);
  EXPECT_EQ(hw->processIsRunningInput(metering), false) << "a level meter is not input";
  EXPECT_EQ(hw->processIsRunningOutput(pausing), false);

  int runningCalls = 0;
  CA::Listener running(*hw, pausing, AudioProperty::processIsRunningOutput, [&] { ++runningCalls; });
  paused->terminate(SIGUSR2);
  ASSERT_TRUE(paused->waitForOutput("uncorked\n", 10s));
  EXPECT_TRUE(test::spinUntil([&] { return runningCalls == 1 && hw->processIsRunningOutput(pausing) == true; }));

  // A client whose pid property is no number is listed without one.
  EXPECT_TRUE(test::eventually([&] { return hw->processObjects().size() == 5; })) << hw->processObjects().size();
  const auto ids = hw->processObjects();
  EXPECT_EQ(std::count_if(ids.begin(), ids.end(), [&](auto id) { return !hw->processPID(id); }), 1);

  int listCalls = 0;
  CA::Listener list(*hw, audioSystemObject, AudioProperty::processObjectList, [&] { ++listCalls; });
  player.reset();
  EXPECT_TRUE(test::spinUntil([&] { return listCalls >= 1 && !hw->processPID(playing); }));
  EXPECT_EQ(hw->processIsRunningOutput(playing), std::nullopt) << "a process that has gone reads as nothing";
  EXPECT_EQ(hw->processObjects().size(), 4u);
}

TEST_P(PulseAudioHardwareTest, ASandboxedClientIsKnownByWhatTheServerSaysNotByWhatItSaysItself) {
  if (GetParam() != test::SoundServer::pipeWire) GTEST_SKIP() << "only PipeWire knows sandboxes";
  auto hw = connect();
  auto meeting = rig.sandboxedRecorder("us.zoom.Zoom", "application.process.id=4242 application.id=org.example.Fake");
  if (!meeting) GTEST_SKIP() << "cannot make a sandbox here (unshare, mount and chroot)";
  AudioObjectID object = audioObjectUnknown;
  ASSERT_TRUE(test::eventually([&] {
    for (auto id : hw->processObjects()) object = hw->processBundleID(id) == "us.zoom.Zoom" ? id : object;
    return object != audioObjectUnknown;
  })) << "attributed to its Flatpak application";
  EXPECT_EQ(hw->processPID(object), std::nullopt) << "its own pid counts inside the sandbox";
  EXPECT_TRUE(test::eventually([&] { return hw->processIsRunningInput(object) == true; }));
  EXPECT_EQ(processOf(*hw, 4242, 0ms), 0u);
}

TEST_P(PulseAudioHardwareTest, ShortLivedClientsThatVanishWhileBeingReadLeaveAnAccurateMirror) {
  auto hw = connect();
  std::vector<std::unique_ptr<test::ChildProcess>> players;
  for (int i = 0; i < 8; ++i) players.push_back(rig.client({"--for", "0.3"}));
  std::size_t seen = 0;
  while (std::any_of(players.begin(), players.end(), [](auto& p) { return p && p->running(); })) {
    for (auto id : hw->processObjects()) seen += hw->processPID(id) && hw->processIsRunningOutput(id) ? 1 : 0;
  }
  for (auto& p : players) EXPECT_TRUE(p && p->waitFor(10s) == 0);
  EXPECT_GT(seen, 0u) << "read while they played";
  EXPECT_TRUE(test::eventually([&] { return hw->processObjects().empty(); }));
  EXPECT_EQ(rig.pactlLine({"list", "short", "sink-inputs"}), "");
}

TEST_P(PulseAudioHardwareTest, AServerThatRestartsOrComesLateIsPickedUpWithListenersAndDeviceIDsKept) {
  auto hw = connect();
  int deviceCalls = 0;
  int outputCalls = 0;
  CA::Listener devices(*hw, audioSystemObject, AudioProperty::devices, [&] { ++deviceCalls; });
  CA::Listener output(*hw, audioSystemObject, AudioProperty::defaultOutputDevice, [&] { ++outputCalls; });
  const auto before = AudioDevice::all(*hw);
  rig.stop(true);
  ASSERT_TRUE(test::spinUntil([&] { return hw->devices().empty() && deviceCalls >= 1; }));
  EXPECT_FALSE(hw->ready());
  EXPECT_FALSE(DefaultDevice::id(*hw, Direction::output));
  EXPECT_FALSE(DefaultDevice::set(*hw, Direction::output, before.front().id)) << "no server, no write";

  PulseAudioHardware late(runtime.main(), {.server = rig.server()});
  EXPECT_FALSE(late.waitUntilReady(10));
  EXPECT_EQ(late.lastError(), "Connection refused");
  EXPECT_TRUE(late.processObjects().empty());

  ASSERT_TRUE(rig.start()) << rig.whyNot();
  ASSERT_TRUE(test::spinUntil([&] { return hw->ready() && AudioDevice::all(*hw).size() == before.size(); }, 20000));
  EXPECT_EQ(AudioDevice::all(*hw), before) << "the same devices under the same ids";
  EXPECT_TRUE(test::eventually([&] { return late.ready() && AudioDevice::all(late).size() == before.size(); }, 20s));
  const int calls = outputCalls;
  ASSERT_EQ(rig.pactl({"set-default-sink", PulseRig::headphonesOutput}).status, 0);
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls > calls; })) << "listeners outlive the restart";
  EXPECT_TRUE(DefaultDevice::set(*hw, Direction::output, idOf(*hw, PulseRig::laptopSpeakers)));
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::laptopSpeakers);
}

TEST_P(PulseAudioHardwareTest, AWriteToAFrozenServerTimesOutAndOneToADyingServerFails) {
  auto hw = connect(0.3);
  auto patient = connect(60);
  const AudioObjectID headphones = idOf(*hw, PulseRig::headphonesOutput);
  rig.signalDaemon(SIGSTOP);
  EXPECT_FALSE(DefaultDevice::set(*hw, Direction::output, headphones)) << "no answer within the time limit";
  rig.signalDaemon(SIGCONT);
  EXPECT_TRUE(test::eventually([&] { return DefaultDevice::set(*hw, Direction::output, headphones); }));
  rig.signalDaemon(SIGSTOP);
  auto write = std::async(std::launch::async, [&] { return DefaultDevice::set(*patient, Direction::output, headphones); });
  std::this_thread::sleep_for(100ms);
  rig.stop(true);  // a write waiting for a server that dies ends with the connection
  ASSERT_EQ(write.wait_for(20s), std::future_status::ready);
  EXPECT_FALSE(write.get());
}

// The audio process monitor over the adapter, the real /proc and a desktop entry file.
TEST_P(PulseAudioHardwareTest, TheMonitorListsAPlayingClientAsItsApplicationAndLogsItsPauseAndResume) {
  test::TempDir data{"wrenhaven-xdg"};
  test::CapturedLog log;
  const auto logged = [&](const std::string& line) {
    return std::find(log->lines.begin(), log->lines.end(), line) != log->lines.end();
  };
  const auto folder = data.path() / "applications";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "org.example.Player.desktop") << "[Desktop Entry]\nType=Application\nExec=pulse_client\n";
  auto hardware = connect();
  ProcFsProcessTable table;
  XdgDesktopEntries entries({folder});
  AppGrouping grouping(table, entries);
  AudioProcessMonitor monitor(runtime, *hardware, grouping);
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

INSTANTIATE_TEST_SUITE_P(Servers, PulseAudioHardwareTest, test::bothSoundServers(), test::soundServerTestName);

}  // namespace
}  // namespace wh::platform
