#pragma once
// The menu of one pair of headphones (its own tray item's menu) and its first line.

#include <array>
#include <chrono>
#include <functional>
#include <string>

#include "core/app/Services.h"
#include "core/settings/Settings.h"
#include "core/ui/MenuEntry.h"

namespace wh::ui {

class DeviceMenu {
 public:
  // Battery levels read this long ago or earlier are not shown.
  static constexpr double batteryMaxAge = 600.0;

  struct Context {
    Services& services;
    Settings& settings;
    std::chrono::system_clock::time_point now;
    // Opens the hotkey recorder for the headphones; the menu offers recording only when it is set.
    std::function<void(const DeviceSetting& device)> recordHotkey;
  };

  // One switch of a headphones' record, under the title every surface gives it.
  struct Flag {
    const char* title;
    bool DeviceSetting::*member;
  };
  // In the order the menu lists them.
  static const std::array<Flag, 5>& flags();
  // The tooltip of "Connect Only" for headphones called `name`.
  static std::string connectOnlyToolTip(const std::string& name);
  // "Earbuds", "Headphones", "Speaker".
  static std::string iconLabel(DeviceIcon icon);

  // "Not connected", "Connecting…", "Connected", "Disconnecting…" or the failure.
  static std::string phaseLine(const BluetoothManager::Phase& phase);
  // "Not connected", "Connecting…", "Connected · L 80% · R 75%", "Disconnecting…" or the failure.
  static std::string status(const Services& services, const DeviceSetting& device,
                            std::chrono::system_clock::time_point now);
  static Menu fill(const Context& context, const DeviceSetting& device);
  // The headphones' name as menus show it: an empty name reads "Headphones".
  static std::string displayName(const DeviceSetting& device);
  // Stores the record again with one change; nothing when the headphones were removed meanwhile.
  static void update(Settings& settings, const std::string& address,
                     const std::function<void(DeviceSetting&)>& change);
};

}  // namespace wh::ui
