#include "core/ui/DeviceStatusItems.h"

#include <set>

#include "core/settings/Address.h"
#include "core/ui/DeviceMenu.h"

namespace wh::ui {

DeviceStatusItems::DeviceStatusItems(Runtime& runtime, Services& services, Settings& settings, DeviceTray& tray)
    : runtime_(runtime), services_(services), settings_(settings), tray_(tray) {}

DeviceItemLook DeviceStatusItems::look(const Services& services, const DeviceSetting& device,
                                       std::chrono::system_clock::time_point now) {
  const std::string address = normalizeAddress(device.address);
  DeviceItemLook look;
  look.icon = savedDeviceIcon(device.icon);
  const auto phase = services.bluetooth.phaseOf(address);
  if (phase) look.phase = phase->kind();
  const auto& levels = services.battery.levels();
  if (auto found = levels.find(address); found != levels.end() && look.phase == BluetoothManager::Phase::Kind::connected &&
                                         now - found->second.readAt < std::chrono::duration<double>(DeviceMenu::batteryMaxAge)) {
    look.battery = found->second.badge();
  }
  look.toolTip = DeviceMenu::displayName(device) + ": " + DeviceMenu::status(services, device, now);
  return look;
}

Menu DeviceStatusItems::menuFor(const DeviceSetting& device) const {
  return DeviceMenu::fill({services_, settings_, runtime_.clock().wallNow(), recordHotkey}, device);
}

void DeviceStatusItems::refresh() {
  std::set<std::string> wanted;
  const auto now = runtime_.clock().wallNow();
  for (const auto& device : settings_.devices()) {
    if (!device.showInMenuBar) continue;
    const std::string address = normalizeAddress(device.address);
    if (!wanted.insert(address).second) continue;
    auto& item = items_[address];
    if (!item) {
      item = tray_.makeItem(address, lifetime_.guard([this, address](DeviceTray::Click click) { clicked(address, click); }));
    }
    item->update(look(services_, device, now), menuFor(device));
  }
  std::erase_if(items_, [&wanted](const auto& entry) { return !wanted.contains(entry.first); });
}

void DeviceStatusItems::clicked(const std::string& address, DeviceTray::Click click) {
  if (click == DeviceTray::Click::plain) {
    services_.bluetooth.toggle(address);
    return;
  }
  const auto item = items_.find(address);
  if (item == items_.end()) return;
  for (const auto& device : settings_.devices()) {
    if (normalizeAddress(device.address) != address) continue;
    // Fresh: the phase may have moved since the last refresh.
    item->second->update(look(services_, device, runtime_.clock().wallNow()), menuFor(device));
    item->second->popUpMenu();
    return;
  }
}

}  // namespace wh::ui
