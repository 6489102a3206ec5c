// The diagnostics text. The device and process lines against a real sound server are checked by
// the adapter tests; here the parts that only the core decides.
#include <gtest/gtest.h>

#include "AudioWorld.h"
#include "core/audio/CoreAudio.h"
#include "core/diagnostics/Diagnose.h"

namespace wh {
namespace {

class DiagnoseTest : public testing::Test, protected test::AudioWorld {
 protected:
  DiagnoseTest() {
    sources.build = {"com.quintelbarrows.wrenhaven", "0.1.0", "7"};
    sources.systemVersion = "Debian GNU/Linux 12 (bookworm)";
    sources.audio = &hw;
    sources.processes = &monitor;
  }
  std::string text() { return Diagnose(sources).text(); }
  AudioProcessMonitor monitor{rt, hw, grouping};
  Diagnose::Sources sources;
};

TEST_F(DiagnoseTest, MarksRolesAndDefaultsNamesThePreferredMicTheCallBatteriesAndInputAccess) {
  hw.deviceList = {{3, "mic", "Microphone", Transport::builtIn, 1, 0, 44100.9},
                   {4, "headset", "Headset", Transport::bluetooth, 1, 1, std::nullopt},
                   {5, "le", "LE Buds", Transport::bluetoothLE, 0, 1, 48000.0},
                   {7, "dock", "Dock", fourCharCode("usb "), 0, 0, 96000.0}};
  hw.defaults[AudioProperty::defaultOutputDevice] = 4;
  hw.defaults[AudioProperty::defaultInputDevice] = 4;
  hw.processList = {{11, 2001, std::string("us.zoom.xos"), true, true}, {13, std::nullopt, std::nullopt, false, true}};
  sources.preferredMicrophone = [this] { return AudioDevice::builtInMicrophone(hw); };
  sources.meetingApps = {"us.zoom.xos"};
  BatteryLevels buds, single;
  buds.left = 80;
  buds.right = 70;
  single.single = 55;
  sources.batteryEntries = [&] {
    return std::vector<BatteryEntry>{{std::string("WH-1000XM4"), std::nullopt, single},
                                     {std::nullopt, std::string("aa-bb-cc-dd-ee-ff"), buds}};
  };
  sources.inputAccess = {true, false};
  hw.cardList = {{8, "alsa_card.pci-0000_00_1f.3", "Built-in Audio", Transport::builtIn, "output:analog-stereo", {}},
                 {9, "bluez_card.AA_BB_CC_DD_EE_FF", "", Transport::bluetooth, "headset-head-unit",
                  {{"a2dp-sink", ProfileKind::music}, {"headset-head-unit", ProfileKind::headset}}}};
  const std::string full = text();
  for (const char* part : {"Wrenhaven 0.1.0 (7) on Debian GNU/Linux 12 (bookworm)\n\nAudio devices:\n",
                           "  Microphone  [built-in in] 44100 Hz\n",
                           "  Headset  [bluetooth in out] ? default output, default input\n",
                           "  LE Buds  [bluetooth out] 48000 Hz\n  Dock  [usb ] 96000 Hz\nPreferred mic: Microphone\n\nBluetooth cards:\n"
                           "  bluez_card.AA_BB_CC_DD_EE_FF: headset-head-unit (headset profile; offers a2dp-sink, "
                           "headset-head-unit)\n\nAudio processes:\n",
                           "  pid 2001 us.zoom.xos INPUT OUTPUT\n  pid 0 (no bundle id) OUTPUT\nIn a call: true\n",
                           "\nBattery entries in BlueZ: \n  WH-1000XM4: 55%\n  ?: L 80% · R 70%\n",
                           "Key access: not allowed (media-key input devices readable: yes, /dev/uinput writable: no)"}) {
    EXPECT_NE(full.find(part), std::string::npos) << part << " in\n" << full;
  }
  EXPECT_EQ(monitor.processes().size(), 2u) << "the text refreshed the monitor";
  sources.meetingApps = {};
  EXPECT_NE(text().find("In a call: false"), std::string::npos) << "an empty list never means a call";
  sources.audio = nullptr;
  sources.processes = nullptr;
  EXPECT_NE(text().find("Preferred mic: none\n\nAudio processes:\nIn a call: false\n"), std::string::npos) << text();
}

TEST_F(DiagnoseTest, ShowsUnderEachHeadphonesCardTheServersSwitchAndWhatTheGuardLastDid) {
  const AudioCard headphones{9, "bluez_card.AA_BB_CC_DD_EE_FF", "WH-1000XM4", Transport::bluetooth, "a2dp-sink",
                             {{"a2dp-sink", ProfileKind::music}, {"headset-head-unit", ProfileKind::headset}}};
  hw.cardList = {headphones};
  const std::string card = "  WH-1000XM4: a2dp-sink (music profile; offers a2dp-sink, headset-head-unit)\n";
  EXPECT_NE(text().find(card + "\nAudio processes:"), std::string::npos) << "nothing more without the sources";

  int reads = 0;
  sources.autoSwitch = [&reads] {
    ++reads;
    return std::string("PulseAudio's module-bluetooth-policy: off, by Wrenhaven (the person's setting: auto_switch=1)");
  };
  sources.guardAction = [](const std::string& name) {
    return name == "bluez_card.AA_BB_CC_DD_EE_FF" ? "moved back to its music profile: the call is over" : "";
  };
  hw.cardList.push_back(headphones);
  hw.cardList.back().name = "bluez_card.11_22_33_44_55_66";
  const std::string lines =
      "    automatic headset switching: PulseAudio's module-bluetooth-policy: off, by Wrenhaven (the person's "
      "setting: auto_switch=1)\n";
  const std::string full = text();
  EXPECT_NE(full.find(card + lines + "    profile guard: moved back to its music profile: the call is over\n" + card +
                      lines + "    profile guard: nothing done since it came\n"),
            std::string::npos)
      << full;
  EXPECT_EQ(reads, 1) << "the server is asked once";
}

}  // namespace
}  // namespace wh
