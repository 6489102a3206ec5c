// The input pinner on the virtual clock, over the in-memory audio port and process monitor.
#include <gtest/gtest.h>

#include <algorithm>

#include "AudioWorld.h"
#include "core/quality/InputPinner.h"
#include "doubles/MemoryStore.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

using Status = InputPinner::Status;
using Override = InputPinner::Override;

// The settings store with a fuse: every evaluation reads the settings, so a runaway loop of
// evaluations blows it, which switches pinning off and ends the loop. Such a fault then fails
// the test instead of hanging it.
class FusedStore final : public SettingsStore {
 public:
  static constexpr std::size_t fuse = 100'000;

  std::optional<StoreValue> object(const std::string& key) const override {
    if (++reads_ > fuse) blown = true;
    if (blown && key == Keys::pinInput) return StoreValue::boolean(false);
    return inner_.object(key);
  }
  void set(const std::string& key, std::optional<StoreValue> value) override { inner_.set(key, std::move(value)); }

  mutable bool blown = false;

 private:
  MemoryStore inner_;
  mutable std::size_t reads_ = 0;
};

// A laptop with its own microphone and speakers, a USB microphone, and headphones whose
// microphone and output are Bluetooth devices. The default input starts on the built-in one.
class InputPinnerTest : public testing::Test, protected test::AudioWorld {
 protected:
  static constexpr AudioObjectID builtInMic = 2;
  static constexpr AudioObjectID speakers = 3;
  static constexpr AudioObjectID usbMic = 4;
  static constexpr AudioObjectID budsMic = 11;
  static constexpr AudioObjectID budsOutput = 12;
  static constexpr const char* pinnedLine = "pinned input to Built-in Microphone (was Sleep Buds)";
  static constexpr const char* fightLine = "another app keeps switching the input; pinning paused";

  InputPinnerTest() {
    addDevice(builtInMic, "alsa_input.pci-0000_00_1f.3.analog-stereo", "Built-in Microphone", Transport::builtIn, true);
    addDevice(speakers, "alsa_output.pci-0000_00_1f.3.analog-stereo", "Built-in Speakers", Transport::builtIn, false);
    addDevice(usbMic, "alsa_input.usb-Blue_Yeti-00.analog-stereo", "Yeti", fourCharCode("usb "), true);
    addDevice(budsMic, "bluez_input.AA_BB_CC_DD_EE_FF.0", "Sleep Buds", Transport::bluetooth, true);
    addDevice(budsOutput, "bluez_output.AA_BB_CC_DD_EE_FF.1", "Sleep Buds", Transport::bluetooth, false);
    hw.defaults[AudioProperty::defaultInputDevice] = builtInMic;
    pinner.onChange = [this] { ++changes; };
  }
  ~InputPinnerTest() override {
    EXPECT_FALSE(store.blown) << "the pinner kept evaluating without end";
  }

  void addDevice(AudioObjectID id, const char* uid, const char* name, std::uint32_t transport, bool input) {
    MemoryAudioHardware::Device device;
    device.id = id;
    device.uid = uid;
    device.name = name;
    device.transport = transport;
    (input ? device.inputStreams : device.outputStreams) = 1;
    hw.deviceList.push_back(device);
  }
  void removeDevice(AudioObjectID id) {
    std::erase_if(hw.deviceList, [id](const auto& device) { return device.id == id; });
  }
  // Something outside the agent makes `id` the default input.
  void moveInputTo(std::optional<AudioObjectID> id) {
    hw.defaults[AudioProperty::defaultInputDevice] = id;
    hw.notify(audioSystemObject, AudioProperty::defaultInputDevice);
  }
  void devicesChanged() { hw.notify(audioSystemObject, AudioProperty::devices); }
  std::optional<AudioObjectID> input() { return hw.defaults[AudioProperty::defaultInputDevice]; }
  // The default-input writes so far.
  std::size_t inputWrites() const {
    return static_cast<std::size_t>(std::count_if(hw.writes.begin(), hw.writes.end(), [](const auto& write) {
      return write.first == AudioProperty::defaultInputDevice;
    }));
  }
  std::size_t logged(const std::string& line) const {
    return static_cast<std::size_t>(std::count(log->lines.begin(), log->lines.end(), line));
  }

