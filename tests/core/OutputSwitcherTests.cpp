#include <gtest/gtest.h>

#include "doubles/MemoryAudioHardware.h"
#include "core/bluetooth/OutputSwitcher.h"
#include "doubles/VirtualRuntime.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

// A sound system with a built-in output (1) and, once they appear, the headphones' output (7).
class OutputSwitcherTest : public testing::Test {
 protected:
  static constexpr const char* buds = "aa-bb-cc-dd-ee-ff";
  using IDs = std::vector<OutputSwitcher::DeviceID>;

  OutputSwitcher::Audio audio() {
    return {[this](const std::string& address) -> std::optional<OutputSwitcher::DeviceID> {
              return headphonesPresent && address == buds ? std::optional(7u) : std::nullopt;
            },
            [this] { return defaultOutput; },
            [this](OutputSwitcher::DeviceID id) {
              sets.push_back(id);
              if (setWorks) defaultOutput = id;
              return setWorks;
            },
            [](OutputSwitcher::DeviceID id) { return id == 7 ? std::string("Sleep Buds") : std::to_string(id); }};
  }

  VirtualRuntime rt;
  test::CapturedLog log;
  bool headphonesPresent = false;
  bool setWorks = true;
  std::optional<OutputSwitcher::DeviceID> defaultOutput = 1;
  std::vector<OutputSwitcher::DeviceID> sets;
  OutputSwitcher switcher{rt, audio()};
};

TEST_F(OutputSwitcherTest, PollsForTheDeviceAndAppliesItWhenItAppearsBeforeEightSeconds) {
  switcher.begin("AA:BB:CC:DD:EE:FF");
  rt.advance(7.5);
  EXPECT_TRUE(sets.empty());
  headphonesPresent = true;  // appears at 7.5 s; the poll at 7.75 s finds it
  rt.advance(0.25);
  EXPECT_EQ(sets, IDs{7});
  EXPECT_EQ(log->lines, std::vector<std::string>{"output set to Sleep Buds"});
}

TEST_F(OutputSwitcherTest, ADeviceStillMissingAtEightSecondsGetsOneRepairThenGivesUp) {
  std::vector<std::string> reconnects;
  std::function<void(bool)> pending;
  switcher.reconnect = [&](const std::string& address, std::function<void(bool)> completion) {
    reconnects.push_back(address);
    pending = std::move(completion);
  };
  switcher.begin(buds);
  rt.advance(7.99);
  EXPECT_TRUE(reconnects.empty());
  rt.advance(0.01);
  ASSERT_EQ(reconnects, std::vector<std::string>{buds});
  EXPECT_EQ(log->lines.back(), "no audio device for aa-bb-cc-dd-ee-ff after connect; reconnecting once");
  EXPECT_EQ(switcher.repairing().count(buds), 1u);

  switcher.cancel(buds);  // the repair's own disconnect: ignored
  pending(true);          // reconnected: a fresh eight-second wait starts
  EXPECT_TRUE(switcher.repairing().empty());
  rt.advance(8.0);
  EXPECT_EQ(reconnects.size(), 1u) << "the repair is granted once per headphones";
  EXPECT_EQ(log->lines.back(), "gave up setting output for aa-bb-cc-dd-ee-ff");

  // Also for a later connection of the same headphones.
  switcher.begin(buds);
  rt.advance(9);
  EXPECT_EQ(reconnects.size(), 1u);
}

TEST_F(OutputSwitcherTest, AFailedRepairDoesNotWaitAgainAndNoRepairCallbackGivesUpAtOnce) {
  switcher.begin(buds);
  rt.advance(8);
  EXPECT_EQ(log->lines.back(), "gave up setting output for aa-bb-cc-dd-ee-ff");

  OutputSwitcher other{rt, audio()};
  int reconnects = 0;
  other.reconnect = [&](const std::string&, std::function<void(bool)> completion) {
    ++reconnects;
    completion(false);
  };
  other.begin(buds);
  rt.advance(30);
  EXPECT_EQ(reconnects, 1);
  EXPECT_EQ(log->lines.back(), "no audio device for aa-bb-cc-dd-ee-ff after connect; reconnecting once");
}

