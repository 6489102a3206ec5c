// The PulseAudio adapter against a private PulseAudio daemon with a laptop's card and Bluetooth
// headphones, and real clients playing and recording on it.
#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <thread>

#include "QtLoop.h"
#include "core/audio/CoreAudio.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/runtime/QtRuntime.h"
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
    PulseAudioHardware::Options options;
    options.server = rig.server();
    options.operationTimeout = operationTimeout;
    auto hardware = std::make_unique<PulseAudioHardware>(runtime.main(), options);
    EXPECT_TRUE(hardware->waitUntilReady(10)) << hardware->lastError();
    return hardware;
  }

  static AudioDevice byUID(AudioHardware& hardware, const std::string& uid) {
    auto device = AudioDevice::byUID(hardware, uid);
    EXPECT_TRUE(device) << uid;
    return device.value_or(AudioDevice{});
  }

  // The process object of a pid, or 0.
  static AudioObjectID processOf(AudioHardware& hardware, pid_t pid) {
    for (auto id : hardware.processObjects()) {
      if (hardware.processPID(id) == pid) return id;
    }
    return audioObjectUnknown;
  }
  // The process object of a pid once the mirror has it, or 0.
  static AudioObjectID awaitProcess(AudioHardware& hardware, pid_t pid) {
    AudioObjectID object = audioObjectUnknown;
    test::eventually([&] { return (object = processOf(hardware, pid)) != audioObjectUnknown; });
    return object;
  }
};

TEST_P(PulseAudioHardwareTest, ListsSinksAndSourcesWithTransportDirectionRateAndName) {
  auto hw = connect();
  const auto all = AudioDevice::all(*hw);
  ASSERT_EQ(all.size(), 6u);
  for (const auto& device : all) EXPECT_EQ(device.uid.find(".monitor"), std::string::npos) << device.uid;
  EXPECT_EQ(all.front().uid, PulseRig::laptopSpeakers) << "sinks first, in the server's order";

  const auto speakers = byUID(*hw, PulseRig::laptopSpeakers);
  EXPECT_EQ(speakers.name, "Built-in Audio Analog Stereo");
  EXPECT_EQ(speakers.transport, Transport::builtIn);
  EXPECT_TRUE(speakers.hasOutput);
  EXPECT_FALSE(speakers.hasInput);
  EXPECT_EQ(hw->deviceNominalSampleRate(speakers.id), 48000.0);

  const auto microphone = byUID(*hw, PulseRig::laptopMicrophone);
  EXPECT_EQ(microphone.transport, Transport::builtIn);
  EXPECT_TRUE(microphone.hasInput);
  EXPECT_FALSE(microphone.hasOutput);

  const auto headphones = byUID(*hw, PulseRig::headphonesOutput);
  EXPECT_EQ(headphones.name, "WH-1000XM4");
  EXPECT_EQ(headphones.transport, Transport::bluetooth);
  EXPECT_EQ(hw->deviceNominalSampleRate(headphones.id), 44100.0);
  const auto headset = byUID(*hw, PulseRig::headphonesInput);
  EXPECT_EQ(headset.transport, Transport::bluetooth);
  EXPECT_TRUE(headset.hasInput);
  EXPECT_EQ(hw->deviceNominalSampleRate(headset.id), 16000.0);
  EXPECT_EQ(byUID(*hw, PulseRig::olderHeadphonesOutput).transport, Transport::bluetooth);
  EXPECT_EQ(byUID(*hw, PulseRig::virtualSink).transport, Transport::aggregate);

  EXPECT_EQ(AudioDevice::builtInMicrophone(*hw), microphone);
  EXPECT_EQ(AudioDevice::forHeadphones(*hw, PulseRig::headphonesAddress), headphones);
  EXPECT_EQ(AudioDevice::forHeadphones(*hw, "aa-bb-cc-dd-ee-ff"), headphones);
  EXPECT_EQ(AudioDevice::forHeadphones(*hw, PulseRig::olderHeadphonesAddress)->uid, PulseRig::olderHeadphonesOutput);
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::output), speakers.id);
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::input), microphone.id);
}