  // An application starts or stops recording; the monitor reports the new list.
  void startCapture(AudioObjectID object, const std::string& bundleID) {
    hw.processList.push_back({object, static_cast<std::int32_t>(3000 + object), bundleID, true, false});
    monitor.refresh();
  }
  void stopCapture(AudioObjectID object) {
    std::erase_if(hw.processList, [object](const auto& process) { return process.id == object; });
    monitor.refresh();
  }
  // Another program that puts the input back on the headphones `times` times, `every` seconds apart.
  void keepSwitchingBack(int times, double every) {
    for (int i = 0; i < times; ++i) {
      rt.advance(every);
      moveInputTo(budsMic);
    }
  }
  std::string text() const { return describe(pinner.status()); }

  test::CapturedLog log;
  FusedStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  AudioProcessMonitor monitor{rt, hw, grouping};
  InputPinner pinner{rt, settings, hw, monitor};
  int changes = 0;
};

TEST_F(InputPinnerTest, ABluetoothDefaultInputIsMovedBackToTheMicrophoneAndTheStatusSaysPinned) {
  pinner.start();
  EXPECT_EQ(text(), "pinned:Built-in Microphone") << "held, with headphones present";
  EXPECT_EQ(inputWrites(), 0u);
  EXPECT_EQ(changes, 1);

  moveInputTo(budsMic);
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(inputWrites(), 1u);
  EXPECT_EQ(log->lines, std::vector<std::string>{pinnedLine});
  EXPECT_EQ(pinner.status(), Status::pinned("Built-in Microphone"));
  EXPECT_EQ(changes, 1) << "the same status again is no change";

  // Bluetooth LE microphones are headphone microphones too.
  addDevice(13, "bluez_input.11_22_33_44_55_66.0", "Loop Buds", Transport::bluetoothLE, true);
  rt.advance(1);
  moveInputTo(13);
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(log->lines.back(), "pinned input to Built-in Microphone (was Loop Buds)");

  // Other microphones are the user's business.
  moveInputTo(usbMic);
  EXPECT_EQ(input(), usbMic);
  EXPECT_EQ(text(), "idle");
  EXPECT_EQ(changes, 2);

  // Back on the built-in microphone: pinned while headphone microphones exist, idle once they go.
  moveInputTo(builtInMic);
  EXPECT_EQ(text(), "pinned:Built-in Microphone");
  removeDevice(budsMic);
  removeDevice(13);
  devicesChanged();
  EXPECT_EQ(text(), "idle");
  EXPECT_EQ(changes, 4);
  EXPECT_EQ(inputWrites(), 2u);
}

TEST_F(InputPinnerTest, ThePreferredInputIsUsedOnlyWhenItExistsHasInputAndIsNotBluetooth) {
  const auto preferred = [&](std::optional<StoreValue> value) {
    store.set(Keys::preferredInputUID, std::move(value));
    const auto microphone = pinner.preferredMicrophone();
    return microphone ? microphone->id : audioObjectUnknown;
  };
  EXPECT_EQ(preferred(std::nullopt), builtInMic);
  EXPECT_EQ(preferred(StoreValue::string("alsa_input.usb-Blue_Yeti-00.analog-stereo")), usbMic);
  EXPECT_EQ(preferred(StoreValue::string("bluez_input.AA_BB_CC_DD_EE_FF.0")), builtInMic) << "Bluetooth";
  EXPECT_EQ(preferred(StoreValue::string("alsa_input.usb-Gone-00.mono")), builtInMic) << "missing";
  EXPECT_EQ(preferred(StoreValue::string("alsa_output.pci-0000_00_1f.3.analog-stereo")), builtInMic) << "output only";
  EXPECT_EQ(preferred(StoreValue::string("")), builtInMic);
  EXPECT_EQ(preferred(StoreValue::boolean(true)), builtInMic) << "not a string";

  // Pinning goes to the preferred microphone.
  store.set(Keys::preferredInputUID, StoreValue::string("alsa_input.usb-Blue_Yeti-00.analog-stereo"));
  pinner.start();
  moveInputTo(budsMic);
  EXPECT_EQ(input(), usbMic);
  EXPECT_EQ(text(), "pinned:Yeti");
  EXPECT_EQ(log->lines.back(), "pinned input to Yeti (was Sleep Buds)");

  // Neither the preferred one nor a built-in microphone: nothing to pin to, nothing touched.
  removeDevice(usbMic);
  removeDevice(builtInMic);
  devicesChanged();
  EXPECT_FALSE(pinner.preferredMicrophone());
  rt.advance(1);
  moveInputTo(budsMic);
  EXPECT_EQ(text(), "noMicrophone");
  EXPECT_EQ(input(), budsMic);
  EXPECT_EQ(inputWrites(), 1u);
}

