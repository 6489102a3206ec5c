// The audio device layer over the in-memory audio port.
#include <gtest/gtest.h>

#include "core/audio/CoreAudio.h"
#include "doubles/MemoryAudioHardware.h"

namespace wh {
namespace {

using Device = MemoryAudioHardware::Device;

Device device(AudioObjectID id, std::string uid, std::string name, std::uint32_t transport, std::uint32_t in,
              std::uint32_t out) {
  return {id, std::move(uid), std::move(name), transport, in, out, 48000.0};
}

TEST(AudioDevice, FourCharacterCodesAreBigEndian) {
  EXPECT_EQ(fourCharCode("blue"), 0x626c7565u);
  EXPECT_EQ(Transport::builtIn, 0x626c746eu);
}

TEST(AudioDevice, RecordsFollowTheReadRulesInListOrder) {
  MemoryAudioHardware hw;
  hw.deviceList = {
      device(7, "speakers", "Speakers", Transport::builtIn, 0, 2),
      {8, std::nullopt, std::string("Gone"), Transport::builtIn, 1, 1, 48000.0},          // uid unreadable: skipped
      {9, std::string("mic-uid"), std::nullopt, std::nullopt, 1, std::nullopt, std::nullopt},  // name and transport unreadable
      {3, std::string("zero"), std::string("Zero"), Transport::aggregate, 0, 0, 44100.0},
  };
  const auto all = AudioDevice::all(hw);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0], (AudioDevice{7, "speakers", "Speakers", Transport::builtIn, false, true}));
  EXPECT_EQ(all[1], (AudioDevice{9, "mic-uid", "mic-uid", 0, true, false})) << "name falls back to the uid";
  EXPECT_EQ(all[2], (AudioDevice{3, "zero", "Zero", Transport::aggregate, false, false}));
  EXPECT_FALSE(AudioDevice::read(hw, 8).has_value());
  EXPECT_FALSE(AudioDevice::read(hw, 99).has_value()) << "a device that went away reads as nothing";
}

TEST(AudioDevice, ByUIDIsExactAndBuiltInMicrophoneNeedsBothTransportAndInput) {
  MemoryAudioHardware hw;
  hw.deviceList = {
      device(2, "bt-mic", "Headset", Transport::bluetooth, 1, 1),
      device(3, "speakers", "Speakers", Transport::builtIn, 0, 2),
      device(4, "Mic", "Microphone", Transport::builtIn, 1, 0),
      device(5, "mic", "Second Microphone", Transport::builtIn, 1, 0),
  };
  EXPECT_EQ(AudioDevice::byUID(hw, "mic")->id, 5u);
  EXPECT_EQ(AudioDevice::byUID(hw, "Mic")->id, 4u);
  EXPECT_FALSE(AudioDevice::byUID(hw, "MIC"));
  EXPECT_EQ(AudioDevice::builtInMicrophone(hw)->id, 4u);
  hw.deviceList.erase(hw.deviceList.begin() + 2, hw.deviceList.end());
  EXPECT_FALSE(AudioDevice::builtInMicrophone(hw));
}

