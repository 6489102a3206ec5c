#include <benchmark/benchmark.h>

#include <string>

#include "core/audio/AudioProcesses.h"
#include "core/audio/CoreAudio.h"
#include "doubles/MemoryApps.h"
#include "doubles/VirtualRuntime.h"
#include "platform/linux/audio/PulseMirror.h"

// What the audio side costs: a monitor refresh once identities have settled, reading the device
// list from the adapter's mirror, and a burst of server events through the mirror to the
// monitor's one coalesced refresh.

namespace {

using namespace wh;

// The mirror alone, without a connection (writes are not measured here).
class Mirror final : public platform::PulseMirror {
 public:
  using PulseMirror::PulseMirror;
  void setDefaultDevice(AudioProperty, AudioObjectID, WriteDone) override {}
  void setCardProfile(AudioObjectID, const std::string&, WriteDone) override {}
};

// A process table and desktop entries of a desktop session: every tenth process an app.
void fillApps(MemoryProcessTable& table, MemoryDesktopEntries& desktop, int processes) {
  std::vector<DesktopEntry> entries;
  for (int i = 0; i < processes; ++i) {
    const std::int32_t pid = 2000 + i;
    const std::string app = "org.example.App" + std::to_string(i / 10);
    table.processes[pid] = {1, "/usr/bin/helper" + std::to_string(i),
                            "/user.slice/app.slice/app-gnome-" + app + "-" + std::to_string(pid) + ".scope",
                            std::nullopt};
    if (i % 10 == 0) entries.push_back({app, "app" + std::to_string(i / 10), "", false, false});
  }
  desktop.set(entries);
}

// `clients` playing clients in the mirror, every seventh one recording too.
void fillClients(platform::PulseMirror& mirror, std::uint32_t clients) {
  for (std::uint32_t client = 0; client < clients; ++client) {
    mirror.applyClient({client, static_cast<std::int32_t>(2000 + client), std::nullopt});
    mirror.applyStream(true, {client, client, false, false});
    if (client % 7 == 0) mirror.applyStream(false, {client, client, false, false});
  }
}


// A laptop with a card, an HDMI output, a USB headset and Bluetooth headphones.
void fillDevices(platform::PulseMirror& mirror) {
  std::uint32_t index = 0;
  for (const char* name : {"alsa_output.pci.analog-stereo", "alsa_output.pci.hdmi-stereo", "alsa_output.usb.headset",
                           "bluez_output.AA_BB_CC_DD_EE_FF.1"}) {
    platform::PulseDeviceInfo sink;
    sink.index = index++;
    sink.name = name;
    sink.description = std::string("Output ") + name;
    sink.rate = 48000;
    sink.hardware = true;
    sink.properties = {{"device.bus", name[0] == 'b' ? "bluetooth" : "pci"}};
    mirror.applyDevice(sink);
    platform::PulseDeviceInfo source = sink;
    source.isSink = false;
    source.name = std::string(name) + ".input";
    mirror.applyDevice(source);
  }
}

void BM_DeviceListFromTheMirror(benchmark::State& state) {
  VirtualRuntime rt;
  Mirror mirror(rt.main());
  fillDevices(mirror);
  for (auto _ : state) {
    auto devices = AudioDevice::all(mirror);
    benchmark::DoNotOptimize(devices);
  }
  state.counters["devices"] = static_cast<double>(AudioDevice::all(mirror).size());
}
BENCHMARK(BM_DeviceListFromTheMirror);

// A desktop session's audio side on the virtual clock: `clients` playing clients in the mirror,
// the monitor started over it and every identity settled.
struct Session {
  VirtualRuntime rt;
  Mirror mirror{rt.main()};
  MemoryProcessTable table;
  MemoryDesktopEntries desktop;
  AppGrouping grouping{table, desktop};
  AudioProcessMonitor monitor{rt, mirror, grouping};

  explicit Session(std::uint32_t clients) {
    fillDevices(mirror);
    fillApps(table, desktop, static_cast<int>(clients));
    fillClients(mirror, clients);
    monitor.start();
    for (int i = 0; i < AudioProcessMonitor::maxIdentityTries; ++i) monitor.refresh();
    rt.runReady();
  }
};

// A refresh of 200 processes whose identities have settled, as the safety poll runs it: over the
// adapter's mirror, with nothing changed or with one process changed since the last refresh.
void BM_MonitorRefreshOf200SettledProcesses(benchmark::State& state) {
  Session session(200);
  int observed = 0;
  session.monitor.addObserver([&](const std::vector<AudioProcess>&) { ++observed; });
  const std::size_t tableReads = session.table.reads;
  const bool change = state.range(0) != 0;
  std::uint32_t round = 0;
  for (auto _ : state) {
    if (change) {
      const std::uint32_t stream = round++ % 200;
      session.mirror.applyStream(true, {stream, stream, (round / 200) % 2 == 0, false});
    }
    session.monitor.refresh();
  }
  if (session.table.reads != tableReads) state.SkipWithError("identities were resolved again");
  state.counters["processes"] = static_cast<double>(session.monitor.processes().size());
  benchmark::DoNotOptimize(observed);
}
BENCHMARK(BM_MonitorRefreshOf200SettledProcesses)->Arg(0)->Arg(1)->ArgName("changed");

// 1,000 stream changes from the server (50 playing clients starting and stopping), their
// listener reports on the main queue and the one refresh of the monitor they lead to.
void BM_BurstOf1000ServerEvents(benchmark::State& state) {
  Session session(50);
  bool corked = false;
  for (auto _ : state) {
    for (std::uint32_t event = 0; event < 1000; ++event) {
      const std::uint32_t stream = event % 50;
      if (stream == 0) corked = !corked;
      session.mirror.applyStream(true, {stream, stream, corked, false});
    }
    session.rt.runReady();
    session.rt.advance(AudioProcessMonitor::coalescingDelay);
  }
  state.counters["processes"] = static_cast<double>(session.monitor.processes().size());
}
BENCHMARK(BM_BurstOf1000ServerEvents);

}  // namespace