TEST_F(InputPinnerTest, RememberedHeadphonesDecideByTheFirstMatchingRecordsPinInputFlag) {
  const auto remember = [&](std::vector<std::pair<const char*, bool>> records) {
    std::vector<DeviceSetting> devices;
    for (const auto& [address, pin] : records) {
      DeviceSetting device;
      device.address = address;
      device.pinInput = pin;
      devices.push_back(device);
    }
    settings.setDevices(devices);
  };
  pinner.start();

  remember({{"11-22-33-44-55-66", false}, {"aa-bb-cc-dd-ee-ff", false}});
  moveInputTo(budsMic);
  EXPECT_EQ(input(), budsMic) << "these headphones may keep the input";
  EXPECT_EQ(text(), "idle");

  remember({{"11-22-33-44-55-66", false}, {"aa-bb-cc-dd-ee-ff", true}});
  pinner.settingsChanged();
  EXPECT_EQ(input(), builtInMic) << "a record for other headphones does not count";

  // Two records naming the same headphones: the first decides, whatever its spelling.
  remember({{"AA:BB:CC:DD:EE:FF", false}, {"aa-bb-cc-dd-ee-ff", true}});
  rt.advance(1);
  moveInputTo(budsMic);
  EXPECT_EQ(input(), budsMic);
}

TEST_F(InputPinnerTest, WithPinningOffNothingIsTouchedAndASettingsChangeReEvaluates) {
  store.set(Keys::pinInput, StoreValue::boolean(false));
  pinner.start();
  EXPECT_EQ(text(), "off");
  moveInputTo(budsMic);
  devicesChanged();
  rt.advance(10);
  EXPECT_EQ(input(), budsMic);
  EXPECT_EQ(inputWrites(), 0u);

  store.set(Keys::pinInput, StoreValue::string("false"));  // not a boolean: the default, on
  pinner.settingsChanged();
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(text(), "pinned:Built-in Microphone");

  settings.setCallMode(CallModeOption::alwaysHeadphoneMic);
  pinner.settingsChanged();
  EXPECT_EQ(text(), "releasedForCall");
}

TEST_F(InputPinnerTest, ACorrectionTooSoonAfterTheLastIsDeferredToAThirdOfASecondNeverDropped) {
  pinner.start();
  moveInputTo(budsMic);
  ASSERT_EQ(inputWrites(), 1u);

  rt.advance(0.1);
  moveInputTo(budsMic);
  EXPECT_EQ(inputWrites(), 1u);
  EXPECT_EQ(input(), budsMic);
  rt.advance(0.1);
  moveInputTo(budsMic);  // asks again: the retry stays due at 0.3 s
  devicesChanged();
  rt.advance(0.09);
  EXPECT_EQ(inputWrites(), 1u);
  rt.advance(0.01);
  EXPECT_EQ(inputWrites(), 2u);
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(logged(pinnedLine), 2u);

  rt.advance(10);
  EXPECT_EQ(inputWrites(), 2u) << "no retry left behind";
}

TEST_F(InputPinnerTest, ARetryWhoseMomentRoundsAHairShortOfTheSpacingStillCorrectsOnce) {
  // 0.37 + 0.1 + (0.3 - 0.1) falls one rounding step short of 0.37 + 0.3 in binary floating point.
  rt.advance(0.37);
  pinner.start();
  moveInputTo(budsMic);
  rt.advance(0.1);
  moveInputTo(budsMic);
  rt.advance(0.2);
  EXPECT_EQ(inputWrites(), 2u);
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(rt.nextDueIn(), -1.0);
}

