#include "support/PulseRig.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace wh::test {

namespace {

using namespace std::chrono_literals;

std::string readWhole(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeFile(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

// A WAV file of silence: 16-bit stereo at 44.1 kHz.
void writeSilence(const std::filesystem::path& path, double seconds) {
  const auto dataBytes = static_cast<std::uint32_t>(seconds * 44100) * 4;
  std::ofstream out(path, std::ios::binary);
  const auto put = [&](std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.put(static_cast<char>((value >> (8 * i)) & 0xff));
  };
  out << "RIFF";
  put(36 + dataBytes, 4);
  out << "WAVEfmt ";
  for (auto [value, bytes] : {std::pair{16u, 4}, {1u, 2}, {2u, 2}, {44100u, 4}, {44100u * 4, 4}, {4u, 2}, {16u, 2}}) {
    put(value, bytes);  // PCM, stereo, rate, bytes per second and per frame, bits per sample
  }
  out << "data";
  put(dataBytes, 4);
  out << std::string(dataBytes, '\0');
}

// WirePlumber without hardware monitors and without the Flatpak portal (which needs a session
// bus): 0.4 reads the Lua files, 0.5 the profile.
constexpr const char* wirePlumber04 = R"(default_access.properties["enable-flatpak-portal"] = false
load_module("metadata")
default_access.enable()
device_defaults.enable()
stream_defaults.enable()
)";
constexpr const char* wirePlumber05 =
    "wireplumber.profiles = { main = { hardware.audio = disabled, hardware.bluetooth = disabled, "
    "hardware.video-capture = disabled } }\n";

// Joins a Flatpak-like sandbox: a private mount and pid namespace, and a root made of the host's
// /usr, /etc and /dev, the server's runtime folder and a .flatpak-info.
constexpr const char* sandboxScript = R"(set -e
root=$0/sandbox runtime=$1 app=$2; shift 2
mkdir -p "$root/usr" "$root/etc" "$root/dev" "$root/proc" "$root$runtime"
for l in bin lib lib64 sbin; do [ -e "$root/$l" ] || ln -s usr/$l "$root/$l"; done
printf '[Application]\nname=%s\n' "$app" > "$root/.flatpak-info"
for d in /usr /etc /dev "$runtime"; do mount --bind "$d" "$root$d"; done
mount -t proc proc "$root/proc"
exec chroot "$root" "$@"
)";

}  // namespace

std::string soundServerName(SoundServer server) {
  return server == SoundServer::pulseAudio ? "PulseAudio" : "PipeWire";
}

testing::internal::ParamGenerator<SoundServer> bothSoundServers() {
  return testing::Values(SoundServer::pulseAudio, SoundServer::pipeWire);
}

std::string soundServerTestName(const testing::TestParamInfo<SoundServer>& info) { return soundServerName(info.param); }

std::vector<PulseRig::Device> PulseRig::laptopWithHeadphones() {
  const std::map<std::string, std::string> laptop = {
      {"device.bus", "pci"}, {"device.form_factor", "internal"}, {"device.api", "alsa"}};
  // The keys WirePlumber 0.4 gives BlueZ nodes, and those PulseAudio gives its own.
  const auto wirePlumber = [](const std::string& profile, const std::string& codec) {
    return std::map<std::string, std::string>{{"device.api", "bluez5"},
                                              {"api.bluez5.address", headphonesAddress},
                                              {"api.bluez5.profile", profile},
                                              {"api.bluez5.codec", codec}};
  };
  return {
      {true, laptopSpeakers, "Built-in Audio Analog Stereo", 48000, 2, laptop},
      {false, laptopMicrophone, "Built-in Audio Microphone", 48000, 2, laptop},
      {true, headphonesOutput, "WH-1000XM4", 44100, 2, wirePlumber("a2dp-sink", "aac")},
      {false, headphonesInput, "WH-1000XM4 Microphone", 16000, 1, wirePlumber("headset-head-unit", "msbc")},
      {true, olderHeadphonesOutput, "Buds Pro", 48000, 2,
       {{"device.bus", "bluetooth"}, {"bluetooth.protocol", "a2dp_sink"}, {"device.form_factor", "headphone"}}},
      {true, virtualSink, "Virtual Sink", 48000, 2, {}},
  };
}

std::vector<PulseRig::Device> PulseRig::laptopWithLoopback() {
  auto devices = laptopWithHeadphones();
  // What WirePlumber 0.5 gives it: no device.api, no device.bus, no api.bluez5 keys.
  devices.push_back({false, headphonesLoopback, "WH-1000XM4", 48000, 1,
                     {{"bluez5.loopback", "true"}, {"priority.session", "2010"}}});
  return devices;
}

