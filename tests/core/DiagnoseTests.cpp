// The diagnostics text.
#include <gtest/gtest.h>

#include "AudioWorld.h"
#include "core/audio/CoreAudio.h"
#include "core/diagnostics/Diagnose.h"

namespace wh {
namespace {

class DiagnoseTest : public testing::Test, protected test::AudioWorld {
 protected:
  AudioProcessMonitor monitor{rt, hw, grouping};

  Diagnose::Sources sources() {
    Diagnose::Sources s;
    s.build = {"com.quintelbarrows.wrenhaven", "0.1.0", "7"};
    s.systemVersion = "Debian GNU/Linux 12 (bookworm)";
    s.audio = &hw;
    s.processes = &monitor;
    return s;
  }
};

TEST_F(DiagnoseTest, ListsEveryDeviceWithTransportDirectionRateAndDefaultRoles) {
  hw.deviceList = {
      {2, "speakers", "Speakers", Transport::builtIn, 0, 1, 48000.0},
      {3, "mic", "Microphone", Transport::builtIn, 1, 0, 44100.9},
      {4, "headset", "Headset", Transport::bluetooth, 1, 1, std::nullopt},
      {5, "le", "LE Buds", Transport::bluetoothLE, 0, 1, 48000.0},
      {6, "sum", "Combined", Transport::aggregate, 0, 1, 48000.0},
      {7, "dock", "Dock", fourCharCode("usb "), 0, 0, 96000.0},
  };
  hw.defaults[AudioProperty::defaultOutputDevice] = 4;
  hw.defaults[AudioProperty::defaultInputDevice] = 4;
  EXPECT_EQ(Diagnose(sources()).text(),
            "Wrenhaven 0.1.0 (7) on Debian GNU/Linux 12 (bookworm)\n"
            "\nAudio devices:\n"
            "  Speakers  [built-in out] 48000 Hz\n"
            "  Microphone  [built-in in] 44100 Hz\n"
            "  Headset  [bluetooth in out] ? default output, default input\n"
            "  LE Buds  [bluetooth out] 48000 Hz\n"
            "  Combined  [aggregate out] 48000 Hz\n"
            "  Dock  [usb ] 96000 Hz\n"
            "Preferred mic: none\n"
            "\nAudio processes:\n"
            "In a call: false\n"
            "\nBattery entries in BlueZ: \n"
            "Accessibility trusted: false (media-key input devices readable: no, /dev/uinput writable: no)");

  hw.defaults[AudioProperty::defaultInputDevice] = 3;
  const std::string text = Diagnose(sources()).text();
  EXPECT_NE(text.find("  Microphone  [built-in in] 44100 Hz default input\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  Headset  [bluetooth in out] ? default output\n"), std::string::npos) << text;
}

TEST_F(DiagnoseTest, ListsTheMonitorsFreshProcessListWithAStandInForMissingBundleIDs) {
  hw.processList = {{11, 2001, std::string("org.example.Player"), false, true},
                    {12, 2002, std::string("org.example.Call"), true, true},
                    {13, std::nullopt, std::nullopt, false, false}};
  const std::string text = Diagnose(sources()).text();
  EXPECT_NE(text.find("\nAudio processes:\n"
                      "  pid 2001 org.example.Player OUTPUT\n"
                      "  pid 2002 org.example.Call INPUT OUTPUT\n"
                      "  pid 0 (no bundle id)"),
            std::string::npos)
      << text;
  EXPECT_EQ(monitor.processes().size(), 3u) << "the text refreshed the monitor";
}

TEST_F(DiagnoseTest, WithoutASoundServerTheTextSaysSoAndTheHeadingsStay) {
  Diagnose::Sources s = sources();
  s.audio = nullptr;
  s.processes = nullptr;
  s.audioProblem = "Connection refused";
  EXPECT_EQ(Diagnose(s).text(),
            "Wrenhaven 0.1.0 (7) on Debian GNU/Linux 12 (bookworm)\n"
            "\nAudio devices:\n"
            "  no sound server reachable: Connection refused\n"
            "Preferred mic: none\n"
            "\nAudio processes:\n"
            "In a call: false\n"
            "\nBattery entries in BlueZ: \n"
            "Accessibility trusted: false (media-key input devices readable: no, /dev/uinput writable: no)");
}

TEST_F(DiagnoseTest, NamesThePreferredMicrophoneTheCallStateBatteriesAndInputAccess) {
  hw.deviceList = {{3, "mic", "Microphone", Transport::builtIn, 1, 0, 48000.0}};
  hw.processList = {{11, 2001, std::string("us.zoom.xos"), true, true}};
  Diagnose::Sources s = sources();
  s.preferredMicrophone = [this] { return AudioDevice::builtInMicrophone(hw); };
  s.meetingApps = {"us.zoom.xos"};
  BatteryLevels buds;
  buds.left = 80;
  buds.right = 70;
  BatteryLevels single;
  single.single = 55;
  s.batteryEntries = [&] {
    return std::vector<BatteryEntry>{{std::string("WH-1000XM4"), std::nullopt, single},
                                     {std::nullopt, std::string("aa-bb-cc-dd-ee-ff"), buds}};
  };
  s.inputAccess = {true, true};
  const std::string text = Diagnose(s).text();
  EXPECT_NE(text.find("  Microphone  [built-in in] 48000 Hz\nPreferred mic: Microphone\n\nAudio processes:\n"
                      "  pid 2001 us.zoom.xos INPUT OUTPUT\nIn a call: true\n"
                      "\nBattery entries in BlueZ: \n  WH-1000XM4: 55%\n  ?: L 80% · R 70%\n"
                      "Accessibility trusted: true (media-key input devices readable: yes, /dev/uinput writable: yes)"),
            std::string::npos)
      << text;
  s.meetingApps = {};
  EXPECT_NE(Diagnose(s).text().find("In a call: false"), std::string::npos) << "an empty list never means a call";
}

TEST(DiagnoseTransport, NamesKnownCodesAndSpellsOthers) {
  EXPECT_EQ(Diagnose::transport(fourCharCode("blue")), "bluetooth");
  EXPECT_EQ(Diagnose::transport(fourCharCode("blea")), "bluetooth");
  EXPECT_EQ(Diagnose::transport(fourCharCode("bltn")), "built-in");
  EXPECT_EQ(Diagnose::transport(fourCharCode("grup")), "aggregate");
  EXPECT_EQ(Diagnose::transport(fourCharCode("virt")), "virt");
  EXPECT_EQ(Diagnose::transport(fourCharCode("1394")), "1394");
}

}  // namespace
}  // namespace wh