TEST(AudioDevice, HeadphonesMatchBothBluezNodeFormsIgnoringCaseAndSeparators) {
  MemoryAudioHardware hw;
  hw.deviceList = {
      device(2, "bluez_input.AA_BB_CC_DD_EE_FF.0", "Headset Mic", Transport::bluetooth, 1, 0),
      device(3, "alsa_output.pci-0000_00_1f.3.analog-stereo", "Speakers", Transport::builtIn, 0, 2),
      device(4, "bluez_output.AA_BB_CC_DD_EE_FF.1", "WH-1000XM4", Transport::bluetooth, 0, 2),
      device(5, "bluez_sink.11_22_33_44_55_66.a2dp_sink", "Buds", Transport::bluetooth, 0, 2),
      device(6, "bluez_output.AA_BB_CC_DD_EE_FF.2", "WH-1000XM4 (second node)", Transport::bluetooth, 0, 2),
  };
  EXPECT_EQ(AudioDevice::forHeadphones(hw, "AA:BB:CC:DD:EE:FF")->id, 4u) << "input-only device skipped, first wins";
  EXPECT_EQ(AudioDevice::forHeadphones(hw, "aa-bb-cc-dd-ee-ff")->id, 4u);
  EXPECT_EQ(AudioDevice::forHeadphones(hw, "11:22:33:44:55:66")->id, 5u);
  EXPECT_FALSE(AudioDevice::forHeadphones(hw, "AA:BB:CC:DD:EE:00"));
  EXPECT_FALSE(AudioDevice::forHeadphones(hw, ""));

  EXPECT_TRUE(AudioDevice::uidNamesAddress("AA-BB-CC-DD-EE-FF:output", "aa:bb:cc:dd:ee:ff"));
  EXPECT_FALSE(AudioDevice::uidNamesAddress("bluez_output.AABBCCDDEEFF.1", "AA:BB:CC:DD:EE:FF"));
}

TEST(DefaultDevice, ReadsAnswerNothingForUnknownOrUnreadable) {
  MemoryAudioHardware hw;
  EXPECT_FALSE(DefaultDevice::id(hw, Direction::output)) << "unreadable";
  hw.defaults[AudioProperty::defaultOutputDevice] = audioObjectUnknown;
  EXPECT_FALSE(DefaultDevice::id(hw, Direction::output)) << "0 is no device";
  hw.defaults[AudioProperty::defaultOutputDevice] = 4;
  hw.defaults[AudioProperty::defaultInputDevice] = 9;
  EXPECT_EQ(DefaultDevice::id(hw, Direction::output), 4u);
  EXPECT_EQ(DefaultDevice::id(hw, Direction::input), 9u);
}

TEST(DefaultDevice, OutputAlsoMovesAlertSoundsAndOnlyTheFirstWriteDecides) {
  MemoryAudioHardware hw;
  EXPECT_TRUE(DefaultDevice::set(hw, Direction::output, 4));
  EXPECT_TRUE(DefaultDevice::set(hw, Direction::input, 9));
  using W = std::pair<AudioProperty, AudioObjectID>;
  EXPECT_EQ(hw.writes, (std::vector<W>{{AudioProperty::defaultOutputDevice, 4},
                                      {AudioProperty::defaultSystemOutputDevice, 4},
                                      {AudioProperty::defaultInputDevice, 9}}));

  hw.writes.clear();
  hw.refuseWrites[AudioProperty::defaultSystemOutputDevice] = true;
  EXPECT_TRUE(DefaultDevice::set(hw, Direction::output, 5)) << "the alert output's refusal does not count";
  hw.refuseWrites[AudioProperty::defaultOutputDevice] = true;
  hw.refuseWrites[AudioProperty::defaultSystemOutputDevice] = false;
  EXPECT_FALSE(DefaultDevice::set(hw, Direction::output, 6));
  EXPECT_EQ(hw.writes.size(), 4u) << "the alert output is written even when the first write fails";
}

TEST(CAListener, RegistersForItsLifetimeAndDroppingItStopsCallbacks) {
  MemoryAudioHardware hw;
  int calls = 0;
  auto listener = std::make_unique<CA::Listener>(hw, audioSystemObject, AudioProperty::defaultOutputDevice,
                                                 [&] { ++calls; });
  EXPECT_TRUE(listener->registered());
  EXPECT_EQ(listener->object(), audioSystemObject);
  EXPECT_EQ(listener->address(), AudioProperty::defaultOutputDevice);
  hw.notify(audioSystemObject, AudioProperty::defaultInputDevice);
  hw.notify(audioSystemObject, AudioProperty::defaultOutputDevice);
  EXPECT_EQ(calls, 1) << "only its own property";
  listener.reset();
  EXPECT_EQ(hw.listenerCount(), 0u);
  hw.notify(audioSystemObject, AudioProperty::defaultOutputDevice);
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace wh