PulseRig::PulseRig(std::vector<Device> devices, SoundServer server) : devices_(std::move(devices)), kind_(server) {
  const bool pulse = kind_ == SoundServer::pulseAudio;
  for (const char* program : pulse ? std::vector{"pulseaudio", "pactl"}
                                   : std::vector{"pipewire", "wireplumber", "pipewire-pulse", "pw-cli", "pactl"}) {
    if (findExecutable(program).empty()) {
      whyNot_ = std::string(program) + " is not installed (scripts/install-deps.sh installs it)";
      return;
    }
  }
  std::filesystem::create_directories(folder() / "runtime");
  std::filesystem::permissions(folder() / "runtime", std::filesystem::perms::owner_all);
  server_ = "unix:" + (folder() / "runtime" / (pulse ? "native" : "pulse/native")).string();
  if (pulse) {
    std::ofstream script(folder() / "rig.pa");
    script << "load-module module-native-protocol-unix socket=" << server_.substr(5) << " auth-anonymous=1\n";
    for (const auto& device : devices_) {
      const char* kind = device.sink ? "sink" : "source";
      script << "load-module module-null-" << kind << " " << kind << "_name=" << nodeName(device.name)
             << " rate=" << device.rate << " channels=" << device.channels << "\n";
      script << "update-" << kind << "-proplist " << nodeName(device.name) << " device.description=\""
             << device.description << "\"";
      for (const auto& [key, value] : device.properties) script << " " << key << "=\"" << value << "\"";
      script << "\n";
    }
  } else {
    const auto config = folder() / "home" / ".config" / "wireplumber";
    writeFile(config / "main.lua.d" / "90-enable-all.lua", wirePlumber04);
    writeFile(config / "bluetooth.lua.d" / "90-enable-all.lua", "");
    writeFile(config / "wireplumber.conf.d" / "rig.conf", wirePlumber05);
  }
  if (!launch() && whyNot_.empty()) whyNot_ = "the private " + soundServerName(kind_) + " server did not start";
}

PulseRig::~PulseRig() { stop(true); }

std::string PulseRig::nodeName(const std::string& name) const {
  // PulseAudio takes letters, digits, "_", "-" and "." in names only.
  std::string spelt = name;
  if (kind_ == SoundServer::pulseAudio) std::replace(spelt.begin(), spelt.end(), ':', '_');
  return spelt;
}

void PulseRig::daemon(const std::string& program, const std::vector<std::string>& arguments,
                      const ChildProcess::Environment& environment) {
  std::vector<std::string> argv{"/bin/sh", "-c", "exec \"$0\" \"$@\" >>\"" + (folder() / "daemon.log").string() + "\" 2>&1",
                                findExecutable(program)};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  daemons_.push_back(std::make_unique<ChildProcess>(argv, environment));
}

bool PulseRig::launch() {
  const bool up = kind_ == SoundServer::pulseAudio ? launchPulseAudio() : launchPipeWire();
  if (up) return true;
  whyNot_ = "the private " + soundServerName(kind_) + " server did not start; its log:\n" + log();
  stop(true);
  return false;
}

// True once the protocol's server answers (false as soon as one of the daemons has died).
bool PulseRig::answers() {
  const auto socket = server_.substr(5);
  const auto died = [&] {
    return std::any_of(daemons_.begin(), daemons_.end(), [](auto& daemon) { return !daemon->running(); });
  };
  return eventually([&] { return died() || std::filesystem::exists(socket); }, 15s) &&
         eventually([&] { return died() || pactl({"info"}).status == 0; }, 15s) && !died();
}

bool PulseRig::launchPulseAudio() {
  const auto home = folder() / "home";
  std::error_code ignored;
  std::filesystem::remove(server_.substr(5), ignored);  // left behind by a daemon that was killed
  // Running as root works in the per-user mode too (the daemon only warns).
  daemon("pulseaudio",
         {"--daemonize=no", "-n", "--exit-idle-time=-1", "--use-pid-file=no", "--realtime=no", "--high-priority=no",
          "--log-target=stderr", "-F", (folder() / "rig.pa").string()},
         {{"HOME", home.string()},
          {"XDG_CONFIG_HOME", (home / ".config").string()},
          {"XDG_RUNTIME_DIR", (folder() / "runtime").string()},
          {"PULSE_RUNTIME_PATH", (folder() / "runtime").string()},
          {"PULSE_STATE_PATH", (home / "state").string()},
          {"PULSE_SERVER", std::nullopt},
          {"DISPLAY", std::nullopt},
          {"DBUS_SESSION_BUS_ADDRESS", std::nullopt}});
  // The socket comes with the script's first line; the daemon answers once the whole script ran.
  return answers() && setDefaults();
}

