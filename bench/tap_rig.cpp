// Measures a gain tap on the test rigs with real sound: the latency it adds (when a corked tone
// starts, how long until it reaches the output's monitor, without and with the tap), the CPU time
// of its "wrenhaven.tap" thread, and the output stream's underflows over a long run, after which
// the added latency is measured again (a delay that grew would show there). Each underflow of the
// tap is set against those of the tone itself, a plain client with as little buffer (20 ms): when
// both run dry at once, the server was held up, not the tap; and the share of time the hypervisor
// took from this virtual machine is read from /proc/stat.
//
// On PipeWire the gain can instead go through the agent's node inside PipeWire's graph ("filter",
// the adapter's choice there, or "pair", a loopback of two streams; "pulse" is the pulse
// protocol's path): the bench then prints the graph's cycle, counts the CPU time of every thread
// the path adds (its loop, and the data loop that runs the node), and, in place of the output
// stream's underflows, the dropouts heard at the output's monitor (1 ms or more of silence inside
// the tone).
//
//   tap_rig [seconds] [fill margin in seconds] [pulseaudio|pipewire] [pulse|filter|pair|none]
//   (defaults: 600, the adapter's own margin, both servers, the adapter's own path; "none" only
//   counts the dropouts of the tone played straight to the output)

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <optional>
#include <sstream>
#include <thread>

#include <QCoreApplication>

#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/volume/PulseProcessTaps.h"
#include "support/PulseRig.h"

