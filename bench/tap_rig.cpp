// Measures a gain tap on the test rigs with real sound: the latency it adds (when a corked tone
// starts, how long until it reaches the output's monitor, without and with the tap), the CPU time
// of its "wrenhaven.tap" thread, and the output stream's underflows over a long run, after which
// the added latency is measured again (a delay that grew would show there). Each underflow of the
// tap is set against those of the tone itself, a plain client with as little buffer (20 ms): when
// both run dry at once, the server was held up, not the tap; and the share of time the hypervisor
// took from this virtual machine is read from /proc/stat.
//
//   tap_rig [seconds] [fill margin in seconds] [pulseaudio|pipewire]
//   (defaults: 600, the adapter's own margin, both servers)

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iostream>
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

// CPU seconds of this process's threads named `name`.
double threadCpu(const std::string& name) {
  double total = 0;
  if (DIR* dir = ::opendir("/proc/self/task")) {
    while (dirent* entry = ::readdir(dir)) {
      const std::string task = std::string("/proc/self/task/") + entry->d_name;
      if (entry->d_name[0] == '.' || test::readFile(task + "/comm") != name + "\n") continue;
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

void measure(test::SoundServer server, int seconds, double fillMargin) {
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
  const double cpuBefore = threadCpu("wrenhaven.tap");
  const auto stealBefore = stolenTicks();
  const double start = monotonicSeconds();
  std::vector<double> tapDry;  // when each underflow of the tap was seen (polled every 2 ms)
  for (auto seen = tap->underflows(); monotonicSeconds() < start + seconds; std::this_thread::sleep_for(2ms)) {
    for (; seen < tap->underflows(); ++seen) tapDry.push_back(monotonicSeconds());
  }
  const double cpu = threadCpu("wrenhaven.tap") - cpuBefore;
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
  if (only != "pipewire") measure(test::SoundServer::pulseAudio, seconds, fillMargin);
  if (only != "pulseaudio") measure(test::SoundServer::pipeWire, seconds, fillMargin);
}