TEST_F(InputPinnerTest, SixCorrectionsWithinTenSecondsPausePinningAndLogOnce) {
  pinner.start();
  keepSwitchingBack(5, 1.0);
  EXPECT_EQ(inputWrites(), 5u);
  EXPECT_FALSE(pinner.isFighting()) << "five corrections are no fight";
  EXPECT_EQ(text(), "pinned:Built-in Microphone");

  keepSwitchingBack(1, 1.0);
  EXPECT_EQ(inputWrites(), 5u) << "the sixth switch is not made";
  EXPECT_EQ(input(), budsMic);
  EXPECT_TRUE(pinner.isFighting());
  EXPECT_EQ(text(), "fighting");
  EXPECT_EQ(changes, 2);

  keepSwitchingBack(20, 1.0);
  EXPECT_EQ(inputWrites(), 5u);
  EXPECT_EQ(logged(fightLine), 1u);

  // The user puts the input back: fine, but the pause holds until the record is cleared.
  moveInputTo(builtInMic);
  EXPECT_EQ(text(), "pinned:Built-in Microphone");
  EXPECT_TRUE(pinner.isFighting());
  moveInputTo(budsMic);
  EXPECT_EQ(text(), "fighting");
  EXPECT_EQ(inputWrites(), 5u);

  pinner.clearFightRecord();
  EXPECT_FALSE(pinner.isFighting());
  EXPECT_TRUE(pinner.policy().corrections.empty());
  pinner.evaluate();
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(text(), "pinned:Built-in Microphone");
}

TEST_F(InputPinnerTest, OnlyCorrectionsOfTheLastTenSecondsCount) {
  PinPolicy policy;
  for (double at : {0.0, 2.0, 4.0, 6.0, 8.0}) EXPECT_FALSE(policy.record(at));
  PinPolicy edge = policy;
  EXPECT_TRUE(edge.record(10.0)) << "a correction exactly ten seconds old still counts";
  EXPECT_TRUE(edge.isFighting);
  EXPECT_FALSE(policy.record(10.01));
  EXPECT_EQ(policy.corrections, (std::vector<double>{2.0, 4.0, 6.0, 8.0, 10.01}));

  // Switched back every 2.5 seconds for a minute: never more than five in any ten seconds.
  pinner.start();
  keepSwitchingBack(24, 2.5);
  EXPECT_EQ(inputWrites(), 24u);
  EXPECT_FALSE(pinner.isFighting());
  EXPECT_EQ(logged(fightLine), 0u);
}

TEST_F(InputPinnerTest, ACallReleasesAtOnceAndThePinReturnsThreeSecondsAfterItEnds) {
  pinner.start();
  startCapture(40, "us.zoom.Zoom");
  EXPECT_TRUE(pinner.inCall());
  EXPECT_EQ(text(), "releasedForCall");
  EXPECT_EQ(changes, 2);
  moveInputTo(budsMic);
  EXPECT_EQ(input(), budsMic) << "the call may use the headphone microphone";

  stopCapture(40);
  rt.advance(2.99);
  EXPECT_TRUE(pinner.inCall());
  EXPECT_EQ(input(), budsMic);
  rt.advance(0.01);
  EXPECT_FALSE(pinner.inCall());
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(text(), "pinned:Built-in Microphone");
  EXPECT_EQ(inputWrites(), 1u);
}

TEST_F(InputPinnerTest, ACallStartingAgainWithinThreeSecondsKeepsTheReleaseAndOtherChangesKeepTheDeadline) {
  pinner.start();
  startCapture(40, "com.slack.Slack");
  moveInputTo(budsMic);
  stopCapture(40);
  rt.advance(2);
  startCapture(41, "com.slack.Slack");  // the next call in the same meeting series
  rt.advance(5);
  EXPECT_TRUE(pinner.inCall());
  EXPECT_EQ(text(), "releasedForCall");
  EXPECT_EQ(inputWrites(), 0u);

  // A call that ends pins 3 s later, however the process list changes meanwhile.
  stopCapture(41);
  rt.advance(1);
  hw.processList.push_back({50, 3050, std::string("org.gnome.Music"), false, true});
  monitor.refresh();
  rt.advance(1.99);
  EXPECT_EQ(inputWrites(), 0u);
  rt.advance(0.01);
  EXPECT_EQ(inputWrites(), 1u);
  EXPECT_FALSE(pinner.inCall());
}

