// The adapter's mirror of the sound server, fed the records the connection would feed it, in the
// orders the server may send them.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "core/audio/CoreAudio.h"
#include "doubles/VirtualRuntime.h"
#include "platform/linux/audio/PulseMirror.h"

namespace wh::platform {
namespace {

// The mirror without a server: writes are the connection's business.
class Mirror final : public PulseMirror {
 public:
  using PulseMirror::PulseMirror;
  void setDefaultDevice(AudioProperty, AudioObjectID, WriteDone) override {}
  void setCardProfile(AudioObjectID, const std::string&, WriteDone) override {}
};

PulseDeviceInfo device(std::uint32_t index, bool sink, const std::string& name, PulseProperties properties = {},
                       std::uint32_t rate = 48000) {
  return {index, sink, name, "About " + name, rate, false, false, false, std::move(properties), std::nullopt};
}

// Property sets as the servers really report them.
TEST(PulseTransport, ClassifiesTheNodesEachServerReallyReports) {
  struct Case { const char* what; std::string name; PulseProperties properties; bool hardware; std::uint32_t expected; };
  const std::uint32_t blue = Transport::bluetooth, grup = Transport::aggregate, bltn = Transport::builtIn;
  const std::vector<Case> cases = {
      {"PipeWire 0.3 + WirePlumber 0.4, A2DP", "bluez_output.AA_BB_CC_DD_EE_FF.1",
       {{"api.bluez5.address", "AA:BB:CC:DD:EE:FF"}, {"api.bluez5.codec", "aac"}, {"api.bluez5.profile", "a2dp-sink"},
        {"device.id", "45"}, {"factory.name", "api.bluez5.a2dp.sink"}}, true, blue},
      {"WirePlumber 0.5 loopback renamed by a rule", "headset-mic", {{"bluez5.loopback", "true"}, {"device.id", "45"}},
       false, blue},
      {"a BlueZ node renamed by a rule", "my-headphones",
       {{"api.bluez5.address", "AA:BB:CC:DD:EE:FF"}, {"api.bluez5.profile", "a2dp-sink"}}, true, blue},
      {"WirePlumber 0.5, LE audio", "bluez_output.AA_BB_CC_DD_EE_FF.1",
       {{"api.bluez5.profile", "bap-sink"}, {"api.bluez5.codec", "lc3"}, {"device.api", "bluez5"}}, true,
       Transport::bluetoothLE},
      {"PulseAudio, A2DP", "bluez_sink.11_22_33_44_55_66.a2dp_sink",
       {{"bluetooth.protocol", "a2dp_sink"}, {"device.bus", "bluetooth"}, {"device.form_factor", "headphone"}}, true, blue},
      {"PulseAudio, headset", "bluez_source.11_22_33_44_55_66.handsfree_head_unit",
       {{"bluetooth.protocol", "handsfree_head_unit"}, {"device.string", "11:22:33:44:55:66"}}, true, blue},
      {"laptop card", "alsa_output.pci-0000_00_1f.3.analog-stereo",
       {{"device.api", "alsa"}, {"device.bus", "pci"}, {"device.form_factor", "internal"}}, true, bltn},
      {"laptop card on the SoC", "alsa_input.platform-sof_sdw.HiFi__hw_sofsoundwire_4__source",
       {{"device.api", "alsa"}, {"device.bus", "platform"}}, true, bltn},
      {"USB headset", "alsa_input.usb-Logitech_USB_Headset-00.mono-fallback",
       {{"device.api", "alsa"}, {"device.bus", "usb"}, {"device.form_factor", "headset"}}, true, fourCharCode("usb ")},
      {"filter chain", "effect_input.eq", {{"media.class", "Audio/Sink"}, {"node.virtual", "true"}}, false, grup},
  };
  for (const auto& c : cases) EXPECT_EQ(pulseTransport(c.name, c.properties, c.hardware, false), c.expected) << c.what;
  EXPECT_EQ(pulseTransport("tunnel.host.sink", {}, false, true), fourCharCode("ntwk"));
}

class PulseMirrorTest : public testing::Test {
 protected:
  VirtualRuntime rt;
  Mirror mirror{rt.main()};
};

TEST_F(PulseMirrorTest, DevicesAreSinksThenSourcesWithoutMonitorsAndTakeWhatTheirCardSays) {
  auto monitor = device(0, false, "speakers.monitor");
  monitor.isMonitor = true;
  mirror.applyDevice(device(4, false, "mic", {}, 16000));
  mirror.applyDevice(monitor);
  mirror.applyDevice(device(1, true, "speakers"));
  mirror.applyDefaults("speakers", "speakers.monitor");
  const auto all = AudioDevice::all(mirror);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_TRUE(all[0].uid == "speakers" && all[0].hasOutput && !all[0].hasInput);
  EXPECT_EQ(mirror.deviceNominalSampleRate(all[1].id), 16000.0);
  EXPECT_FALSE(DefaultDevice::id(mirror, Direction::input)) << "a monitor is no device";
  mirror.noteDefault(false, "mic");
  EXPECT_EQ(DefaultDevice::id(mirror, Direction::input), all[1].id);

  mirror.removeDevice(true, 1);
  EXPECT_FALSE(mirror.deviceUID(all[0].id) || DefaultDevice::id(mirror, Direction::output)) << "gone reads as nothing";

  // A node that says nothing of itself is what its card is, once the card is known.
  auto renamed = device(5, false, "headset-mic");
  renamed.card = 7;
  mirror.applyDevice(renamed);
  const AudioObjectID id = AudioDevice::byUID(mirror, "headset-mic")->id;
  EXPECT_EQ(mirror.deviceTransport(id), Transport::aggregate);
  mirror.applyCard({7, "bluez_card.AA_BB_CC_DD_EE_FF", "", {{"device.api", "bluez5"}}, "a2dp-sink", {}});
  EXPECT_EQ(mirror.deviceTransport(id), Transport::bluetooth);
}

TEST_F(PulseMirrorTest, ProcessesAreClientsWithStreamsInWhateverOrderTheServerReportsThem) {
  mirror.applyClient({3, 300, std::nullopt});
  EXPECT_TRUE(mirror.processObjects().empty()) << "a client without streams is no audio process";
  mirror.applyStream(true, {10, 3, false, false});
  mirror.applyStream(false, {20, 4, false, true});  // a level meter, reported before its client
  mirror.applyClient({4, std::nullopt, std::string("org.example.Meter")});
  mirror.applyStream(true, {30, std::nullopt, false, false});  // a module's own stream
  const auto ids = mirror.processObjects();
  ASSERT_EQ(ids.size(), 2u);
  EXPECT_EQ(mirror.processPID(ids[0]), 300) << "in the server's client order";
  EXPECT_EQ(mirror.processBundleID(ids[1]), "org.example.Meter");
  EXPECT_EQ(mirror.processIsRunningInput(ids[1]), false) << "a level meter is not input";
  mirror.applyStream(false, {21, 4, false, false});
  EXPECT_EQ(mirror.processIsRunningInput(ids[1]), true);
  mirror.removeClient(4);
  EXPECT_FALSE(mirror.processIsRunningInput(ids[1])) << "a process that is gone reads as nothing";
  mirror.clear();
  mirror.applyClient({3, 300, std::nullopt});
  mirror.applyStream(true, {11, 3, false, false});
  EXPECT_NE(mirror.processObjects().at(0), ids[0]) << "after a reconnection a client is a new object";
}

TEST_F(PulseMirrorTest, ListenersHearTheirOwnPropertyOncePerTurnAndNeverAfterRemoval) {
  std::map<AudioProperty, int> calls;
  for (auto property : {AudioProperty::devices, AudioProperty::defaultOutputDevice, AudioProperty::processObjectList}) {
    mirror.addListener(audioSystemObject, property, [&calls, property] { ++calls[property]; });
  }
  int dropped = 0;
  const auto token = mirror.addListener(audioSystemObject, AudioProperty::devices, [&] { ++dropped; });
  mirror.applyDevice(device(1, true, "speakers"));
  mirror.applyDevice(device(2, true, "headphones"));
  mirror.applyDevice(device(2, true, "headphones"));  // unchanged: no report
  EXPECT_TRUE(calls.empty()) << "delivered on the main queue";
  mirror.removeListener(token);  // removed while its delivery waits
  rt.runReady();
  EXPECT_EQ(calls, (std::map<AudioProperty, int>{{AudioProperty::devices, 1}})) << "two changes, one call";

  mirror.applyDefaults("headphones", "");
  mirror.applyClient({3, 300, std::nullopt});
  mirror.applyStream(true, {10, 3, true, false});
  rt.runReady();
  int running = 0;
  mirror.addListener(mirror.processObjects().at(0), AudioProperty::processIsRunningOutput, [&] { ++running; });
  mirror.applyStream(true, {10, 3, false, false});
  mirror.applyStream(true, {11, 3, false, false});  // still running: no second report
  mirror.clear();
  rt.runReady();
  EXPECT_EQ(running + dropped, 1);
  EXPECT_EQ(calls, (std::map<AudioProperty, int>{{AudioProperty::devices, 2}, {AudioProperty::defaultOutputDevice, 2},
                                                 {AudioProperty::processObjectList, 2}}));
}

// What the profile guard follows: a recording (a capture stream that is not a level meter) that
// starts, stops or moves to another source; playback and corked moves are not recordings.
TEST_F(PulseMirrorTest, RecordingsAreReportedWhenTheyStartStopOrMove) {
  int reports = 0;
  mirror.addListener(audioSystemObject, AudioProperty::recordings, [&] { ++reports; });
  mirror.applyClient({3, 300, std::nullopt});
  struct Step {
    const char* what;
    std::function<void()> change;
    int reports;
  };
  const std::vector<Step> steps = {
      {"starts", [&] { mirror.applyStream(false, {20, 3, false, false}, 5); }, 1},
      {"reported again", [&] { mirror.applyStream(false, {20, 3, false, false}, 5); }, 0},
      {"moves", [&] { mirror.applyStream(false, {20, 3, false, false}, 6); }, 1},
      {"corked", [&] { mirror.applyStream(false, {20, 3, true, false}, 6); }, 1},
      {"moves corked", [&] { mirror.applyStream(false, {20, 3, true, false}, 5); }, 0},
      {"a level meter", [&] { mirror.applyStream(false, {21, 3, false, true}, 5); }, 0},
      {"playback", [&] { mirror.applyStream(true, {22, 3, false, false}, 1); }, 0},
      {"uncorked", [&] { mirror.applyStream(false, {20, 3, false, false}, 5); }, 1},
      {"removed", [&] { mirror.removeStream(false, 20); }, 1},
      {"meter removed", [&] { mirror.removeStream(false, 21); }, 0},
  };
  for (const auto& step : steps) {
    reports = 0;
    step.change();
    rt.runReady();
    EXPECT_EQ(reports, step.reports) << step.what;
  }
}

}  // namespace
}  // namespace wh::platform