TEST_P(PulseAudioHardwareTest, DefaultsSetHereReachTheServerAndDefaultsSetElsewhereReachTheListeners) {
  auto hw = connect();
  int outputCalls = 0;
  int inputCalls = 0;
  CA::Listener output(*hw, audioSystemObject, AudioProperty::defaultOutputDevice, [&] { ++outputCalls; });
  CA::Listener input(*hw, audioSystemObject, AudioProperty::defaultInputDevice, [&] { ++inputCalls; });
  const auto headphones = byUID(*hw, PulseRig::headphonesOutput);
  const auto headset = byUID(*hw, PulseRig::headphonesInput);
  const auto speakers = byUID(*hw, PulseRig::laptopSpeakers);

  EXPECT_TRUE(DefaultDevice::set(*hw, Direction::output, headphones.id));
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::output), headphones.id) << "reads follow the write at once";
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::headphonesOutput);
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls >= 1; }));
  EXPECT_EQ(inputCalls, 0);

  EXPECT_TRUE(DefaultDevice::set(*hw, Direction::input, headset.id));
  EXPECT_EQ(rig.pactlLine({"get-default-source"}), PulseRig::headphonesInput);
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::headphonesOutput) << "input touches nothing else";
  EXPECT_TRUE(test::spinUntil([&] { return inputCalls >= 1; }));

  const int before = outputCalls;
  ASSERT_EQ(rig.pactl({"set-default-sink", PulseRig::laptopSpeakers}).status, 0);
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls > before; }));
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::output), speakers.id);

  EXPECT_FALSE(DefaultDevice::set(*hw, Direction::output, headset.id)) << "a source is no output";
  EXPECT_FALSE(DefaultDevice::set(*hw, Direction::output, 4242)) << "no such device";
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::laptopSpeakers);
}

TEST_P(PulseAudioHardwareTest, ADroppedListenerIsNotCalledEvenWithAReportOnItsWay) {
  auto hw = connect();
  int keptCalls = 0;
  int droppedCalls = 0;
  CA::Listener kept(*hw, audioSystemObject, AudioProperty::defaultOutputDevice, [&] { ++keptCalls; });
  auto dropped = std::make_unique<CA::Listener>(*hw, audioSystemObject, AudioProperty::defaultOutputDevice,
                                                [&] { ++droppedCalls; });
  const auto headphones = byUID(*hw, PulseRig::headphonesOutput);

  ASSERT_EQ(rig.pactl({"set-default-sink", PulseRig::headphonesOutput}).status, 0);
  ASSERT_TRUE(test::spinUntil([&] { return keptCalls == 1 && droppedCalls == 1; }));

  ASSERT_EQ(rig.pactl({"set-default-sink", PulseRig::laptopSpeakers}).status, 0);
  // Wait without running the main queue: the report is then queued but not delivered.
  ASSERT_TRUE(test::eventually([&] { return DefaultDevice::id(*hw, Direction::output) != headphones.id; }));
  dropped.reset();
  ASSERT_TRUE(test::spinUntil([&] { return keptCalls == 2; }));
  test::spinFor(200);
  EXPECT_EQ(droppedCalls, 1);
}

