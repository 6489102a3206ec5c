// The profile guard beside a running input pinner, on the virtual clock (pace and fight: the
// pinner's). The server answers profile writes on the main queue: at once, or 0.5 s later ("slow").
// The second table plays WirePlumber 0.4's Bluetooth policy (policy-bluetooth.lua) against the card.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "AudioWorld.h"
#include "core/quality/ProfileGuard.h"

namespace wh {
namespace {

const std::string moved = "moved WH-1000XM4 back to its music profile";
const std::string fight = "another app keeps switching the headphones to their headset profile; profile guard paused";
const std::string refused = "could not move WH-1000XM4 back to its music profile: Access denied";
const std::string byHand = "WH-1000XM4 switched to its headset profile by hand; left there until it reconnects";
const std::string handedBack = "moved WH-1000XM4 to its headset profile headset-head-unit";
const std::string card = "bluez_card.AA_BB_CC_DD_EE_FF";
constexpr AudioObjectID zoom = 40, browser = 41;

// WirePlumber 0.4's policy-bluetooth.lua for one card, as its source has it: a call-like capture
// stream (Communication role, or a listed application: browsers and meeting apps are) switches a
// card whose profile has no input to the saved headset profile, else the best one with input,
// remembering the profile it had; 2 s after the last such stream ends it saves the profile it then
// finds as the headset profile for next time (on disk) and restores the remembered one.
struct WirePlumber04 {
  WirePlumber04(MemoryAudioHardware& hardware, MainQueue& queue) : hw(hardware), main(queue) {}
  MemoryAudioHardware& hw;
  MainQueue& main;
  std::map<std::string, std::string> savedHeadset;  // what use-persistent-storage keeps
  std::optional<std::string> lastProfile;
  std::set<AudioObjectID> active;
  HeldWork restore;

  void streamStarted(AudioObjectID stream) {
    active.insert(stream);
    restore.cancel();
    if (lastProfile) return;  // switched already
    AudioCard& c = hw.cardList[0];
    lastProfile = c.activeProfile;
    if (c.activeKind() == ProfileKind::headset) return;
    const auto saved = savedHeadset.find(c.name);
    std::string target;
    for (const auto& profile : c.profiles) {
      if (saved != savedHeadset.end() && profile.name == saved->second) target = profile.name;
    }
    if (target.empty()) target = "headset-head-unit";
    set(target);
  }
  void streamEnded(AudioObjectID stream) {
    active.erase(stream);
    if (!active.empty() || restore.isPending()) return;
    restore = main.after(2.0, [this] {
      if (!lastProfile) return;
      savedHeadset[hw.cardList[0].name] = hw.cardList[0].activeProfile;
      set(*lastProfile);
      lastProfile.reset();
    });
  }
  void set(const std::string& profile) {
    hw.cardList[0].activeProfile = profile;
    hw.notify(audioSystemObject, AudioProperty::cards);
  }
};

class GuardWorld : protected test::QualityWorld {
 protected:
  GuardWorld() {
    addDevice(1, "bluez_output.AA_BB_CC_DD_EE_FF.1", "WH-1000XM4", Transport::bluetooth, 0, 1);
    addDevice(2, "bluez_input.AA_BB_CC_DD_EE_FF.0", "WH-1000XM4", Transport::bluetooth, 1, 0);
    addDevice(3, "alsa_input.pci-0000_00_1f.3.analog-stereo", "Built-in Microphone", Transport::builtIn, 1, 0);
    hw.defaults[AudioProperty::defaultOutputDevice] = 1;
    hw.cardList = {{9, card, "WH-1000XM4", Transport::bluetooth, "a2dp-sink-sbc",
                    {{"a2dp-sink-aac", ProfileKind::music, 18}, {"a2dp-sink-sbc", ProfileKind::music, 16},
                     {"headset-head-unit", ProfileKind::headset, 8}}}};
    records.emplace_back().address = "AA:BB:CC:DD:EE:FF";
    settings.setDevices(records);
  }

