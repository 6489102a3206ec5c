#pragma once
// The audio ports held in memory, on the virtual clock: what the device layer, the process
// monitor, the input pinner and the diagnostics text read in unit tests.

#include <string>

#include "core/audio/AppGrouping.h"
#include "core/quality/InputPinner.h"
#include "doubles/MemoryStore.h"
#include "doubles/MemoryApps.h"
#include "doubles/MemoryAudioHardware.h"
#include "doubles/VirtualRuntime.h"
#include "support/CapturedLog.h"

namespace wh::test {

struct AudioWorld {
  VirtualRuntime rt;
  MemoryAudioHardware hw{rt.main()};
  MemoryProcessTable table;
  MemoryDesktopEntries desktop;
  AppGrouping grouping{table, desktop};
  std::vector<DesktopEntry> entries;

  void addDevice(AudioObjectID id, std::string uid, std::string name, std::uint32_t transport, std::uint32_t inputs,
                 std::uint32_t outputs) {
    hw.deviceList.push_back({id, std::move(uid), std::move(name), transport, inputs, outputs, 48000.0});
  }
  // A running application: a process in the application's systemd scope, with a desktop entry.
  void runApp(const std::string& id, std::int32_t pid) {
    const std::string unit = "/app.slice/app-gnome-" + id + "-" + std::to_string(pid) + ".scope";
    table.processes[pid] = {1, "/usr/bin/" + id, unit, {}};
    entries.push_back({id, id, "", false, false});
    desktop.set(entries);
  }
};

// The same with the settings, the process monitor and the input pinner over them.
struct QualityWorld : AudioWorld {
  CapturedLog log;
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  AudioProcessMonitor monitor{rt, hw, grouping};
  InputPinner pinner{rt, settings, hw, monitor};
  std::vector<DeviceSetting> records;
};

}  // namespace wh::test