TEST_P(PulseAudioHardwareTest, ClientsAreProcessesWithPidBundleIDAndRunningState) {
  auto hw = connect();
  auto player = rig.play("application.id=org.example.Player application.name=Player");
  auto recorder = rig.record();
  auto meter = rig.client({"--peak"});
  auto paused = rig.client({"--corked"});
  auto anonymous = rig.play("application.process.id=unknown");
  ASSERT_TRUE(meter && paused);

  const AudioObjectID playerObject = awaitProcess(*hw, player->pid());
  ASSERT_NE(playerObject, 0u);
  EXPECT_EQ(hw->processBundleID(playerObject), "org.example.Player");
  EXPECT_TRUE(test::eventually([&] { return hw->processIsRunningOutput(playerObject) == true; }));
  EXPECT_EQ(hw->processIsRunningInput(playerObject), false);

  const AudioObjectID recorderObject = awaitProcess(*hw, recorder->pid());
  ASSERT_NE(recorderObject, 0u);
  EXPECT_FALSE(hw->processBundleID(recorderObject));
  EXPECT_TRUE(test::eventually([&] { return hw->processIsRunningInput(recorderObject) == true; }));
  EXPECT_EQ(hw->processIsRunningOutput(recorderObject), false);

  const AudioObjectID meterObject = awaitProcess(*hw, meter->pid());
  ASSERT_NE(meterObject, 0u);
  EXPECT_EQ(hw->processIsRunningInput(meterObject), false) << "a level meter does not count as input";

  const AudioObjectID pausedObject = awaitProcess(*hw, paused->pid());
  ASSERT_NE(pausedObject, 0u);
  EXPECT_EQ(hw->processIsRunningOutput(pausedObject), false);
  int runningCalls = 0;
  CA::Listener running(*hw, pausedObject, AudioProperty::processIsRunningOutput, [&] { ++runningCalls; });
  paused->terminate(SIGUSR2);
  ASSERT_TRUE(paused->waitForOutput("uncorked\n", 10s));
  EXPECT_TRUE(test::spinUntil([&] { return runningCalls >= 1; }));
  EXPECT_EQ(hw->processIsRunningOutput(pausedObject), true);

  // A client whose pid property is not a number is listed without a pid.
  EXPECT_TRUE(test::eventually([&] { return hw->processObjects().size() == 5; })) << hw->processObjects().size();
  int withoutPid = 0;
  for (auto id : hw->processObjects()) withoutPid += hw->processPID(id).has_value() ? 0 : 1;
  EXPECT_EQ(withoutPid, 1);

  int listCalls = 0;
  CA::Listener list(*hw, audioSystemObject, AudioProperty::processObjectList, [&] { ++listCalls; });
  const pid_t playerPid = player->pid();
  player.reset();
  // Its stream goes first, then the client itself.
  EXPECT_TRUE(test::spinUntil([&] { return listCalls >= 1 && !hw->processPID(playerObject); }));
  EXPECT_EQ(processOf(*hw, playerPid), 0u);
  EXPECT_EQ(hw->processIsRunningOutput(playerObject), std::nullopt) << "a process that has gone reads as nothing";
  EXPECT_EQ(hw->processObjects().size(), 4u);
}

TEST_P(PulseAudioHardwareTest, ASandboxedClientIsKnownByWhatTheServerSaysNotByWhatItSaysItself) {
  if (GetParam() != test::SoundServer::pipeWire) GTEST_SKIP() << "only PipeWire knows sandboxes";
  auto hw = connect();
  auto meeting = rig.sandboxedRecorder("us.zoom.Zoom", "application.process.id=4242 application.id=org.example.Fake");
  if (!meeting) GTEST_SKIP() << "cannot make a sandbox here (unshare, mount and chroot)";
  AudioObjectID object = audioObjectUnknown;
  ASSERT_TRUE(test::eventually([&] {
    for (auto id : hw->processObjects()) {
      if (hw->processBundleID(id) == "us.zoom.Zoom") object = id;
    }
    return object != audioObjectUnknown;
  })) << "attributed to its Flatpak application";
  EXPECT_EQ(hw->processPID(object), std::nullopt) << "its own pid counts inside the sandbox";
  EXPECT_TRUE(test::eventually([&] { return hw->processIsRunningInput(object) == true; }));
  EXPECT_EQ(processOf(*hw, 4242), 0u);
}

