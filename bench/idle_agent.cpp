// Measures what an idle agent costs: the real agent on the test rigs (a private PulseAudio daemon,
// bluetoothd, logind and UPower stand-ins, one pair of remembered headphones, disconnected), left
// alone with no audio activity. Reports its wake-ups per minute (context switches of all its
// threads) and its resident memory.
//
//   idle_agent [seconds]     (default 60)

#include <dirent.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/AgentHome.h"
#include "support/PulseRig.h"
#include "support/SystemBusRig.h"

namespace {

long field(const std::string& status, const std::string& name) {
  const auto at = status.find(name + ":");
  if (at == std::string::npos) return 0;
  return std::stol(status.substr(at + name.size() + 1));
}

// Context switches of every thread of the process so far.
long contextSwitches(pid_t pid) {
  long total = 0;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  if (DIR* dir = ::opendir(tasks.c_str())) {
    while (dirent* entry = ::readdir(dir)) {
      if (entry->d_name[0] == '.') continue;
      const std::string status = wh::test::readFile(tasks + "/" + entry->d_name + "/status");
      total += field(status, "voluntary_ctxt_switches") + field(status, "nonvoluntary_ctxt_switches");
    }
    ::closedir(dir);
  }
  return total;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace std::chrono_literals;
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;

  wh::test::SystemBusRig bus({.bluez = true, .logind = true, .upower = true, .sessionBus = true, .denyBluez = false});
  wh::test::PulseRig pulse;
  if (!bus.available() || !pulse.available()) {
    std::cerr << "the rigs did not start: " << bus.whyNot() << pulse.whyNot() << "\n";
    return 1;
  }
  bus.addHeadphones();
  wh::test::AgentHome home;
  const nlohmann::json devices = nlohmann::json::array({{{"address", "aa-bb-cc-dd-ee-ff"}, {"name", "WH-1000XM4"}}});
  home.writeSettings({{"devices", wh::test::AgentHome::devicesValue(devices)}});

  auto environment = home.environment(bus.environment());
  for (const auto& [name, value] : pulse.clientEnvironment()) environment[name] = value;
  std::string failure;
  auto agent = home.launch(environment, failure);
  if (!agent) {
    std::cerr << failure << "\n";
    return 1;
  }
  std::this_thread::sleep_for(5s);  // let start-up work finish

  const long before = contextSwitches(agent->pid());
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const long after = contextSwitches(agent->pid());
  const std::string status = wh::test::readFile("/proc/" + std::to_string(agent->pid()) + "/status");
  std::printf("idle for %d s: %.1f wake-ups per minute, resident memory %.1f MiB (threads: %ld)\n", seconds,
              static_cast<double>(after - before) * 60.0 / seconds, static_cast<double>(field(status, "VmRSS")) / 1024.0,
              field(status, "Threads"));
  return 0;
}