namespace {

using namespace std::chrono_literals;
using namespace wh;
using test::PulseRig;

// Seconds from uncorking the tone to its first sound at the speakers' monitor (median of five).
double onsetDelay(const PulseRig& rig, test::ChildProcess& tone) {
  std::vector<double> delays;
  for (int run = 0; run < 5; ++run) {
    tone.terminate(SIGUSR1);  // corked
    std::this_thread::sleep_for(300ms);
    test::ChildProcess recorder({"parec", "--raw", "--format=float32le", "--channels=1", "--rate=48000",
                                 "--latency-msec=5", "-d", std::string(PulseRig::laptopSpeakers) + ".monitor"},
                                rig.clientEnvironment());
    test::eventually([&] { return recorder.output().size() > 48000 * 4 / 5; }, 5s);  // 0.2 s recorded
    const std::size_t atSignal = recorder.output().size() / 4;
    tone.terminate(SIGUSR2);
    test::eventually([&] { return recorder.output().size() / 4 > atSignal + 48000; }, 5s);
    std::vector<float> samples(recorder.output().size() / 4);
    std::memcpy(samples.data(), recorder.output().data(), samples.size() * 4);
    const auto onset = std::find_if(samples.begin() + atSignal, samples.end(), [](float s) { return std::abs(s) > 0.05F; });
    if (onset != samples.end()) delays.push_back(double(onset - samples.begin() - atSignal) / 48000);
  }
  std::sort(delays.begin(), delays.end());
  return delays.empty() ? -1 : delays[delays.size() / 2];
}

// CPU seconds of this process's threads whose names start with `name`.
double threadCpu(const std::string& name) {
  double total = 0;
  if (DIR* dir = ::opendir("/proc/self/task")) {
    while (dirent* entry = ::readdir(dir)) {
      const std::string task = std::string("/proc/self/task/") + entry->d_name;
      if (entry->d_name[0] == '.' || !test::readFile(task + "/comm").starts_with(name)) continue;
      std::istringstream stat(test::readFile(task + "/stat").substr(test::readFile(task + "/stat").rfind(')') + 2));
      std::string skip;
      long user = 0, system = 0;
      for (int field = 3; field < 14; ++field) stat >> skip;
      stat >> user >> system;
      total += double(user + system) / double(::sysconf(_SC_CLK_TCK));
    }
    ::closedir(dir);
  }
  return total;
}

double monotonicSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Ticks stolen by the hypervisor, and all ticks, of every processor so far.
std::pair<long long, long long> stolenTicks() {
  std::istringstream line(test::readFile("/proc/stat"));
  std::string cpu;
  long long value = 0, steal = 0, total = 0;
  line >> cpu;
  for (int field = 0; field < 8 && line >> value; ++field) {
    total += value;
    if (field == 7) steal = value;
  }
  return {steal, total};
}

// Dropouts in a recording of the tone: runs of 1 ms or more without a sample above 0.01 (the tone
// is a 1 kHz sine at half of full scale, near zero for a sample or two at each crossing).
int dropouts(const std::string& recording) {
  int count = 0, quiet = 0;
  for (std::size_t at = 0; at + 4 <= recording.size(); at += 4) {
    float sample = 0;
    std::memcpy(&sample, recording.data() + at, 4);
    quiet = std::abs(sample) > 0.01F ? 0 : quiet + 1;
    if (quiet == 48) {
      ++count;
      std::cerr << "dropout at " << double(at / 4) / 48000 << " s into the recording\n";
    }
  }
  return count;
}

// CPU seconds of the whole process: on PipeWire's graph the node runs on libpipewire's data loop,
// a thread without a name of its own, so the whole (the rig's idle hardware layer included)
// stands as an upper bound.
double processCpu() {
  const std::string stat = test::readFile("/proc/self/stat");
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string skip;
  long user = 0, system = 0;
  for (int field = 3; field < 14; ++field) fields >> skip;
  fields >> user >> system;
  return double(user + system) / double(::sysconf(_SC_CLK_TCK));
}

// Records the speakers' monitor into a file until `stop` (a pipe would fill over a long run).
struct MonitorRecording {
  std::string path;
  test::ChildProcess parec;
  MonitorRecording(const PulseRig& rig, const std::string& file)
      : path(file),
        parec({"parec", "--raw", "--format=float32le", "--channels=1", "--rate=48000", "-d",
               std::string(PulseRig::laptopSpeakers) + ".monitor", file},
              rig.clientEnvironment()) {}
  // The dropouts, less the first and last 0.2 s (the recorder's own start and end), and the seconds.
  std::pair<int, double> stop() {
    parec.terminate(SIGTERM);
    parec.waitFor(5s);
    const std::string recording = test::readFile(path);
    std::remove(path.c_str());
    const std::size_t edge = 48000 / 5 * 4;
    return {recording.size() > 2 * edge ? dropouts(recording.substr(edge, recording.size() - 2 * edge)) : -1,
            double(recording.size()) / 4 / 48000};
  }
};

// The tone at the output's monitor for `seconds` without a tap (the baseline of the dropouts).
void listenDirect(test::SoundServer server, int seconds) {
  PulseRig rig(server);
  auto tone = rig.available() ? rig.client({"--tone"}) : nullptr;
  if (!tone) return;
  MonitorRecording heard(rig, "/tmp/tap_rig_direct." + std::to_string(::getpid()));
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const auto [gaps, length] = heard.stop();
  std::cout << (server == test::SoundServer::pulseAudio ? "PulseAudio" : "PipeWire") << " (no tap): " << gaps
            << " dropouts heard at the monitor in " << length << " s\n";
}

void measure(test::SoundServer server, int seconds, double fillMargin,
             std::optional<platform::PipeWireGainPath::Design> path) {
  const char* serverName = server == test::SoundServer::pulseAudio ? "PulseAudio" : "PipeWire";
  PulseRig rig(server);
  if (!rig.available()) {
    std::cout << serverName << ": " << rig.whyNot() << "\n";
    return;
  }
  platform::QtRuntime runtime;
  platform::PulseAudioHardware hardware(runtime.main(), {.server = rig.server()});
  hardware.waitUntilReady(10);
  platform::PulseProcessTaps::Options options{.server = rig.server()};
  if (fillMargin > 0) options.fillMargin = fillMargin;
  options.pipeWirePath = path;
  options.pipeWireRemote = rig.pipeWireSocket();
  platform::PulseProcessTaps taps(hardware, options);
  auto tone = rig.client({"--tone"});
  if (!tone) return;
  AudioObjectID process = 0;
  test::eventually([&] {
    for (auto id : hardware.processObjects()) process = hardware.processPID(id) == tone->pid() ? id : process;
    return process != 0;
  });
  const double direct = onsetDelay(rig, *tone);
  auto built = taps.build({"org.example.Tone", {process}, ProcessTap::Mode::gain, PulseRig::laptopSpeakers, 1.0F, {}});
  if (!std::holds_alternative<std::shared_ptr<ProcessTap>>(built)) {
    std::cout << serverName << ": the tap could not be built\n";
    return;
  }
  auto tap = std::dynamic_pointer_cast<platform::PulseProcessTaps::Tap>(std::get<std::shared_ptr<ProcessTap>>(built));
  const double tapped = onsetDelay(rig, *tone), reported = tap->latency();
  const platform::PipeWireGainPath* graph = tap->pipeWirePath();
  const double cpuBefore = threadCpu("wrenhaven.tap"), processBefore = processCpu();
  // The tone at the output's monitor for the whole run, for dropouts.
  MonitorRecording heard(rig, "/tmp/tap_rig_tapped." + std::to_string(::getpid()));
  const auto stealBefore = stolenTicks();
  const double start = monotonicSeconds();
  std::vector<double> tapDry;  // when each underflow of the tap was seen (polled every 2 ms)
  for (auto seen = tap->underflows(); monotonicSeconds() < start + seconds; std::this_thread::sleep_for(2ms)) {
    for (; seen < tap->underflows(); ++seen) tapDry.push_back(monotonicSeconds());
  }
  const double cpu = threadCpu("wrenhaven.tap") - cpuBefore, processUse = processCpu() - processBefore;
  const auto [gaps, length] = heard.stop();
  const auto stealAfter = stolenTicks();
  const double stolen = double(stealAfter.first - stealBefore.first) / double(stealAfter.second - stealBefore.second);
  std::vector<double> toneDry;
  std::istringstream toneSaid(tone->output());
  for (std::string word; toneSaid >> word;) {
    double at = 0;
    if (word == "underflow" && toneSaid >> at && at >= start && at <= start + seconds) toneDry.push_back(at);
  }
  std::cerr << serverName << ": seconds into the run when the tap ran dry:";
  for (double at : tapDry) std::cerr << " " << at - start;
  std::cerr << "; the tone:";
  for (double at : toneDry) std::cerr << " " << at - start;
  std::cerr << "\n";
  const auto shared = std::count_if(tapDry.begin(), tapDry.end(), [&](double at) {
    return std::any_of(toneDry.begin(), toneDry.end(), [&](double t) { return std::abs(t - at) < 0.1; });
  });
  const double tappedLater = onsetDelay(rig, *tone), reportedLater = tap->latency();
  tap->stop();
  std::cout << serverName << " (" << (graph == nullptr ? "pulse protocol" : path == platform::PipeWireGainPath::Design::filter ? "filter node" : "stream pair")
            << "): graph cycle " << (graph != nullptr ? std::to_string(graph->quantum()) + "/" + std::to_string(graph->rate()) : "-")
            << (graph != nullptr ? ", " + std::to_string(graph->starvedCycles()) + " of " + std::to_string(graph->cycles()) +
                                       " cycles without the sink's sound"
                                 : "")
            << "; " << gaps << " dropouts heard at the monitor in " << length
            << " s; the whole process used " << 100 * processUse / seconds << " % of one core\n";
  std::cout << serverName << ": onset " << direct * 1000 << " ms direct, " << tapped * 1000 << " ms tapped (added "
            << (tapped - direct) * 1000 << " ms), " << (tappedLater - direct) * 1000 << " ms added after " << seconds
            << " s; the server reports " << reported * 1000 << " ms from tap sink to output, " << reportedLater * 1000
            << " ms at the end; tap thread CPU " << 100 * cpu / seconds << " % of one core; " << tapDry.size()
            << " underflows in " << seconds << " s, " << shared << " of them while the tone itself ran dry (" << toneDry.size()
            << " times in all); the hypervisor took " << 100 * stolen << " % of the processors' time\n";
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 600;
  const double fillMargin = argc > 2 ? std::atof(argv[2]) : 0;
  const std::string only = argc > 3 ? argv[3] : "";  // "pulseaudio" or "pipewire": that server alone
  const std::string way = argc > 4 ? argv[4] : "filter";
  const auto path = way == "pulse"  ? std::nullopt
                    : way == "pair" ? std::optional(platform::PipeWireGainPath::Design::streamPair)
                                    : std::optional(platform::PipeWireGainPath::Design::filter);
  for (const auto server : {test::SoundServer::pulseAudio, test::SoundServer::pipeWire}) {
    if (only == (server == test::SoundServer::pulseAudio ? "pipewire" : "pulseaudio")) continue;
    if (way == "none") {
      listenDirect(server, seconds);
    } else {
      measure(server, seconds, fillMargin, path);
    }
  }
}
