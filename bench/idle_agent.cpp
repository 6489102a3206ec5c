// Measures what an idle agent costs: the real agent on the test rigs (a private PulseAudio daemon,
// bluetoothd, logind and UPower stand-ins, one pair of remembered headphones, disconnected), left
// alone with no audio activity. Reports its wake-ups per minute (context switches of all its
// threads) and its resident memory.
//
//   idle_agent [seconds] [tray]     (default 60; "tray": on an X display with a desktop tray, the
//                                   panel opened once before the resident memory is read)

#include <dirent.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/AgentHome.h"
#include "support/PulseRig.h"
#include "support/SystemBusRig.h"
#include "support/TrayRig.h"

namespace {

long field(const std::string& status, const std::string& name) {
  const auto at = status.find(name + ":");
  if (at == std::string::npos) return 0;
  return std::stol(status.substr(at + name.size() + 1));
}

// Context switches of every thread of the process so far, by thread id.
std::map<std::string, long> contextSwitches(pid_t pid) {
  std::map<std::string, long> byThread;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  if (DIR* dir = ::opendir(tasks.c_str())) {
    while (dirent* entry = ::readdir(dir)) {
      if (entry->d_name[0] == '.') continue;
      const std::string status = wh::test::readFile(tasks + "/" + entry->d_name + "/status");
      byThread[entry->d_name] = field(status, "voluntary_ctxt_switches") + field(status, "nonvoluntary_ctxt_switches");
    }
    ::closedir(dir);
  }
  return byThread;
}

// The switches between two readings; a thread that ended meanwhile takes its count with it, so only
// the threads alive at the end are counted, each from its first reading (or from zero, if it is new).
long switchesBetween(const std::map<std::string, long>& before, const std::map<std::string, long>& after) {
  long total = 0;
  for (const auto& [thread, count] : after) {
    const auto earlier = before.find(thread);
    total += count - (earlier == before.end() ? 0 : earlier->second);
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
  const bool withTray = argc > 2 && std::string(argv[2]) == "tray";
  std::unique_ptr<wh::test::TrayRig> tray;
  if (withTray) {
    tray = std::make_unique<wh::test::TrayRig>(bus.sessionBusAddress());
    if (!tray->available()) {
      std::cerr << "the tray did not start: " << tray->whyNot() << "\n";
      return 1;
    }
    environment["DISPLAY"] = tray->display();
  }
  std::string failure;
  auto agent = home.launch(environment, failure);
  if (!agent) {
    std::cerr << failure << "\n";
    return 1;
  }
  std::this_thread::sleep_for(5s);  // let start-up work finish

  const auto before = contextSwitches(agent->pid());
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const auto after = contextSwitches(agent->pid());
  if (tray) {
    // The main item is the first to register; activating it opens the panel.
    const auto items = tray->items();
    if (!items.empty()) tray->call(items.front(), "/StatusNotifierItem", {"org.kde.StatusNotifierItem.Activate", "100", "100"});
    std::this_thread::sleep_for(2s);
  }
  const std::string status = wh::test::readFile("/proc/" + std::to_string(agent->pid()) + "/status");
  std::printf("idle for %d s: %.1f wake-ups per minute, resident memory %.1f MiB (threads: %ld)\n", seconds,
              static_cast<double>(switchesBetween(before, after)) * 60.0 / seconds, static_cast<double>(field(status, "VmRSS")) / 1024.0,
              field(status, "Threads"));
  return 0;
}