ChildProcess::Environment PulseRig::pipeWireEnvironment() const {
  const auto home = folder() / "home";
  return {{"HOME", home.string()},
          {"XDG_CONFIG_HOME", (home / ".config").string()},
          {"XDG_STATE_HOME", (home / "state").string()},
          {"XDG_RUNTIME_DIR", (folder() / "runtime").string()},
          {"PIPEWIRE_RUNTIME_DIR", (folder() / "runtime").string()},
          {"PIPEWIRE_REMOTE", std::nullopt},
          {"PULSE_RUNTIME_PATH", std::nullopt},
          {"PULSE_SERVER", std::nullopt},
          {"DISPLAY", std::nullopt},
          {"DBUS_SESSION_BUS_ADDRESS", std::nullopt}};
}

bool PulseRig::launchPipeWire() {
  const auto environment = pipeWireEnvironment();
  daemon("pipewire", {}, environment);
  if (!eventually([&] { return std::filesystem::exists(folder() / "runtime" / "pipewire-0"); }, 15s)) return false;
  daemon("wireplumber", {}, environment);
  daemon("pipewire-pulse", {}, environment);
  if (!answers()) return false;
  // Sources are virtual: a null node of class Audio/Source gets no usable ports on PipeWire 0.3,
  // and WirePlumber then links no stream at all.
  for (const auto& device : devices_) {
    std::ostringstream node;
    node << "{ factory.name=support.null-audio-sink object.linger=true node.name=\"" << device.name
         << "\" node.description=\"" << device.description << "\" media.class="
         << (device.sink ? "Audio/Sink" : "Audio/Source/Virtual") << " audio.rate=" << device.rate
         << " audio.channels=" << device.channels << " audio.position=[ " << (device.channels == 1 ? "MONO" : "FL FR")
         << " ]";
    for (const auto& [key, value] : device.properties) node << " " << key << "=\"" << value << "\"";
    node << " }";
    if (runCommand({"pw-cli", "create-node", "adapter", node.str()}, environment, 10s).status != 0) return false;
  }
  // Nodes reach the pulse server a moment after they are made.
  return eventually([&] {
    const std::string listed = pactl({"list", "short", "sinks"}).output + pactl({"list", "short", "sources"}).output;
    return std::all_of(devices_.begin(), devices_.end(),
                       [&](const Device& device) { return listed.find(device.name + "\t") != std::string::npos; });
  }, 15s) && setDefaults();
}

// The first sink and the first source are the defaults.
bool PulseRig::setDefaults() {
  for (const bool sink : {true, false}) {
    const auto first = std::find_if(devices_.begin(), devices_.end(), [&](const Device& d) { return d.sink == sink; });
    if (first == devices_.end()) continue;
    const auto name = nodeName(first->name);
    if (pactl({sink ? "set-default-sink" : "set-default-source", name}).status != 0) return false;
    if (!eventually([&] { return pactlLine({sink ? "get-default-sink" : "get-default-source"}) == name; })) return false;
  }
  return true;
}

void PulseRig::stop(bool crash) {
  // The protocol's server first, the PipeWire daemon last.
  for (auto daemon = daemons_.rbegin(); daemon != daemons_.rend(); ++daemon) {
    (*daemon)->terminate(crash ? SIGKILL : SIGTERM);
    (*daemon)->waitFor(10s);
  }
  daemons_.clear();
}

bool PulseRig::start() {
  if (running()) return true;
  whyNot_.clear();
  return launch();
}

void PulseRig::signalDaemon(int signal) {
  if (running()) daemons_.back()->terminate(signal);
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

std::unique_ptr<ChildProcess> PulseRig::sandboxedRecorder(const std::string& appID, const std::string& properties) const {
  const auto runtime = (folder() / "runtime").string();
  std::vector<std::string> argv{"unshare", "--mount", "--pid", "--fork"};
  if (::geteuid() != 0) argv.insert(argv.begin() + 1, {"--user", "--map-root-user"});
  argv.insert(argv.end(), {"/bin/sh", "-c", sandboxScript, folder().string(), runtime, appID, "parecord", "--raw",
                           "/dev/null"});
  auto process = std::make_unique<ChildProcess>(argv, clientEnvironment(properties));
  if (!eventually([&] { return !process->running() || pactl({"list", "clients"}).output.find(appID) != std::string::npos; })) {
    return nullptr;
  }
  return process->running() ? std::move(process) : nullptr;
}

}  // namespace wh::test
