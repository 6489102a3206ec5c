// The input pinner on the virtual clock. Every scenario plays a script of events on one machine
// whose default input starts on the built-in microphone, then checks the status, the default
// input, how often the pinner wrote it and what it logged. The server answers writes on the main
// queue: at once, or 0.5 s later ("slow").
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "AudioWorld.h"
#include "core/quality/InputPinner.h"

namespace wh {
namespace {

using Override = InputPinner::Override;
constexpr AudioObjectID speakers = 1, mic = 2, usb = 3, bt = 4, le = 5;
const std::string pinned = "pinned:Built-in Microphone";
const std::string pinnedLine = "pinned input to Built-in Microphone (was Sleep Buds)";
const std::string fightLine = "another app keeps switching the input; pinning paused";

struct Scenario {
  std::string script;
  std::string status;   // describe(status) at the end
  AudioObjectID input;  // the default input at the end
  std::size_t writes;   // default-input writes, refused ones included
  std::string lastLog = {};
};

class InputPinnerTest : public testing::TestWithParam<Scenario>, protected test::QualityWorld {
 protected:
  InputPinnerTest() {
    addDevice(speakers, "alsa_output.pci-0000_00_1f.3.analog-stereo", "Speakers", Transport::builtIn, 0, 1);
    addDevice(mic, "alsa_input.pci-0000_00_1f.3.analog-stereo", "Built-in Microphone", Transport::builtIn, 1, 0);
    addDevice(usb, "alsa_input.usb-Blue_Yeti-00.analog-stereo", "Yeti", fourCharCode("usb "), 1, 0);
    addDevice(bt, "bluez_input.AA_BB_CC_DD_EE_FF.0", "Sleep Buds", Transport::bluetooth, 1, 0);
    addDevice(le, "bluez_input.11:22:33:44:55:66", "Loop Buds", Transport::bluetoothLE, 1, 0);
    hw.defaults[AudioProperty::defaultInputDevice] = mic;
    pinner.onChange = [this] { statuses.push_back(describe(pinner.status())); };
  }

  // Events: "start"; "+S": S seconds pass; a device: another program makes it the default input;
  // "-<device>": it goes away; "call", "hangup", "music": a meeting app or a player; settings; a
  // headphones record with pinInput off ("keep=") or on ("pin="); "refuse" (again: accept) input
  // writes; "slow" answers. What is due when the script ends runs.
  void play(const std::string& script) {
    std::istringstream events(script);
    for (std::string event; events >> event;) {
      const std::string value = event.substr(event.find_first_of("=+-") + 1);
      if (event[0] == '+') {
        rt.advance(std::stod(value));
      } else if (event[0] == '-') {
        std::erase_if(hw.deviceList, [&](const auto& device) { return device.id == named.at(value); });
      } else if (named.count(event) > 0) {
        hw.defaults[AudioProperty::defaultInputDevice] = named.at(event);
        hw.notify(audioSystemObject, AudioProperty::defaultInputDevice);
      } else if (event == "start") {
        pinner.start();
      } else if (event == "call" || event == "music" || event == "hangup") {
        std::erase_if(hw.processList, [](const auto& process) { return process.id == 40; });
        if (event == "call") hw.processList.push_back({40, 3000, std::string("us.zoom.xos"), true, false});
        if (event == "music") hw.processList.push_back({50, 3001, std::string("org.gnome.Music"), false, true});
        monitor.refresh();
      } else if (event == "off") {
        store.set(Keys::pinInput, StoreValue::boolean(false));
      } else if (event == "noMeetings") {
        store.set(Keys::meetingApps, StoreValue::stringArray({}));
      } else if (event.starts_with("prefer=")) {
        store.set(Keys::preferredInputUID, StoreValue::string(*hw.deviceUID(named.at(value))));
      } else if (event.starts_with("mode=")) {
        store.set(Keys::callMode, StoreValue::string(value));
      } else if (event.starts_with("keep=") || event.starts_with("pin=")) {
        records.emplace_back().address = value;
        records.back().pinInput = event[0] == 'p';
        settings.setDevices(records);
      } else if (event.starts_with("override=")) {
        pinner.setOverride(value == "forcePin" ? Override::forcePin : Override::allowHeadphoneMic);
      } else if (event == "slow") {
        hw.answerDelay = 0.5;
      } else {
        ASSERT_EQ(event, "refuse");
        hw.refuseWrites[AudioProperty::defaultInputDevice] = !hw.refuseWrites[AudioProperty::defaultInputDevice];
      }
    }
    rt.runReady();
  }

