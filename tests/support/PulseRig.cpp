#include "support/PulseRig.h"

#include <csignal>
#include <cstdint>
#include <fstream>
#include <sstream>

namespace wh::test {

namespace {

using namespace std::chrono_literals;

std::string readWhole(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeLittleEndian(std::ofstream& out, std::uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.put(static_cast<char>((value >> (8 * i)) & 0xff));
}

// A WAV file of silence: 16-bit stereo at 44.1 kHz.
void writeSilence(const std::filesystem::path& path, double seconds) {
  const std::uint32_t frames = static_cast<std::uint32_t>(seconds * 44100);
  const std::uint32_t dataBytes = frames * 4;
  std::ofstream out(path, std::ios::binary);
  out << "RIFF";
  writeLittleEndian(out, 36 + dataBytes, 4);
  out << "WAVEfmt ";
  writeLittleEndian(out, 16, 4);
  writeLittleEndian(out, 1, 2);          // PCM
  writeLittleEndian(out, 2, 2);          // channels
  writeLittleEndian(out, 44100, 4);      // rate
  writeLittleEndian(out, 44100 * 4, 4);  // bytes per second
  writeLittleEndian(out, 4, 2);          // bytes per frame
  writeLittleEndian(out, 16, 2);         // bits per sample
  out << "data";
  writeLittleEndian(out, dataBytes, 4);
  out << std::string(dataBytes, '\0');
}

}  // namespace

std::vector<PulseRig::Device> PulseRig::laptopWithHeadphones() {
  const std::map<std::string, std::string> laptop = {
      {"device.bus", "pci"}, {"device.form_factor", "internal"}, {"device.api", "alsa"}};
  const auto bluetooth = [](const std::string& address) {
    return std::map<std::string, std::string>{{"device.bus", "bluetooth"},
                                              {"device.api", "bluez5"},
                                              {"device.form_factor", "headphone"},
                                              {"api.bluez5.address", address}};
  };
  return {
      {true, laptopSpeakers, "Built-in Audio Analog Stereo", 48000, 2, laptop},
      {false, laptopMicrophone, "Built-in Audio Microphone", 48000, 2, laptop},
      {true, headphonesOutput, "WH-1000XM4", 44100, 2, bluetooth(headphonesAddress)},
      {false, headphonesInput, "WH-1000XM4 Microphone", 16000, 1, bluetooth(headphonesAddress)},
      {true, olderHeadphonesOutput, "Buds Pro", 48000, 2, bluetooth(olderHeadphonesAddress)},
      {true, virtualSink, "Virtual Sink", 48000, 2, {}},
  };
}

PulseRig::PulseRig(std::vector<Device> devices) : devices_(std::move(devices)) {
  if (findExecutable("pulseaudio").empty() || findExecutable("pactl").empty()) {
    whyNot_ = "pulseaudio and pulseaudio-utils are not installed (scripts/install-deps.sh installs them)";
    return;
  }
  const auto runtime = folder() / "runtime";
  std::filesystem::create_directories(runtime);
  std::filesystem::create_directories(folder() / "home");
  server_ = "unix:" + (runtime / "native").string();

  std::ofstream script(folder() / "rig.pa");
  script << "load-module module-native-protocol-unix socket=" << (runtime / "native").string()
         << " auth-anonymous=1\n";
  std::string firstSink;
  std::string firstSource;
  for (const auto& device : devices_) {
    const char* kind = device.sink ? "sink" : "source";
    script << "load-module module-null-" << kind << " " << kind << "_name=" << device.name << " rate=" << device.rate
           << " channels=" << device.channels << "\n";
    script << "update-" << kind << "-proplist " << device.name << " device.description=\"" << device.description
           << "\"";
    for (const auto& [key, value] : device.properties) script << " " << key << "=\"" << value << "\"";
    script << "\n";
    std::string& first = device.sink ? firstSink : firstSource;
    if (first.empty()) first = device.name;
  }
  if (!firstSink.empty()) script << "set-default-sink " << firstSink << "\n";
  if (!firstSource.empty()) script << "set-default-source " << firstSource << "\n";
  script.close();

  if (!launch() && whyNot_.empty()) whyNot_ = "the private PulseAudio daemon did not start";
}

PulseRig::~PulseRig() { stop(true); }

bool PulseRig::launch() {
  const auto home = folder() / "home";
  const auto socket = folder() / "runtime" / "native";
  std::error_code ignored;
  std::filesystem::remove(socket, ignored);  // left behind by a daemon that was killed
  // Running as root works in the per-user mode too (the daemon only warns); it never needs
  // --system here, as nobody but this test talks to it.
  daemon_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{findExecutable("pulseaudio"), "--daemonize=no", "-n", "--exit-idle-time=-1",
                               "--use-pid-file=no", "--realtime=no", "--high-priority=no",
                               "--log-target=file:" + (folder() / "daemon.log").string(),
                               "-F", (folder() / "rig.pa").string()},
      ChildProcess::Environment{{"HOME", home.string()},
                                {"XDG_CONFIG_HOME", (home / ".config").string()},
                                {"XDG_RUNTIME_DIR", (folder() / "runtime").string()},
                                {"PULSE_RUNTIME_PATH", (folder() / "runtime").string()},
                                {"PULSE_STATE_PATH", (home / "state").string()},
                                {"PULSE_SERVER", std::nullopt},
                                {"DISPLAY", std::nullopt},
                                {"DBUS_SESSION_BUS_ADDRESS", std::nullopt}});
  // The socket comes with the script's first line; the daemon answers once the whole script ran.
  const bool up = eventually([&] { return !daemon_->running() || std::filesystem::exists(socket); }, 15s) &&
                  eventually([&] { return !daemon_->running() || pactl({"info"}).status == 0; }, 15s);
  if (up && daemon_->running()) return true;
  whyNot_ = "the private PulseAudio daemon did not start; its log:\n" + log();
  daemon_.reset();
  return false;
}

void PulseRig::stop(bool crash) {
  if (!daemon_) return;
  daemon_->terminate(crash ? SIGKILL : SIGTERM);
  daemon_->waitFor(10s);
  daemon_.reset();
}

bool PulseRig::start() {
  if (daemon_) return true;
  whyNot_.clear();
  return launch();
}

void PulseRig::signalDaemon(int signal) {
  if (daemon_) daemon_->terminate(signal);
}

std::string PulseRig::log() const { return readWhole(folder() / "daemon.log"); }

ChildProcess::Environment PulseRig::clientEnvironment(const std::string& properties) const {
  return {{"PULSE_SERVER", server_},
          {"PULSE_PROP", properties.empty() ? std::nullopt : std::optional(properties)},
          {"DISPLAY", std::nullopt}};
}

CommandResult PulseRig::pactl(const std::vector<std::string>& arguments) const {
  std::vector<std::string> argv{"pactl"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  return runCommand(argv, clientEnvironment(), 10s);
}

std::string PulseRig::pactlLine(const std::vector<std::string>& arguments) const {
  std::string output = pactl(arguments).output;
  while (!output.empty() && (output.back() == '\n' || output.back() == '\r')) output.pop_back();
  return output;
}

std::unique_ptr<ChildProcess> PulseRig::play(const std::string& properties) const {
  return std::make_unique<ChildProcess>(std::vector<std::string>{"pacat", "--playback", "/dev/zero"},
                                        clientEnvironment(properties));
}

std::unique_ptr<ChildProcess> PulseRig::record(const std::string& properties) const {
  return std::make_unique<ChildProcess>(std::vector<std::string>{"parecord", "--raw", "/dev/null"},
                                        clientEnvironment(properties));
}

std::unique_ptr<ChildProcess> PulseRig::playShort(double seconds, const std::string& properties) const {
  const auto file = folder() / ("silence-" + std::to_string(static_cast<int>(seconds * 1000)) + ".wav");
  if (!std::filesystem::exists(file)) writeSilence(file, seconds);
  return std::make_unique<ChildProcess>(std::vector<std::string>{"paplay", file.string()},
                                        clientEnvironment(properties));
}

std::unique_ptr<ChildProcess> PulseRig::client(const std::vector<std::string>& arguments,
                                               const std::string& properties) const {
  std::vector<std::string> argv{WRENHAVEN_PULSE_CLIENT_PATH};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  auto process = std::make_unique<ChildProcess>(argv, clientEnvironment(properties));
  if (!process->waitForOutput("ready\n", 10s)) return nullptr;
  return process;
}

}  // namespace wh::test
