#pragma once
// A private sound server for tests, on a socket of its own in a temporary folder: a PulseAudio
// daemon, or PipeWire (pipewire, wireplumber and pipewire-pulse on their own runtime, config and
// state folders). Its null sinks and sources pass for a laptop's own card and for Bluetooth
// headphones, and real clients play and record on it. Nothing of the user's own sound session is
// touched. The servers stop when the rig goes away (clients are ChildProcesses that die with
// their owner), also when a test fails halfway.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace wh::test {

enum class SoundServer { pulseAudio, pipeWire };
std::string soundServerName(SoundServer server);
// For tests that run on both servers: INSTANTIATE_TEST_SUITE_P(S, T, bothSoundServers(), soundServerTestName).
testing::internal::ParamGenerator<SoundServer> bothSoundServers();
std::string soundServerTestName(const testing::TestParamInfo<SoundServer>& info);

class PulseRig {
 public:
  struct Device {
    bool sink = true;
    std::string name;
    std::string description;
    unsigned rate = 48000;
    unsigned channels = 2;
    // Device properties such as device.bus, device.api, api.bluez5.address.
    std::map<std::string, std::string> properties;
  };

  static constexpr const char* laptopSpeakers = "alsa_output.pci-0000_00_1f.3.analog-stereo";
  static constexpr const char* laptopMicrophone = "alsa_input.pci-0000_00_1f.3.analog-stereo";
  static constexpr const char* headphonesAddress = "AA:BB:CC:DD:EE:FF";
  static constexpr const char* headphonesOutput = "bluez_output.AA_BB_CC_DD_EE_FF.1";
  static constexpr const char* headphonesInput = "bluez_input.AA_BB_CC_DD_EE_FF.0";
  // WirePlumber 0.5's loopback source in front of the headset microphone (PulseAudio spells the
  // colons "_": see nodeName).
  static constexpr const char* headphonesLoopback = "bluez_input.AA:BB:CC:DD:EE:FF";
  static constexpr const char* olderHeadphonesAddress = "11:22:33:44:55:66";
  static constexpr const char* olderHeadphonesOutput = "bluez_sink.11_22_33_44_55_66.a2dp_sink";
  static constexpr const char* virtualSink = "rig_virtual_sink";

  // The laptop's speakers (48 kHz) and microphone, headphones named the way PipeWire names them
  // (output 44.1 kHz, headset microphone 16 kHz mono), a second pair named the way PulseAudio
  // names them, and a plain virtual sink. The laptop's speakers and microphone are the defaults.
  static std::vector<Device> laptopWithHeadphones();
  // The same with WirePlumber 0.5's loopback source.
  static std::vector<Device> laptopWithLoopback();

  explicit PulseRig(std::vector<Device> devices = laptopWithHeadphones(), SoundServer server = SoundServer::pulseAudio);
  explicit PulseRig(SoundServer server) : PulseRig(laptopWithHeadphones(), server) {}
  ~PulseRig();
  PulseRig(const PulseRig&) = delete;
  PulseRig& operator=(const PulseRig&) = delete;

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  SoundServer soundServer() const { return kind_; }
  // The address for PULSE_SERVER or the adapter's options: "unix:<socket>".
  const std::string& server() const { return server_; }
  const std::filesystem::path& folder() const { return folder_.path(); }
  // A device's name as this server spells it.
  std::string nodeName(const std::string& name) const;

  // The environment of a client of this server; `properties` goes to PULSE_PROP
  // ("application.id=org.example.Player application.name=Player").
  ChildProcess::Environment clientEnvironment(const std::string& properties = {}) const;
  // pactl against this server.
  CommandResult pactl(const std::vector<std::string>& arguments) const;
  // pactl's output without the final line break ("pactl get-default-sink" and the like).
  std::string pactlLine(const std::vector<std::string>& arguments) const;

  // pacat playing silence until it is stopped.
  std::unique_ptr<ChildProcess> play(const std::string& properties = {}) const;
  // parecord recording into /dev/null until it is stopped.
  std::unique_ptr<ChildProcess> record(const std::string& properties = {}) const;
  // paplay playing a short sound file (about `seconds` long) and ending by itself.
  std::unique_ptr<ChildProcess> playShort(double seconds, const std::string& properties = {}) const;
  // The steerable client (tests/tools/pulse_client), started with `arguments` and waited for
  // until its stream is ready; SIGUSR1 corks and SIGUSR2 uncorks it. Null when it did not come up.
  std::unique_ptr<ChildProcess> client(const std::vector<std::string>& arguments,
                                       const std::string& properties = {}) const;
  // parecord inside a sandbox as Flatpak makes one: its own pid namespace (it is pid 1 there) and
  // a root that holds a .flatpak-info naming `appID`. Null when the sandbox cannot be made.
  std::unique_ptr<ChildProcess> sandboxedRecorder(const std::string& appID, const std::string& properties = {}) const;

  // Ends the server: politely, or at once as a crash would.
  void stop(bool crash = false);
  // Starts it again with the same devices on the same socket; true once it answers.
  bool start();
  bool running() const { return !daemons_.empty(); }
  // Sends the process that serves the protocol a signal (SIGSTOP freezes it, SIGCONT lets it go on).
  void signalDaemon(int signal);
  // What the server wrote to its logs.
  std::string log() const;

 private:
  bool launch();
  bool launchPulseAudio();
  bool launchPipeWire();
  void daemon(const std::string& program, const std::vector<std::string>& arguments,
              const ChildProcess::Environment& environment);
  bool answers();
  bool setDefaults();
  ChildProcess::Environment pipeWireEnvironment() const;

  TempDir folder_{"wrenhaven-pulse"};
  std::vector<Device> devices_;
  SoundServer kind_;
  std::string server_;
  std::string whyNot_;
  std::vector<std::unique_ptr<ChildProcess>> daemons_;  // the protocol's server last
};

}  // namespace wh::test