  // A process that records (or stops), as the process monitor reads it when `seen`.
  void recording(AudioObjectID id, const std::string& app, bool on, bool seen = true) {
    std::erase_if(hw.processList, [&](const MemoryAudioHardware::Process& p) { return p.id == id; });
    if (on) hw.processList.push_back({id, static_cast<std::int32_t>(3000 + id), app, true, false});
    if (seen) monitor.refresh();
  }
  void switchCard(const std::string& profile) {
    hw.cardList[0].activeProfile = profile;
    hw.notify(audioSystemObject, AudioProperty::cards);
  }

  ProfileGuard guard{rt, settings, hw, monitor, pinner};
};

struct Scenario {
  std::string script, profile, status, lastLog = {};  // the card's profile and the guard's status at the end
  std::string action = {};  // what the guard says it last did about the card, where the row checks it
};
void PrintTo(const Scenario& s, std::ostream* out) { *out << '"' << s.script << '"'; }

class ProfileGuardTest : public testing::TestWithParam<Scenario>, protected GuardWorld {
 protected:
  // "+S": seconds pass; "call", "hangup" ("unseen": not read by the monitor yet): a meeting app
  // records; "record", "stop": a browser records (an undetected call); "rec": it records from the
  // headphones' microphone, "moved": that recording moves to the built-in one; "override";
  // "nomic": the built-in microphone goes; "refuse" (again: accept) profile writes; "slow"
  // answers; "serverSwitchOff": the agent keeps the server's automatic switch off; "gone": the card
  // goes (the last word but for time); the card: "hsp" to headset, "a2dp" to SBC, "reconnect", "sbcGone", "noMusic": SBC or
  // every music profile goes. What is due when the script ends runs.
  void play(const std::string& script) {
    pinner.start();
    guard.start();
    std::istringstream events(script);
    auto& c = hw.cardList[0];
    for (std::string event; events >> event;) {
      if (event[0] == '+') {
        rt.advance(std::stod(event.substr(1)));
      } else if (event == "call" || event == "unseen" || event == "hangup") {
        recording(zoom, "us.zoom.xos", event != "hangup", event != "unseen");
      } else if (event == "record" || event == "stop") {
        if (event == "stop") hw.deviceList[1].runningSomewhere = false;
        recording(browser, "org.mozilla.firefox", event == "record");
      } else if (event == "rec" || event == "moved") {
        hw.deviceList[1].runningSomewhere = event == "rec";
        if (event == "rec") recording(browser, "org.mozilla.firefox", true);
        hw.notify(audioSystemObject, AudioProperty::recordings);
      } else if (event == "override") {
        pinner.setOverride(InputPinner::Override::allowHeadphoneMic);
        pinner.evaluate();
      } else if (event == "nomic") {
        hw.deviceList.pop_back();
        hw.notify(audioSystemObject, AudioProperty::devices);
      } else if (event == "refuse") {
        hw.refuseProfiles = !hw.refuseProfiles;
      } else if (event == "slow") {
        hw.answerDelay = 0.5;
      } else if (event == "serverSwitchOff") {
        guard.movesCardsForCalls = [] { return true; };
      } else if (event == "gone") {
        hw.cardList.clear();
        hw.notify(audioSystemObject, AudioProperty::cards);
      } else if (event == "reconnect") {
        const AudioCard kept = c;
        hw.cardList.clear();
        hw.notify(audioSystemObject, AudioProperty::cards);
        hw.cardList = {kept};
        hw.notify(audioSystemObject, AudioProperty::cards);
      } else {
        ASSERT_TRUE(event == "hsp" || event == "a2dp" || event == "sbcGone" || event == "noMusic")
            << "unknown script word: " << event;
        if (event == "hsp") c.activeProfile = "headset-head-unit";
        if (event == "a2dp") c.activeProfile = "a2dp-sink-sbc";
        if (event == "sbcGone") c.profiles[1].available = false;
        if (event == "noMusic") c.profiles.erase(c.profiles.begin(), c.profiles.begin() + 2);
        hw.notify(audioSystemObject, AudioProperty::cards);
      }
    }
    rt.runReady();
  }
};

TEST_P(ProfileGuardTest, Scenario) {
  const Scenario& s = GetParam();
  play(s.script);
  EXPECT_EQ(hw.cardList.empty() ? "(gone)" : hw.cardList[0].activeProfile, s.profile);
  EXPECT_EQ(describe(guard.status()), s.status);
  EXPECT_EQ(log->lines.empty() ? "" : log->lines.back(), s.lastLog);
  EXPECT_LE(std::count(log->lines.begin(), log->lines.end(), fight), 1) << "the fight is logged once";
  if (!s.action.empty()) {
    EXPECT_EQ(guard.lastAction(card), s.action);
  }
}

INSTANTIATE_TEST_SUITE_P(Guarding, ProfileGuardTest, testing::Values(
    // A switch that a recording explains is undone unless its microphone records: to the music
    // profile it had, else the best one left.
    Scenario{"record hsp", "a2dp-sink-sbc", "holding", moved,
             "moved back to its music profile: a recording not from its microphone switched it to headset-head-unit"},
    Scenario{"record sbcGone hsp", "a2dp-sink-aac", "holding", moved},
    Scenario{"rec hsp", "headset-head-unit", "holding"},
    Scenario{"record noMusic hsp", "headset-head-unit", "idle"},
    // The recording leaving the headphones' microphone is followed at once (the recordings listener);
    // when it stops, the server's restore is awaited restoreWait (the process observer).
    Scenario{"rec hsp moved", "a2dp-sink-sbc", "holding", moved},
    Scenario{"rec hsp stop +2.9", "headset-head-unit", "holding"},
    Scenario{"rec hsp stop +3", "a2dp-sink-sbc", "holding", moved},
    // A switch with nothing recording is a person's: kept, also when something records later,
    // until the headphones reconnect (or the card is back in a music profile).
    Scenario{"hsp", "headset-head-unit", "holding", byHand, "left in its headset profile: chosen by hand"},
    Scenario{"hsp record +5", "headset-head-unit", "holding", byHand},
    Scenario{"hsp record reconnect", "a2dp-sink-aac", "holding", moved},
    Scenario{"hsp a2dp record hsp", "a2dp-sink-sbc", "holding", moved},
    // Once nothing records, a card moved back gets the policy's headset profile again for its
    // restore step; restoreWait later, with no restore, the guard moves it back itself.
    Scenario{"record hsp stop", "headset-head-unit", "holding", handedBack},
    Scenario{"record hsp stop +2.9", "headset-head-unit", "holding", handedBack},
    Scenario{"record hsp stop +3", "a2dp-sink-sbc", "holding", moved,
             "moved back to its music profile: the server did not restore it"},
    // No other microphone: the headphones' is the only one, and the guard lets go.
    Scenario{"nomic record hsp", "headset-head-unit", "released", "", "released: there is no other microphone"},
    // The server's answer decides: a card that reads as moved before it is not taken for moved, a
    // refusal is logged and tried again at the pace, and a server that keeps refusing is fought.
    Scenario{"record refuse hsp", "headset-head-unit", "holding", refused},
    Scenario{"record refuse hsp +0.5 refuse +0.2", "a2dp-sink-sbc", "holding", moved},
    Scenario{"record refuse hsp +2", "headset-head-unit", "fighting", fight},
    // A card that goes while its move is on the way: nothing is left to guard (the adapter's tests
    // check that the server refuses a write for a card it no longer has).
    Scenario{"slow record hsp gone +1", "(gone)", "idle", moved},
    Scenario{"slow call hsp hangup +3.49", "a2dp-sink-sbc", "released"},
    Scenario{"slow call hsp hangup +3.5", "a2dp-sink-sbc", "holding", moved},
    Scenario{"slow refuse call hsp hangup +3.6", "a2dp-sink-sbc", "released", refused},
    // Released for calls (also one the monitor has not read yet) and by the override; 3 s after.
    Scenario{"call hsp", "headset-head-unit", "released"},
    Scenario{"unseen hsp", "headset-head-unit", "released"},
    Scenario{"override record hsp", "headset-head-unit", "released"},
    Scenario{"call hsp hangup +2.9", "headset-head-unit", "released"},
    Scenario{"call hsp hangup +3", "a2dp-sink-sbc", "holding", moved},
    // A call detected after the guard undid the policy's switch gets the headset profile back.
    Scenario{"record hsp call", "headset-head-unit", "released", handedBack,
             "moved to its headset profile again: a call or the call mode needs the headphone microphone"},
    // With the server's automatic switch off the guard moves the card for a call (once: a refusal
    // waits for the next release) and back when the pinner returns.
    Scenario{"call", "a2dp-sink-sbc", "released"},
    Scenario{"serverSwitchOff call", "headset-head-unit", "released", handedBack},
    Scenario{"serverSwitchOff nomic", "headset-head-unit", "released", handedBack},
    Scenario{"serverSwitchOff call hangup +2.9", "headset-head-unit", "released", handedBack,
             "moved to its headset profile: a call or the call mode needs the headphone microphone"},
    Scenario{"serverSwitchOff call hangup +3", "a2dp-sink-sbc", "holding", moved},
    Scenario{"serverSwitchOff refuse call +5", "a2dp-sink-sbc", "released",
             "could not move WH-1000XM4 to its headset profile: Access denied",
             "moved to its headset profile: a call or the call mode needs the headphone microphone (refused: Access "
             "denied)"},
    // The pinner's pace (a correction too soon waits) and fight record, which a call's end clears.
    Scenario{"record hsp +0.1 a2dp hsp +0.2", "a2dp-sink-sbc", "holding", moved},
    Scenario{"record hsp +1 hsp +1 hsp +1 hsp +1 hsp +1 hsp", "headset-head-unit", "fighting", fight},
    Scenario{"record hsp +1 hsp +1 hsp +1 hsp +1 hsp +1 hsp call hangup +3", "a2dp-sink-sbc", "holding",
             moved}));

// WirePlumber 0.4's sequence: a recording it takes for a call switches the card, the guard undoes
// it, the recording ends, the policy restores 2 s later, and then the next call: the policy must
// still switch to a headset profile, so the profile it saved is one.
struct PolicyScenario {
  std::string script;
  std::string profile;  // the card's at the end
};

class WirePlumber04Test : public testing::TestWithParam<PolicyScenario>, protected GuardWorld {
 protected:
  // "+S"; "record"/"stop": a browser (an undetected call); "call"/"hangup": a meeting app (a call).
  void play(const std::string& script) {
    pinner.start();
    guard.start();
    std::istringstream events(script);
    for (std::string event; events >> event;) {
      if (event[0] == '+') {
        rt.advance(std::stod(event.substr(1)));
        continue;
      }
      ASSERT_TRUE(event == "record" || event == "stop" || event == "call" || event == "hangup") << event;
      const bool starts = event == "record" || event == "call";
      const AudioObjectID id = event == "record" || event == "stop" ? browser : zoom;
      recording(id, id == zoom ? "us.zoom.xos" : "org.mozilla.firefox", starts, false);
      // The server sees the stream before the agent's monitor does.
      if (starts) policy.streamStarted(id);
      monitor.refresh();
      if (!starts) policy.streamEnded(id);
    }
    rt.runReady();
  }
  WirePlumber04 policy{hw, rt.main()};
};

TEST_P(WirePlumber04Test, RemembersAHeadsetProfile) {
  play(GetParam().script);
  EXPECT_EQ(hw.cardList[0].activeProfile, GetParam().profile);
  EXPECT_FALSE(policy.savedHeadset.empty()) << "the policy restored the card";
  for (const auto& [name, saved] : policy.savedHeadset) {
    EXPECT_EQ(saved, "headset-head-unit") << "the policy's remembered headset profile of " << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Policy, WirePlumber04Test, testing::Values(
    PolicyScenario{"record stop +2.5 call", "headset-head-unit"},
    PolicyScenario{"record +10 stop +2.5 +5 call", "headset-head-unit"},
    // Another undetected call while the card waits for the restore, and a call that is detected
    // while the guard holds the music profile.
    PolicyScenario{"record stop +1 record +1 stop +5 call", "headset-head-unit"},
    PolicyScenario{"record +1 call +5 hangup stop +5", "a2dp-sink-sbc"},
    PolicyScenario{"record +1 call +5 hangup stop +5 call", "headset-head-unit"},
    // Music quality between: after the restore the card plays music again.
    PolicyScenario{"record stop +2.5", "a2dp-sink-sbc"},
    PolicyScenario{"record +1 stop +5", "a2dp-sink-sbc"}));

}  // namespace
}  // namespace wh
