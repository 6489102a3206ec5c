// The audio device layer over the in-memory audio port.
#include <gtest/gtest.h>

#include "AudioWorld.h"
#include "core/audio/CoreAudio.h"

namespace wh {
namespace {

class CoreAudioTest : public testing::Test, protected test::AudioWorld {};

TEST_F(CoreAudioTest, DevicesAreReadWithTheirFallbacksAndFoundByExactUidBuiltInInputOrHeadphonesAddress) {
  addDevice(7, "speakers", "Speakers", Transport::builtIn, 0, 2);
  hw.deviceList.push_back({8, std::nullopt, std::string("No uid"), Transport::builtIn, 1, 1, {}});
  hw.deviceList.push_back({9, std::string("Mic"), std::nullopt, std::nullopt, 1, std::nullopt, {}});
  addDevice(10, "mic", "Microphone", Transport::builtIn, 1, 0);
  addDevice(11, "bluez_input.AA_BB_CC_DD_EE_FF.0", "Buds", Transport::bluetooth, 1, 0);
  addDevice(12, "bluez_output.aa:bb:cc:dd:ee:ff.1", "Buds", Transport::bluetooth, 0, 2);
  addDevice(13, "bluez_output.AA_BB_CC_DD_EE_FF.2", "Buds", Transport::bluetooth, 0, 2);
  addDevice(14, "bluez_sink.11_22_33_44_55_66.a2dp_sink", "Loop", Transport::bluetoothLE, 0, 2);
  const auto all = AudioDevice::all(hw);
  ASSERT_EQ(all.size(), 7u);
  EXPECT_EQ(all[0], (AudioDevice{7, "speakers", "Speakers", Transport::builtIn, false, true}));
  EXPECT_EQ(all[1], (AudioDevice{9, "Mic", "Mic", 0, true, false}));
  EXPECT_EQ(AudioDevice::byUID(hw, "mic")->id, 10u);
  EXPECT_EQ(AudioDevice::builtInMicrophone(hw)->id, 10u);
  EXPECT_EQ(AudioDevice::forHeadphones(hw, "AA-BB-CC-DD-EE-FF")->id, 12u);
  EXPECT_EQ(AudioDevice::forHeadphones(hw, "11:22:33:44:55:66")->id, 14u);
  EXPECT_FALSE(AudioDevice::forHeadphones(hw, "AA:BB:CC:DD:EE:00"));
  EXPECT_FALSE(AudioDevice::forHeadphones(hw, ""));
}

TEST_F(CoreAudioTest, DefaultsReadNothingForNoDeviceAndOutputMovesAlertSoundsTooAnsweringForTheFirstWriteLater) {
  using P = AudioProperty;
  hw.defaults[P::defaultOutputDevice] = audioObjectUnknown;
  hw.defaults[P::defaultInputDevice] = 9;
  EXPECT_FALSE(DefaultDevice::id(hw, Direction::output));
  EXPECT_EQ(DefaultDevice::id(hw, Direction::input), 9u);
  hw.refuseWrites[P::defaultSystemOutputDevice] = true;
  std::vector<WriteAnswer> answers;
  const auto keep = [&](const WriteAnswer& answer) { answers.push_back(answer); };
  DefaultDevice::set(hw, Direction::output, 4, keep);
  DefaultDevice::set(hw, Direction::input, 5, keep);
  hw.refuseWrites[P::defaultInputDevice] = true;
  DefaultDevice::set(hw, Direction::input, 6, keep);
  EXPECT_TRUE(answers.empty()) << "answered on the main queue, not during the write";
  rt.runReady();
  EXPECT_EQ(hw.writes, (std::vector<std::pair<P, AudioObjectID>>{{P::defaultOutputDevice, 4},
                                                                 {P::defaultSystemOutputDevice, 4},
                                                                 {P::defaultInputDevice, 5},
                                                                 {P::defaultInputDevice, 6}}));
  EXPECT_EQ(answers, (std::vector<WriteAnswer>{WriteAnswer::accept(), WriteAnswer::accept(),
                                               WriteAnswer::refuse("Access denied")}))
      << "the alert output's refusal does not count";
  EXPECT_EQ(DefaultDevice::id(hw, Direction::output), 4u);
}

}  // namespace
}  // namespace wh
