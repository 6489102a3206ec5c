// The profile guard beside a running input pinner, on the virtual clock (pace and fight: the
// pinner's). The server answers profile writes on the main queue: at once, or 0.5 s later ("slow").
#include <gtest/gtest.h>

#include <sstream>

#include "AudioWorld.h"
#include "core/quality/ProfileGuard.h"

namespace wh {
namespace {

const std::string moved = "moved WH-1000XM4 back to its music profile";
const std::string fight = "another app keeps switching the headphones to their headset profile; profile guard paused";
const std::string refused = "could not move WH-1000XM4 back to its music profile: Access denied";

struct Scenario {
  std::string script, profile, status, lastLog = {};  // the card's profile and the guard's status at the end
};

class ProfileGuardTest : public testing::TestWithParam<Scenario>, protected test::QualityWorld {
 protected:
  ProfileGuardTest() {
    addDevice(1, "bluez_output.AA_BB_CC_DD_EE_FF.1", "WH-1000XM4", Transport::bluetooth, 0, 1);
    addDevice(2, "bluez_input.AA_BB_CC_DD_EE_FF.0", "WH-1000XM4", Transport::bluetooth, 1, 0);
    hw.defaults[AudioProperty::defaultOutputDevice] = 1;
    hw.cardList = {{9, "bluez_card.AA_BB_CC_DD_EE_FF", "WH-1000XM4", Transport::bluetooth, "a2dp-sink-sbc",
                    {{"a2dp-sink-aac", ProfileKind::music, 18}, {"a2dp-sink-sbc", ProfileKind::music, 16},
                     {"headset-head-unit", ProfileKind::headset, 8}}}};
    records.emplace_back().address = "AA:BB:CC:DD:EE:FF";
    settings.setDevices(records);
  }

  // "+S": seconds pass; "call", "hangup" ("unseen": not read by the monitor yet); "override"; "refuse"
  // (again: accept) profile writes; "slow" answers; else the card, in SBC, changes: "hsp" to headset,
  // "rec" its mic is recorded, "sbcGone", "noMusic": SBC or every music profile goes. What is due
  // when the script ends runs.
  void play(const std::string& script) {
    pinner.start();
    guard.start();
    std::istringstream events(script);
    auto& card = hw.cardList[0];
    for (std::string event; events >> event;) {
      if (event[0] == '+') {
        rt.advance(std::stod(event.substr(1)));
      } else if (event == "call" || event == "unseen" || event == "hangup") {
        hw.processList.clear();
        if (event != "hangup") hw.processList.push_back({40, 3000, std::string("us.zoom.xos"), true, false});
        if (event != "unseen") monitor.refresh();
      } else if (event == "override") {
        pinner.setOverride(InputPinner::Override::allowHeadphoneMic);
        pinner.evaluate();
      } else if (event == "refuse") {
        hw.refuseProfiles = !hw.refuseProfiles;
      } else if (event == "slow") {
        hw.answerDelay = 0.5;
      } else {
        ASSERT_TRUE(event == "hsp" || event == "rec" || event == "sbcGone" || event == "noMusic")
            << "unknown script word: " << event;
        if (event == "hsp") card.activeProfile = "headset-head-unit";
        if (event == "rec") hw.deviceList[1].runningSomewhere = true;
        if (event == "sbcGone") card.profiles[1].available = false;
        if (event == "noMusic") card.profiles.erase(card.profiles.begin(), card.profiles.begin() + 2);
        hw.notify(audioSystemObject, AudioProperty::cards);
      }
    }
    rt.runReady();
  }

  ProfileGuard guard{rt, settings, hw, monitor, pinner};
};

TEST_P(ProfileGuardTest, Scenario) {
  const Scenario& s = GetParam();
  play(s.script);
  EXPECT_EQ(hw.cardList[0].activeProfile, s.profile);
  EXPECT_EQ(describe(guard.status()), s.status);
  EXPECT_EQ(log->lines.empty() ? "" : log->lines.back(), s.lastLog);
  EXPECT_LE(std::count(log->lines.begin(), log->lines.end(), fight), 1) << "the fight is logged once";
}

INSTANTIATE_TEST_SUITE_P(Guarding, ProfileGuardTest, testing::Values(
    // Undone unless its microphone records: to the music profile it had, else the best one left.
    Scenario{"hsp", "a2dp-sink-sbc", "holding", moved},
    Scenario{"sbcGone hsp", "a2dp-sink-aac", "holding", moved},
    Scenario{"rec hsp", "headset-head-unit", "holding"},
    Scenario{"noMusic hsp", "headset-head-unit", "idle"},
    // The server's answer decides: a card that reads as moved before it is not taken for moved, a
    // refusal is logged and tried again at the pace, and a server that keeps refusing is fought.
    Scenario{"refuse hsp", "headset-head-unit", "holding", refused},
    Scenario{"refuse hsp +0.5 refuse +0.2", "a2dp-sink-sbc", "holding", moved},
    Scenario{"refuse hsp +2", "headset-head-unit", "fighting", fight},
    Scenario{"slow call hsp hangup +3.49", "a2dp-sink-sbc", "released"},
    Scenario{"slow call hsp hangup +3.5", "a2dp-sink-sbc", "holding", moved},
    Scenario{"slow refuse call hsp hangup +3.6", "a2dp-sink-sbc", "released", refused},
    // Released for calls (also one the monitor has not read yet) and by the override; 3 s after.
    Scenario{"call hsp", "headset-head-unit", "released"},
    Scenario{"unseen hsp", "headset-head-unit", "released"},
    Scenario{"override hsp", "headset-head-unit", "released"},
    Scenario{"call hsp hangup +2.9", "headset-head-unit", "released"},
    Scenario{"call hsp hangup +3", "a2dp-sink-sbc", "holding", moved},
    // The pinner's pace (a correction too soon waits) and fight record, which a call's end clears.
    Scenario{"hsp +0.1 hsp +0.2", "a2dp-sink-sbc", "holding", moved},
    Scenario{"hsp +1 hsp +1 hsp +1 hsp +1 hsp +1 hsp", "headset-head-unit", "fighting", fight},
    Scenario{"hsp +1 hsp +1 hsp +1 hsp +1 hsp +1 hsp call hangup +3", "a2dp-sink-sbc", "holding", moved}));

}  // namespace
}  // namespace wh
