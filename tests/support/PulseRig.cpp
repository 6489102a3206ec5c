#include "support/PulseRig.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>

namespace wh::test {

namespace {

using namespace std::chrono_literals;
using Properties = std::map<std::string, std::string>;

// WirePlumber without hardware monitors and without the Flatpak portal (it needs a session bus):
// 0.4 reads the Lua files, 0.5 the profile.
const Properties wirePlumberConfig = {
    {"main.lua.d/90-enable-all.lua", "default_access.properties[\"enable-flatpak-portal\"] = false\n"
                                     "load_module(\"metadata\")\ndefault_access.enable()\n"
                                     "device_defaults.enable()\nstream_defaults.enable()\n"},
    {"bluetooth.lua.d/90-enable-all.lua", ""},
    {"wireplumber.conf.d/rig.conf", "wireplumber.profiles = { main = { hardware.audio = disabled, "
                                    "hardware.bluetooth = disabled, hardware.video-capture = disabled } }\n"}};

// A Flatpak-like sandbox: private mount and pid namespaces, a root made of the host's /usr, /etc
// and /dev, the server's runtime folder and a .flatpak-info.
constexpr const char* sandboxScript = R"(set -e
root=$0/sandbox runtime=$0/runtime app=$1; shift
mkdir -p "$root/usr" "$root/etc" "$root/dev" "$root/proc" "$root$runtime"
for l in bin lib lib64 sbin; do [ -e "$root/$l" ] || ln -s usr/$l "$root/$l"; done
printf '[Application]\nname=%s\n' "$app" > "$root/.flatpak-info"
for d in /usr /etc /dev "$runtime"; do mount --bind "$d" "$root$d"; done
mount -t proc proc "$root/proc"; exec chroot "$root" "$@"
)";

// The device's properties as both servers take them on a command line.
std::string propertyText(const PulseRig::Device& device) {
  std::string text = "node.description=\"" + device.description + "\" device.description=\"" + device.description;
  for (const auto& [key, value] : device.properties) text += "\" " + key + "=\"" + value;
  return text + "\"";
}

std::vector<std::string> operator+(std::vector<std::string> head, const std::vector<std::string>& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

}  // namespace

testing::internal::ParamGenerator<SoundServer> bothSoundServers() {
  return testing::Values(SoundServer::pulseAudio, SoundServer::pipeWire);
}

std::string soundServerTestName(const testing::TestParamInfo<SoundServer>& info) {
  return info.param == SoundServer::pulseAudio ? "PulseAudio" : "PipeWire";
}

std::vector<PulseRig::Device> PulseRig::laptopWithHeadphones() {
  const Properties laptop = {{"device.bus", "pci"}, {"device.api", "alsa"}};
  const auto bluez = [](const char* profile, const char* codec) {
    return Properties{{"device.api", "bluez5"}, {"api.bluez5.address", "AA:BB:CC:DD:EE:FF"},
                      {"api.bluez5.profile", profile}, {"api.bluez5.codec", codec}};
  };
  return {{true, laptopSpeakers, "Built-in Audio Analog Stereo", 48000, 2, laptop},
          {false, laptopMicrophone, "Built-in Audio Microphone", 48000, 2, laptop},
          {true, headphonesOutput, "WH-1000XM4", 44100, 2, bluez("a2dp-sink", "aac")},
          {false, headphonesInput, "WH-1000XM4 Microphone", 16000, 1, bluez("headset-head-unit", "msbc")},
          {true, "bluez_sink.11_22_33_44_55_66.a2dp_sink", "Buds Pro", 48000, 2,
           {{"device.bus", "bluetooth"}, {"bluetooth.protocol", "a2dp_sink"}}},
          {true, "rig_virtual_sink", "Virtual Sink", 48000, 2, {}},
          // No device.api, device.bus or api.bluez5 keys: only its name and these say what it is.
          {false, headphonesLoopback, "WH-1000XM4", 48000, 1,
           {{"bluez5.loopback", "true"}, {"priority.session", "2010"}}}};
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
  std::filesystem::create_directories(folder_.path() / "runtime" / "pulse");
  std::filesystem::permissions(folder_.path() / "runtime", std::filesystem::perms::owner_all);
  server_ = "unix:" + (folder_.path() / "runtime" / "pulse" / "native").string();
  for (const auto& [file, text] : wirePlumberConfig) {
    std::filesystem::create_directories((folder_.path() / "home/.config/wireplumber" / file).parent_path());
    std::ofstream(folder_.path() / "home/.config/wireplumber" / file) << text;
  }
  // PulseAudio makes the devices from its start-up script; PipeWire from pw-cli once it runs.
  std::ofstream script(folder_.path() / "rig.pa");
  script << "load-module module-native-protocol-unix auth-anonymous=1 socket=" << server_.substr(5) << "\n";
  for (const auto& device : devices_) {
    const std::string kind = device.sink ? "sink" : "source";
    script << "load-module module-null-" << kind << " " << kind << "_name=" << nodeName(device.name) << " rate="
           << device.rate << " channels=" << device.channels << "\nupdate-" << kind << "-proplist "
           << nodeName(device.name) << " " << propertyText(device) << "\n";
  }
  script.close();
  launch();
}

std::string PulseRig::nodeName(std::string name) const {
  if (kind_ == SoundServer::pulseAudio) std::replace(name.begin(), name.end(), ':', '_');
  return name;
}

// Started through a shell that sends what it says to the rig's log.
void PulseRig::daemon(const std::string& program, const std::vector<std::string>& arguments) {
  const auto home = folder_.path() / "home", runtime = folder_.path() / "runtime";
  const std::string log = "exec \"$0\" \"$@\" >>" + (folder_.path() / "log").string() + " 2>&1";
  daemons_.push_back(std::make_unique<ChildProcess>(
      std::vector<std::string>{"/bin/sh", "-c", log, findExecutable(program)} + arguments,
      ChildProcess::Environment{
          {"HOME", home.string()}, {"XDG_CONFIG_HOME", (home / ".config").string()},
          {"XDG_STATE_HOME", (home / "state").string()}, {"PULSE_STATE_PATH", (home / "state").string()},
          {"XDG_RUNTIME_DIR", runtime.string()}, {"PIPEWIRE_RUNTIME_DIR", runtime.string()},
          {"PULSE_RUNTIME_PATH", (runtime / "pulse").string()}, {"PIPEWIRE_REMOTE", std::nullopt},
          {"PULSE_SERVER", std::nullopt}, {"DISPLAY", std::nullopt}, {"DBUS_SESSION_BUS_ADDRESS", std::nullopt}}));
}

// Starts the server, makes the devices and sets the first sink and source as the defaults.
bool PulseRig::launch() {
  std::error_code ignored;  // sockets left behind by a server that was killed
  for (const auto& socket : {server_.substr(5), (folder_.path() / "runtime" / "pipewire-0").string()}) {
    std::filesystem::remove(socket, ignored);
  }
  const bool pulse = kind_ == SoundServer::pulseAudio;
  if (pulse) {  // as root the per-user mode works too (the daemon only warns)
    daemon("pulseaudio", {"--daemonize=no", "-n", "--exit-idle-time=-1", "--use-pid-file=no", "--realtime=no",
                          "--high-priority=no", "--log-target=stderr", "-F", (folder_.path() / "rig.pa").string()});
  } else {
    daemon("pipewire", {});
    eventually([&] { return std::filesystem::exists(folder_.path() / "runtime" / "pipewire-0"); }, 15s);
    daemon("wireplumber", {});
    daemon("pipewire-pulse", {});
  }
  const auto died = [&] { return std::any_of(daemons_.begin(), daemons_.end(), [](auto& d) { return !d->running(); }); };
  bool up = eventually([&] { return died() || pactl({"info"}).status == 0; }, 15s) && !died();
  const auto environment = clientEnvironment();
  for (const auto& device : devices_) {
    // Sources are virtual: a null node of class Audio/Source gets no usable ports on PipeWire 0.3,
    // and WirePlumber then links no stream at all.
    const std::string node = "{ factory.name=support.null-audio-sink object.linger=true node.name=\"" + device.name +
                             "\" media.class=" + (device.sink ? "Audio/Sink" : "Audio/Source/Virtual") +
                             " audio.rate=" + std::to_string(device.rate) + " audio.channels=" +
                             std::to_string(device.channels) + " audio.position=[ " +
                             (device.channels == 1 ? "MONO" : "FL FR") + " ] " + propertyText(device) + " }";
    up = up && (pulse || runCommand({"pw-cli", "create-node", "adapter", node}, environment, 10s).status == 0);
  }
  for (const bool sink : {true, false}) {
    const auto first = std::find_if(devices_.begin(), devices_.end(), [&](const Device& d) { return d.sink == sink; });
    const std::string kind = sink ? "sink" : "source";
    // PipeWire's nodes reach its pulse server a moment after they are made.
    up = up && (first == devices_.end() || eventually([&] {
                  return pactl({"set-default-" + kind, nodeName(first->name)}).status == 0 &&
                         pactlLine({"get-default-" + kind}) == nodeName(first->name);
                }, 15s));
  }
  if (up) return true;
  std::ifstream log(folder_.path() / "log");
  whyNot_ = "the private sound server did not start; its log:\n";
  whyNot_.append(std::istreambuf_iterator<char>(log), {});
  stop();
  return false;
}

bool PulseRig::start() {
  whyNot_.clear();
  return !daemons_.empty() || launch();
}

bool PulseRig::removeDevice(const std::string& name) const {
  // PulseAudio made it with a module; PipeWire's pulse server shows the node's id among its properties.
  const std::string sinks = pactl({"list", "sinks"}).output;
  const std::string key = kind_ == SoundServer::pulseAudio ? "Owner Module: " : "object.id = \"";
  const auto at = sinks.find(key, sinks.find("Name: " + nodeName(name)));
  if (at == std::string::npos) return false;
  const std::string id = std::to_string(std::stoul(sinks.substr(at + key.size())));
  if (kind_ == SoundServer::pulseAudio) return pactl({"unload-module", id}).status == 0;
  const auto environment = clientEnvironment();
  return runCommand({"pw-cli", "destroy", id}, environment, 10s).status == 0;
}

void PulseRig::signalDaemon(int signal) {
  if (!daemons_.empty()) daemons_.back()->terminate(signal);
}

ChildProcess::Environment PulseRig::clientEnvironment(const std::string& properties) const {
  return {{"PULSE_SERVER", server_},
          {"PULSE_PROP", properties.empty() ? std::nullopt : std::optional(properties)},
          {"PIPEWIRE_RUNTIME_DIR", (folder_.path() / "runtime").string()},
          {"PIPEWIRE_REMOTE", std::nullopt},
          {"DISPLAY", std::nullopt}};
}

CommandResult PulseRig::pactl(const std::vector<std::string>& arguments) const {
  return runCommand(std::vector<std::string>{"pactl"} + arguments, clientEnvironment(), 10s);
}

std::string PulseRig::pactlLine(const std::vector<std::string>& arguments) const {
  std::string output = pactl(arguments).output;
  while (!output.empty() && (output.back() == '\n' || output.back() == '\r')) output.pop_back();
  return output;
}

std::unique_ptr<ChildProcess> PulseRig::keepMovingStreams(const std::string& sink) const {
  return run({"/bin/sh", "-c",
              "while :; do for input in $(pactl list short sink-inputs | cut -f1); do pactl move-sink-input \"$input\" " +
                  sink + "; done; sleep 0.3; done"},
             {});
}

std::vector<std::string> PulseRig::moduleArguments(const std::string& module) const {
  std::vector<std::string> out;
  std::istringstream lines(pactl({"list", "short", "modules"}).output);
  for (std::string line; std::getline(lines, line);) {  // index, name, argument, use count: tab-separated
    std::istringstream fields(line);
    std::string index, name, argument;
    std::getline(fields, index, '\t');
    std::getline(fields, name, '\t');
    std::getline(fields, argument, '\t');
    if (name == module) out.push_back(argument);
  }
  return out;
}

std::unique_ptr<ChildProcess> PulseRig::client(const std::vector<std::string>& arguments,
                                               const std::string& properties) const {
  auto process = run(std::vector<std::string>{WRENHAVEN_PULSE_CLIENT_PATH} + arguments, properties);
  return process->waitForOutput("ready\n", 10s) ? std::move(process) : nullptr;
}

std::unique_ptr<ChildProcess> PulseRig::sandboxedRecorder(const std::string& appID,
                                                          const std::string& properties) const {
  std::vector<std::string> argv{"unshare", "--mount", "--pid", "--fork"};
  if (::geteuid() != 0) argv.insert(argv.begin() + 1, {"--user", "--map-root-user"});
  auto process = run(argv + std::vector<std::string>{"/bin/sh", "-c", sandboxScript, folder_.path().string(), appID,
                                                     "parecord", "/dev/null"},
                     properties);
  const auto listed = [&] { return pactl({"list", "clients"}).output.find(appID) != std::string::npos; };
  eventually([&] { return !process->running() || listed(); });
  return process->running() ? std::move(process) : nullptr;
}

double PulseRig::level(const std::string& sink, double wanted) const {
  double level = -200, loudest = -200;
  int heard = 0;
  eventually([&] {
    const auto recorded = runCommand({"timeout", "0.6", "parec", "--raw", "--format=float32le", "--channels=1",
                                      "--rate=48000", "--latency-msec=10", "-d", nodeName(sink) + ".monitor"},
                                     clientEnvironment(), 5s).output;
    std::vector<float> samples(recorded.size() / sizeof(float));
    if (!samples.empty()) std::memcpy(samples.data(), recorded.data(), samples.size() * sizeof(float));
    double sum = 0;
    for (std::size_t i = samples.size() / 2; i < samples.size(); ++i) sum += double(samples[i]) * samples[i];
    level = samples.size() < 2 ? -200.0 : 10 * std::log10(sum / double(samples.size() - samples.size() / 2) + 1e-20);
    if (wanted <= 0) return std::abs(level - wanted) < 0.5;
    // A playing source: on a loaded machine a window may catch a dropout, which only lowers the
    // level, so the loudest of three windows counts.
    loudest = std::max(loudest, level);
    return level > -20 && ++heard == 3;
  }, 10s);
  return wanted > 0 ? loudest : level;
}

}  // namespace wh::test