  const std::map<std::string, AudioObjectID> named{
      {"speakers", speakers}, {"mic", mic}, {"usb", usb}, {"bt", bt}, {"le", le}};
  std::vector<std::string> statuses{"idle"};
};

TEST_P(InputPinnerTest, Scenario) {
  const Scenario& s = GetParam();
  play(s.script);
  EXPECT_EQ(describe(pinner.status()), s.status);
  EXPECT_EQ(hw.defaults[AudioProperty::defaultInputDevice], s.input);
  EXPECT_EQ(hw.writes.size(), s.writes);
  const auto& lines = log->lines;
  EXPECT_EQ(lines.empty() ? "" : lines.back(), s.lastLog);
  EXPECT_LE(std::count(lines.begin(), lines.end(), fightLine), 1) << "the fight is logged once";
  const auto pins = std::count_if(lines.begin(), lines.end(), [](const auto& l) { return l.starts_with("pinned "); });
  EXPECT_EQ(pins, std::count_if(hw.answers.begin(), hw.answers.end(), [](const auto& a) { return a.accepted; }))
      << "only what the server accepted is logged";
  EXPECT_EQ(std::adjacent_find(statuses.begin(), statuses.end()), statuses.end()) << "onChange without a change";
  EXPECT_EQ(statuses.back(), s.status) << "the last change was reported";
}

INSTANTIATE_TEST_SUITE_P(Pinning, InputPinnerTest, testing::Values(
    // Which input is corrected, to which microphone, and what the status says.
    Scenario{"start", pinned, mic, 0},
    Scenario{"start bt", pinned, mic, 1, pinnedLine},
    Scenario{"start le", pinned, mic, 1, "pinned input to Built-in Microphone (was Loop Buds)"},
    Scenario{"start usb", "idle", usb, 0},
    Scenario{"-bt -le start", "idle", mic, 0},
    Scenario{"prefer=usb start bt", "pinned:Yeti", usb, 1, "pinned input to Yeti (was Sleep Buds)"},
    Scenario{"prefer=le start bt", pinned, mic, 1, pinnedLine},
    Scenario{"prefer=speakers start bt", pinned, mic, 1, pinnedLine},
    Scenario{"-mic -usb start bt", "noMicrophone", bt, 0},
    Scenario{"off start bt", "off", bt, 0},
    // The server's answer decides: nothing is pinned before it, and after a refusal the input is
    // where the server kept it, corrected again at the usual pace; a server that keeps refusing is
    // fought like a program. An answer finds the pinner's decision made afresh.
    Scenario{"slow bt start +0.49", "idle", mic, 1},
    Scenario{"slow bt start +0.5", pinned, mic, 1, pinnedLine},
    Scenario{"bt refuse start", "idle", bt, 1},
    Scenario{"bt refuse start +0.1 refuse +0.2", pinned, mic, 2, pinnedLine},
    Scenario{"bt refuse start +3", "fighting", bt, 5, fightLine},
    Scenario{"slow start bt call +1", "releasedForCall", mic, 1, pinnedLine},
    // Headphones records: the first whose address the device names decides.
    Scenario{"keep=AA:BB:CC:DD:EE:FF pin=aa-bb-cc-dd-ee-ff start bt", "idle", bt, 0},
    Scenario{"pin=aa-bb-cc-dd-ee-ff keep=AA:BB:CC:DD:EE:FF start bt", pinned, mic, 1, pinnedLine},
    Scenario{"keep=11-22-33-44-55-66 start bt le", "idle", le, 1, pinnedLine},
    // Corrections at least 0.3 s apart; one asked for too soon is deferred, not dropped.
    Scenario{"start bt +0.1 bt +0.19", pinned, bt, 1, pinnedLine},
    Scenario{"start bt +0.1 bt +0.2", pinned, mic, 2, pinnedLine},
    Scenario{"+0.37 start bt +0.1 bt +0.2", pinned, mic, 2, pinnedLine},
    // Six corrections within ten seconds are a fight: the sixth is not made; a call's end clears it.
    Scenario{"start +1 bt +1 bt +1 bt +1 bt +1 bt", pinned, mic, 5, pinnedLine},
    Scenario{"start +1 bt +1 bt +1 bt +1 bt +1 bt +1 bt +1 bt mic bt", "fighting", bt, 5, fightLine},
    Scenario{"start +2 bt +2 bt +2 bt +2 bt +2 bt +2 bt", "fighting", bt, 5, fightLine},
    Scenario{"start +2.01 bt +2.01 bt +2.01 bt +2.01 bt +2.01 bt +2.01 bt", pinned, mic, 6, pinnedLine},
    Scenario{"start +1 bt +1 bt +1 bt +1 bt +1 bt +1 bt call hangup +3", pinned, mic, 6, pinnedLine},
    // Calls release at once and pin again 3 s after they end.
    Scenario{"start call bt", "releasedForCall", bt, 0},
    Scenario{"start call bt hangup +2.99", "releasedForCall", bt, 0},
    Scenario{"start call bt hangup +3", pinned, mic, 1, pinnedLine},
    Scenario{"start call bt hangup +2 call +5", "releasedForCall", bt, 0},
    Scenario{"start call bt hangup +1 music +2", pinned, mic, 1, pinnedLine},
    Scenario{"call bt start", "releasedForCall", bt, 0},
    Scenario{"noMeetings start call bt", pinned, mic, 1, pinnedLine},
    // Call mode and the user's override.
    Scenario{"mode=alwaysHeadphoneMic start bt", "releasedForCall", bt, 0},
    Scenario{"mode=alwaysPinned start call bt", pinned, mic, 1, pinnedLine},
    Scenario{"mode=alwaysHeadphoneMic override=forcePin start call bt", pinned, mic, 1, pinnedLine},
    Scenario{"mode=alwaysPinned override=allowHeadphoneMic start bt", "releasedManually", bt, 0}));

TEST_F(InputPinnerTest, StartingAgainReplacesTheRegistrationsAndAGonePinnerLeavesNothingBehind) {
  auto owned = std::make_unique<InputPinner>(rt, settings, hw, monitor);
  owned->start();
  owned->start();
  EXPECT_EQ(hw.listenerCount(), 2u);
  owned->setOverride(Override::forcePin);
  play("slow call hangup bt +0.1 bt");  // a re-pin and the write's answer are waiting
  owned.reset();
  EXPECT_EQ(hw.listenerCount(), 0u);
  play("+5 bt call");
  EXPECT_EQ(hw.writes.size(), 1u);
}

}  // namespace
}  // namespace wh
