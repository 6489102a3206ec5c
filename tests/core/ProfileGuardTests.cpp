// The profile guard on the virtual clock, beside a running input pinner. Every scenario plays a
// script of events on a machine with remembered headphones in their SBC music profile, then checks
// the card's profile, the guard's status, how often it wrote a profile and what it logged last.
#include <gtest/gtest.h>

#include <sstream>

#include "AudioWorld.h"
#include "core/quality/ProfileGuard.h"

namespace wh {
namespace {

const std::string moved = "moved WH-1000XM4 back to its music profile";
const std::string fightLine = "another app keeps switching the headphones to their headset profile; profile guard paused";

struct Scenario {
  std::string script;
  std::string profile;  // the card's active profile at the end
  std::string status;
  std::size_t writes;
  std::string lastLog = {};
};

class ProfileGuardTest : public testing::TestWithParam<Scenario>, protected test::QualityWorld {
 protected:
  ProfileGuardTest() {
    addDevice(1, "alsa_input.pci-0000_00_1f.3.analog-stereo", "Built-in Microphone", Transport::builtIn, 1, 0);
    addDevice(2, "bluez_output.AA_BB_CC_DD_EE_FF.1", "WH-1000XM4", Transport::bluetooth, 0, 1);
    addDevice(3, "bluez_input.AA_BB_CC_DD_EE_FF.0", "WH-1000XM4", Transport::bluetooth, 1, 0);
    hw.defaults = {{AudioProperty::defaultInputDevice, 1}, {AudioProperty::defaultOutputDevice, 2}};
    hw.cardList = {{9, "bluez_card.AA_BB_CC_DD_EE_FF", "WH-1000XM4", Transport::bluetooth, "a2dp-sink-sbc",
                    {{"a2dp-sink-aac", ProfileKind::music, 18}, {"a2dp-sink-sbc", ProfileKind::music, 16},
                     {"headset-head-unit", ProfileKind::headset, 8}, {"off", ProfileKind::other, 0}}}};
    records.emplace_back().address = "AA:BB:CC:DD:EE:FF";
    settings.setDevices(records);
  }

  // Events: "start"; "+S": S seconds pass; "hsp": the server switches the card to its headset
  // profile; "call", "hangup": a meeting app records (or, "unseen", before the monitor reads it);
  // "rec": something records from the headset microphone; "override": the user allows it;
  // "refuse": profile writes fail (again: succeed); "sbcGone", "noMusic": the card stops offering
  // SBC, any music profile; "gone": the card goes; "off": pinning is switched off; "keep": the
  // headphones' record keeps their microphone.
  void play(const std::string& script) {
    std::istringstream events(script);
    auto& card = hw.cardList[0];
    for (std::string event; events >> event;) {
      if (event == "start") {
        pinner.start();
        guard.start();
      } else if (event[0] == '+') {
        rt.advance(std::stod(event.substr(1)));
      } else if (event == "call" || event == "unseen" || event == "hangup") {
        hw.processList.clear();
        if (event != "hangup") hw.processList.push_back({40, 3000, std::string("us.zoom.xos"), true, false});
        if (event != "unseen") monitor.refresh();
      } else if (event == "override") {
        pinner.setOverride(InputPinner::Override::allowHeadphoneMic);
        pinner.evaluate();
      } else if (event == "off") {
        store.set(Keys::pinInput, StoreValue::boolean(false));
      } else if (event == "keep") {
        records[0].pinInput = false;
        settings.setDevices(records);
      } else if (event == "refuse") {
        hw.refuseProfiles = !hw.refuseProfiles;
      } else {
        if (event == "hsp") card.activeProfile = "headset-head-unit";
        if (event == "rec") hw.deviceList[2].runningSomewhere = true;
        if (event == "sbcGone") card.profiles[1].available = false;
        if (event == "noMusic") card.profiles.erase(card.profiles.begin(), card.profiles.begin() + 2);
        if (event == "gone") hw.cardList.clear();
        hw.notify(audioSystemObject, AudioProperty::cards);
      }
    }
  }

  ProfileGuard guard{rt, settings, hw, monitor, pinner};
};

TEST_P(ProfileGuardTest, Scenario) {
  const Scenario& s = GetParam();
  play(s.script);
  EXPECT_EQ(hw.cardList.empty() ? "" : hw.cardList[0].activeProfile, s.profile);
  EXPECT_EQ(describe(guard.status()), s.status);
  EXPECT_EQ(hw.profileWrites.size(), s.writes);
  const auto& lines = log->lines;
  EXPECT_EQ(lines.empty() ? "" : lines.back(), s.lastLog);
  EXPECT_LE(std::count(lines.begin(), lines.end(), fightLine), 1) << "the fight is logged once";
}

INSTANTIATE_TEST_SUITE_P(Guarding, ProfileGuardTest, testing::Values(
    // A switch nothing explains is undone, to the music profile the card had or the best one left.
    Scenario{"start hsp", "a2dp-sink-sbc", "holding", 1, moved},
    Scenario{"start sbcGone hsp", "a2dp-sink-aac", "holding", 1, moved},
    Scenario{"start rec hsp", "headset-head-unit", "holding", 0},
    Scenario{"start noMusic hsp", "headset-head-unit", "idle", 0},
    Scenario{"keep start hsp", "headset-head-unit", "idle", 0},
    Scenario{"off start hsp", "headset-head-unit", "off", 0},
    Scenario{"start gone", "", "idle", 0},
    // A refused write is logged, changes no status and is tried again on the next change.
    Scenario{"start refuse hsp", "headset-head-unit", "holding", 1,
             "could not move WH-1000XM4 back to its music profile"},
    Scenario{"start refuse hsp +1 refuse hsp", "a2dp-sink-sbc", "holding", 2, moved},
    // Calls and the override release; the card goes back 3 s after the call.
    Scenario{"start call hsp", "headset-head-unit", "released", 0},
    Scenario{"start override hsp", "headset-head-unit", "released", 0},
    Scenario{"start unseen hsp", "headset-head-unit", "released", 0},
    Scenario{"start call hsp hangup +2.9", "headset-head-unit", "released", 0},
    Scenario{"start call hsp hangup +3", "a2dp-sink-sbc", "holding", 1, moved},
    // The pinner's pace: 0.3 s between corrections; the sixth within ten seconds is a fight,
    // which a call's end clears.
    Scenario{"start hsp +0.1 hsp +0.19", "headset-head-unit", "holding", 1, moved},
    Scenario{"start hsp +0.1 hsp +0.2", "a2dp-sink-sbc", "holding", 2, moved},
    Scenario{"start hsp +1 hsp +1 hsp +1 hsp +1 hsp", "a2dp-sink-sbc", "holding", 5, moved},
    Scenario{"start hsp +1 hsp +1 hsp +1 hsp +1 hsp +1 hsp", "headset-head-unit", "fighting", 5, fightLine},
    Scenario{"start hsp +1 hsp +1 hsp +1 hsp +1 hsp +1 hsp call hangup +3", "a2dp-sink-sbc", "holding", 6, moved}));

TEST_F(ProfileGuardTest, TheQualityLineFollowsTheBluetoothOutputsRate) {
  play("start");
  for (const auto& [rate, line] :
       {std::pair{44100.0, "WH-1000XM4: 44.1 kHz, full quality"}, {16000.0, "WH-1000XM4: 16 kHz, call quality"}}) {
    hw.deviceList[1].nominalSampleRate = rate;
    hw.notify(audioSystemObject, AudioProperty::devices);
    EXPECT_EQ(guard.outputQuality(), line);
  }
}

}  // namespace
}  // namespace wh