TEST_F(OutputSwitcherTest, TheSecondOfTwoQuickBeginsIsTheOnlyWaitThatSurvives) {
  switcher.reconnect = [](const std::string&, std::function<void(bool)>) {};
  switcher.begin(buds);
  rt.advance(4);
  switcher.begin(buds);
  rt.advance(7.9);  // the first wait would have run out at 8 s
  EXPECT_EQ(switcher.repairUsed.count(buds), 0u);
  rt.advance(0.1);
  EXPECT_EQ(switcher.repairUsed.count(buds), 1u);
}

TEST_F(OutputSwitcherTest, CancelEndsTheWaitAndThePendingRechecks) {
  headphonesPresent = true;
  switcher.begin(buds);
  switcher.cancel(buds);
  defaultOutput = 1;  // something moves the output back
  rt.advance(5);
  EXPECT_EQ(sets.size(), 1u) << "no re-check after cancel";

  headphonesPresent = false;
  switcher.begin(buds);
  switcher.cancel(buds);
  rt.advance(10);
  EXPECT_EQ(log->lines.back(), "output set to Sleep Buds") << "the cancelled wait neither repairs nor gives up";
}

TEST_F(OutputSwitcherTest, AlreadyCurrentDoesNothingButTheRechecksStillRun) {
  headphonesPresent = true;
  defaultOutput = 7;
  switcher.begin(buds);
  EXPECT_TRUE(sets.empty());
  EXPECT_TRUE(log->lines.empty());
  rt.advance(2);
  defaultOutput = 1;  // moved away between the checks
  rt.advance(1);
  EXPECT_EQ(sets, IDs{7});
  EXPECT_EQ(log->lines, std::vector<std::string>{"output moved away from Sleep Buds; setting it again"});
}

TEST_F(OutputSwitcherTest, AFailedSetIsRetriedByTheRechecksAndAMissingDefaultCountsAsMovedAway) {
  headphonesPresent = true;
  setWorks = false;
  switcher.begin(buds);
  EXPECT_TRUE(log->lines.empty()) << "a failed set is not reported";
  setWorks = true;
  rt.advance(1);
  EXPECT_EQ(defaultOutput, 7u);
  defaultOutput.reset();
  rt.advance(2);
  EXPECT_EQ(sets, (IDs{7, 7, 7}));
}

TEST(OutputSwitcherLiveAudio, FindsTheHeadphonesByAddressAndMovesOutputAndAlertsThere) {
  MemoryAudioHardware hardware;
  const auto add = [&](AudioObjectID id, const char* uid, const char* name, bool output) {
    auto& device = hardware.deviceList.emplace_back();
    device.id = id, device.uid = uid, device.name = name;
    (output ? device.outputStreams : device.inputStreams) = 1;
  };
  add(10, "alsa_output.pci-0000_00_1f.3.analog-stereo", "Built-in Audio", true);
  add(11, "bluez_input.AA_BB_CC_DD_EE_FF.0", "Sleep Buds mic", false);
  add(12, "bluez_output.AA_BB_CC_DD_EE_FF.1", "Sleep Buds", true);
  hardware.defaults[AudioProperty::defaultOutputDevice] = 10;
  auto audio = OutputSwitcher::Audio::live(hardware);
  EXPECT_EQ(audio.find("aa-bb-cc-dd-ee-ff"), 12u) << "the output device, not the microphone";
  EXPECT_FALSE(audio.find("11-22-33-44-55-66"));
  EXPECT_EQ(audio.current(), 10u);
  EXPECT_TRUE(audio.set(12));
  EXPECT_EQ(hardware.defaults[AudioProperty::defaultOutputDevice], 12u);
  EXPECT_EQ(hardware.defaults[AudioProperty::defaultSystemOutputDevice], 12u);
  EXPECT_EQ(audio.name(12), "Sleep Buds");
  EXPECT_EQ(audio.name(99), "99");
}

}  // namespace
}  // namespace wh