TEST_F(InputPinnerTest, TheEndOfACallClearsAFight) {
  pinner.start();
  keepSwitchingBack(6, 0.5);
  ASSERT_TRUE(pinner.isFighting());

  startCapture(40, "com.discordapp.Discord");
  EXPECT_EQ(text(), "releasedForCall");
  EXPECT_TRUE(pinner.isFighting()) << "a call alone does not end the pause";
  stopCapture(40);
  rt.advance(3);
  EXPECT_FALSE(pinner.isFighting());
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(text(), "pinned:Built-in Microphone");
}

TEST_F(InputPinnerTest, CallModeAndOverrideDecideWhetherTheHeadphoneMicrophoneIsAllowed) {
  struct Case {
    CallModeOption mode;
    Override override;
    bool call;
    Status expected;
  };
  const Status pinned = Status::pinned("Built-in Microphone");
  const std::vector<Case> cases{
      {CallModeOption::automatic, Override::none, false, pinned},
      {CallModeOption::automatic, Override::none, true, Status::releasedForCall()},
      {CallModeOption::alwaysHeadphoneMic, Override::none, false, Status::releasedForCall()},
      {CallModeOption::alwaysPinned, Override::none, true, pinned},
      {CallModeOption::automatic, Override::forcePin, true, pinned},
      {CallModeOption::alwaysHeadphoneMic, Override::forcePin, true, pinned},
      {CallModeOption::alwaysPinned, Override::allowHeadphoneMic, false, Status::releasedManually()},
      {CallModeOption::alwaysHeadphoneMic, Override::allowHeadphoneMic, true, Status::releasedManually()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(rawValue(c.mode)) + " override " + std::to_string(static_cast<int>(c.override)) +
                 (c.call ? " in a call" : ""));
    settings.setCallMode(c.mode);
    hw.processList.clear();
    if (c.call) hw.processList.push_back({40, 3040, std::string("us.zoom.xos"), true, false});
    monitor.refresh();
    hw.defaults[AudioProperty::defaultInputDevice] = budsMic;
    const std::size_t before = inputWrites();

    InputPinner fresh{rt, settings, hw, monitor};
    fresh.setOverride(c.override);
    fresh.start();
    EXPECT_EQ(fresh.inCall(), c.call);
    EXPECT_EQ(describe(fresh.status()), describe(c.expected));
    EXPECT_EQ(inputWrites() - before, c.expected == pinned ? 1u : 0u);
  }
}

TEST_F(InputPinnerTest, TheMeetingAppsSettingDecidesWhatCountsAsACall) {
  pinner.start();
  store.set(Keys::meetingApps, StoreValue::stringArray({}));
  startCapture(40, "us.zoom.xos");
  EXPECT_FALSE(pinner.inCall()) << "an empty list: never a call";
  stopCapture(40);

  store.set(Keys::meetingApps, StoreValue::stringArray({"org.jitsi.jitsi-meet"}));
  startCapture(41, "org.jitsi.jitsi-meet");
  EXPECT_TRUE(pinner.inCall());
  stopCapture(41);
  rt.advance(3);

  store.set(Keys::meetingApps, StoreValue::string("org.jitsi.jitsi-meet"));  // wrong type: the built-in list
  startCapture(42, "org.jitsi.jitsi-meet");
  EXPECT_FALSE(pinner.inCall());
  startCapture(43, "zoom");
  EXPECT_TRUE(pinner.inCall());
}

