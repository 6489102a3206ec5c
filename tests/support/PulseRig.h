#pragma once
// A private sound server for tests, in a temporary folder: a PulseAudio daemon, or pipewire +
// wireplumber + pipewire-pulse. Its null sinks and sources pass for a laptop's card and Bluetooth
// headphones. The servers die with the rig, also when a test fails halfway.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace wh::test {

enum class SoundServer { pulseAudio, pipeWire };
// For tests on both servers: INSTANTIATE_TEST_SUITE_P(S, T, bothSoundServers(), soundServerTestName).
testing::internal::ParamGenerator<SoundServer> bothSoundServers();
std::string soundServerTestName(const testing::TestParamInfo<SoundServer>& info);

class PulseRig {
 public:
  struct Device {
    bool sink = true;
    std::string name, description;
    unsigned rate = 48000, channels = 2;
    std::map<std::string, std::string> properties;  // device.bus, api.bluez5.address, ...
  };

  static constexpr const char* laptopSpeakers = "alsa_output.pci-0000_00_1f.3.analog-stereo";
  static constexpr const char* laptopMicrophone = "alsa_input.pci-0000_00_1f.3.analog-stereo";
  static constexpr const char* headphonesOutput = "bluez_output.AA_BB_CC_DD_EE_FF.1";
  static constexpr const char* headphonesInput = "bluez_input.AA_BB_CC_DD_EE_FF.0";
  static constexpr const char* headphonesLoopback = "bluez_input.AA:BB:CC:DD:EE:FF";  // WirePlumber 0.5

  // The laptop's speakers and microphone (the defaults), headphones as WirePlumber 0.4 makes them
  // (output 44.1 kHz, headset microphone 16 kHz mono), a pair as PulseAudio makes them, a virtual
  // sink, and WirePlumber 0.5's loopback source in front of the headset microphone.
  static std::vector<Device> laptopWithHeadphones();

  explicit PulseRig(std::vector<Device> devices = laptopWithHeadphones(), SoundServer server = SoundServer::pulseAudio);
  explicit PulseRig(SoundServer server) : PulseRig(laptopWithHeadphones(), server) {}

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  const std::string& server() const { return server_; }  // "unix:<socket>"
  std::string nodeName(std::string name) const;  // as this server spells it (PulseAudio refuses ":")
  // The PipeWire daemon's socket (there is none on PulseAudio).
  std::string pipeWireSocket() const { return (folder_.path() / "runtime" / "pipewire-0").string(); }

  // A client's environment; `properties` goes to PULSE_PROP ("application.id=org.example.Player").
  // PipeWire's own clients find the rig's daemon through PIPEWIRE_RUNTIME_DIR.
  ChildProcess::Environment clientEnvironment(const std::string& properties = {}) const;
  CommandResult pactl(const std::vector<std::string>& arguments) const;
  // pactl's output without the final line break ("get-default-sink" and the like).
  std::string pactlLine(const std::vector<std::string>& arguments) const;
  // The argument of each loaded copy of the module, as pactl lists them.
  std::vector<std::string> moduleArguments(const std::string& module) const;

  // pacat playing silence, parecord recording; tests/tools/pulse_client with `arguments` once its
  // stream is set up (null if it never is).
  auto play(const std::string& properties = {}) const { return run({"pacat", "/dev/zero"}, properties); }
  auto record(const std::string& properties = {}) const { return run({"parecord", "/dev/null"}, properties); }
  std::unique_ptr<ChildProcess> client(const std::vector<std::string>& arguments,
                                       const std::string& properties = {}) const;
  // parecord in a sandbox as Flatpak makes one: its own pid namespace (it is pid 1 there) and a
  // root holding a .flatpak-info that names `appID`. Null where no sandbox can be made.
  std::unique_ptr<ChildProcess> sandboxedRecorder(const std::string& appID, const std::string& properties = {}) const;

  // The sound level at a sink's monitor, in dB of full scale (RMS over the second half of 0.6 s),
  // measured again for up to 10 s until it is within 0.5 dB of `wanted`; without it, the loudest of
  // three windows above -20 (a dropout on a loaded machine only lowers a window).
  double level(const std::string& sink, double wanted = 1) const;

  // Something that will not let playback streams stay anywhere but on `sink`: it moves them all
  // there every 0.3 s for as long as it lives.
  std::unique_ptr<ChildProcess> keepMovingStreams(const std::string& sink) const;

  // Takes a device away as unplugging it would (false when it could not).
  bool removeDevice(const std::string& name) const;

  // Ends the server as a crash would; start() brings it back as it was.
  void stop() { daemons_.clear(); }
  bool start();
  // Signals the process that serves the protocol (SIGSTOP freezes it, SIGCONT lets it go on).
  void signalDaemon(int signal);

 private:
  std::unique_ptr<ChildProcess> run(std::vector<std::string> argv, const std::string& properties) const {
    return std::make_unique<ChildProcess>(argv, clientEnvironment(properties));
  }
  void daemon(const std::string& program, const std::vector<std::string>& arguments);
  bool launch();

  TempDir folder_{"wrenhaven-pulse"};
  std::vector<Device> devices_;
  SoundServer kind_;
  std::string server_;
  std::string whyNot_;
  std::vector<std::unique_ptr<ChildProcess>> daemons_;  // the protocol's server last (killed with the rig)
};

}  // namespace wh::test