TEST_P(PulseAudioHardwareTest, ShortLivedClientsThatVanishWhileBeingReadLeaveAnAccurateMirror) {
  auto hw = connect();
  std::vector<std::unique_ptr<test::ChildProcess>> players;
  for (int i = 0; i < 8; ++i) players.push_back(rig.playShort(0.05));
  // Read everything over and over while the clients come and go.
  std::size_t seen = 0;
  const auto allGone = [&] {
    for (auto& p : players) {
      if (p->running()) return false;
    }
    return true;
  };
  while (!allGone()) {
    for (auto id : hw->processObjects()) {
      ++seen;
      (void)hw->processPID(id);
      (void)hw->processIsRunningOutput(id);
    }
  }
  for (auto& p : players) EXPECT_EQ(p->waitFor(10s), 0);
  EXPECT_TRUE(test::eventually([&] { return hw->processObjects().empty(); }));
  EXPECT_GT(seen, 0u) << "the clients were seen while they played";
  EXPECT_EQ(rig.pactlLine({"list", "short", "sink-inputs"}), "");
}

TEST_P(PulseAudioHardwareTest, SurvivesADaemonRestartWithItsListenersAndDeviceIDs) {
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

  ASSERT_TRUE(rig.start()) << rig.whyNot();
  ASSERT_TRUE(test::spinUntil([&] { return hw->ready() && AudioDevice::all(*hw).size() == before.size(); }, 20000));
  EXPECT_EQ(AudioDevice::all(*hw), before) << "the same devices under the same ids";

  const int calls = outputCalls;
  ASSERT_EQ(rig.pactl({"set-default-sink", PulseRig::headphonesOutput}).status, 0);
  EXPECT_TRUE(test::spinUntil([&] { return outputCalls > calls; })) << "listeners outlive the restart";
  EXPECT_EQ(DefaultDevice::id(*hw, Direction::output), byUID(*hw, PulseRig::headphonesOutput).id);
  EXPECT_TRUE(DefaultDevice::set(*hw, Direction::output, byUID(*hw, PulseRig::laptopSpeakers).id));
  EXPECT_EQ(rig.pactlLine({"get-default-sink"}), PulseRig::laptopSpeakers);
}

TEST_P(PulseAudioHardwareTest, ARefusedConnectionFailsSoftAndTheServerIsPickedUpWhenItComes) {
  rig.stop();
  PulseAudioHardware::Options options;
  options.server = rig.server();
  PulseAudioHardware hw(runtime.main(), options);
  EXPECT_FALSE(hw.waitUntilReady(10));
  EXPECT_EQ(hw.lastError(), "Connection refused");
  EXPECT_TRUE(AudioDevice::all(hw).empty());
  EXPECT_FALSE(DefaultDevice::id(hw, Direction::input));
  EXPECT_FALSE(DefaultDevice::set(hw, Direction::output, 2));
  EXPECT_TRUE(hw.processObjects().empty());

  ASSERT_TRUE(rig.start()) << rig.whyNot();
  EXPECT_TRUE(test::eventually([&] { return hw.ready() && AudioDevice::all(hw).size() == 6; }, 20s));
}

TEST_P(PulseAudioHardwareTest, AWriteToAFrozenServerTimesOutAndOneToADyingServerFails) {
  auto hw = connect(0.3);
  const auto headphones = byUID(*hw, PulseRig::headphonesOutput);
  rig.signalDaemon(SIGSTOP);
  EXPECT_FALSE(DefaultDevice::set(*hw, Direction::output, headphones.id)) << "no answer within the time limit";
  rig.signalDaemon(SIGCONT);
  EXPECT_TRUE(test::eventually([&] { return DefaultDevice::set(*hw, Direction::output, headphones.id); }));

  // A write waiting for a server that dies ends when the connection does.
  auto patient = connect(60);
  rig.signalDaemon(SIGSTOP);
  auto write = std::async(std::launch::async, [&] {
    return DefaultDevice::set(*patient, Direction::output, byUID(*patient, PulseRig::laptopSpeakers).id);
  });
  std::this_thread::sleep_for(100ms);
  rig.stop(true);
  ASSERT_EQ(write.wait_for(20s), std::future_status::ready);
  EXPECT_FALSE(write.get());
}

INSTANTIATE_TEST_SUITE_P(Servers, PulseAudioHardwareTest, test::bothSoundServers(), test::soundServerTestName);

}  // namespace
}  // namespace wh::platform