TEST_F(InputPinnerTest, ACallGoingOnAtStartIsReleasedWithoutPinningFirst) {
  startCapture(40, "us.zoom.xos");
  hw.defaults[AudioProperty::defaultInputDevice] = budsMic;
  pinner.start();
  EXPECT_TRUE(pinner.inCall());
  EXPECT_EQ(text(), "releasedForCall");
  EXPECT_EQ(inputWrites(), 0u);

  stopCapture(40);
  rt.advance(3);
  EXPECT_EQ(input(), builtInMic);
}

TEST_F(InputPinnerTest, ADefaultInputThatVanishesWhileBeingCorrectedIsLeftAlone) {
  pinner.start();
  moveInputTo(budsMic);
  rt.advance(0.1);
  moveInputTo(budsMic);  // deferred to 0.3 s
  // The headphones disconnect before then: the server has no default input for a moment.
  removeDevice(budsMic);
  removeDevice(budsOutput);
  moveInputTo(std::nullopt);
  devicesChanged();
  rt.advance(1);
  EXPECT_EQ(inputWrites(), 1u);
  EXPECT_EQ(text(), "idle");

  // The default still names a device that is gone.
  moveInputTo(budsMic);
  EXPECT_EQ(inputWrites(), 1u);
  EXPECT_EQ(text(), "idle");

  // The microphone vanishes as it is being made the default: the write is refused. No log line,
  // the status stays, and the next device change corrects.
  addDevice(budsMic, "bluez_input.AA_BB_CC_DD_EE_FF.0", "Sleep Buds", Transport::bluetooth, true);
  hw.refuseWrites[AudioProperty::defaultInputDevice] = true;
  moveInputTo(budsMic);
  EXPECT_EQ(inputWrites(), 2u);
  EXPECT_EQ(input(), budsMic);
  EXPECT_EQ(logged(pinnedLine), 1u);
  EXPECT_EQ(text(), "idle");
  hw.refuseWrites[AudioProperty::defaultInputDevice] = false;
  rt.advance(1);
  devicesChanged();
  EXPECT_EQ(input(), builtInMic);
  EXPECT_EQ(logged(pinnedLine), 2u);
  EXPECT_EQ(text(), "pinned:Built-in Microphone");
}

TEST_F(InputPinnerTest, StartRegistersOnceAndAGonePinnerLeavesNothingBehind) {
  auto owned = std::make_unique<InputPinner>(rt, settings, hw, monitor);
  EXPECT_EQ(hw.listenerCount(), 0u);
  owned->start();
  owned->start();  // starting again replaces, never adds
  EXPECT_EQ(hw.listenerCount(audioSystemObject, AudioProperty::defaultInputDevice), 1u);
  EXPECT_EQ(hw.listenerCount(audioSystemObject, AudioProperty::devices), 1u);

  // A re-pin after a call and a deferred correction are waiting when the pinner goes.
  startCapture(40, "us.zoom.xos");
  stopCapture(40);
  owned->setOverride(Override::forcePin);
  moveInputTo(budsMic);
  rt.advance(0.1);
  moveInputTo(budsMic);
  const std::size_t writes = inputWrites();
  owned.reset();
  EXPECT_EQ(hw.listenerCount(audioSystemObject, AudioProperty::defaultInputDevice), 0u);
  EXPECT_EQ(hw.listenerCount(audioSystemObject, AudioProperty::devices), 0u);
  rt.advance(5);
  startCapture(41, "us.zoom.xos");
  moveInputTo(budsMic);
  EXPECT_EQ(inputWrites(), writes);
}

TEST(InputPinnerStatus, TheStatusKeyTexts) {
  EXPECT_EQ(describe(Status::pinned("Built-in Microphone")), "pinned:Built-in Microphone");
  EXPECT_EQ(describe(Status::off()), "off");
  EXPECT_EQ(describe(Status::idle()), "idle");
  EXPECT_EQ(describe(Status::releasedForCall()), "releasedForCall");
  EXPECT_EQ(describe(Status::releasedManually()), "releasedManually");
  EXPECT_EQ(describe(Status::noMicrophone()), "noMicrophone");
  EXPECT_EQ(describe(Status::fighting()), "fighting");
  EXPECT_NE(Status::pinned("A"), Status::pinned("B"));
}

}  // namespace
}  // namespace wh
