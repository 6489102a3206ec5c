#include "core/ui/DeviceMenu.h"

#include "core/settings/Address.h"
#include "core/texts/PlatformTexts.h"

namespace wh::ui {
namespace {

using Kind = BluetoothManager::Phase::Kind;

Kind phaseKind(const Services& services, const std::string& address) {
  const auto phase = services.bluetooth.phaseOf(address);
  return phase ? phase->kind() : Kind::disconnected;
}

}  // namespace

std::string DeviceMenu::displayName(const DeviceSetting& device) {
  return device.name.empty() ? "Headphones" : device.name;
}

const std::array<DeviceMenu::Flag, 5>& DeviceMenu::flags() {
  static constexpr std::array<Flag, 5> all{{
      {texts::kShowInTray, &DeviceSetting::showInMenuBar},
      {texts::kKeepMusicQuality, &DeviceSetting::pinInput},
      {"Connect Only", &DeviceSetting::connectOnly},
      {"Connect After Wake", &DeviceSetting::connectOnWake},
      {"Disconnect Before Sleep", &DeviceSetting::disconnectOnSleep},
  }};
  return all;
}

std::string DeviceMenu::connectOnlyToolTip(const std::string& name) {
  return "Clicking the icon or pressing the hotkey never disconnects; it moves the sound back to " + name + ".";
}

std::string DeviceMenu::iconLabel(DeviceIcon icon) {
  std::string title(rawValue(icon));
  title[0] = static_cast<char>(title[0] - 'a' + 'A');
  return title;
}

std::string DeviceMenu::phaseLine(const BluetoothManager::Phase& phase) {
  switch (phase.kind()) {
    case Kind::disconnected:
      return "Not connected";
    case Kind::connecting:
      return "Connecting…";
    case Kind::disconnecting:
      return "Disconnecting…";
    case Kind::failed:
      return phase.message();
    case Kind::connected:
      break;
  }
  return "Connected";
}

std::string DeviceMenu::status(const Services& services, const DeviceSetting& device,
                               std::chrono::system_clock::time_point now) {
  const std::string address = normalizeAddress(device.address);
  const auto phase = services.bluetooth.phaseOf(address).value_or(BluetoothManager::Phase::disconnected());
  if (phase.kind() != Kind::connected) return phaseLine(phase);
  const auto& levels = services.battery.levels();
  const auto found = levels.find(address);
  if (found != levels.end() && found->second.hasAnyLevel() &&
      now - found->second.readAt < std::chrono::duration<double>(batteryMaxAge)) {
    return "Connected · " + found->second.summary();
  }
  return "Connected";
}

void DeviceMenu::update(Settings& settings, const std::string& address,
                        const std::function<void(DeviceSetting&)>& change) {
  auto devices = settings.devices();
  for (auto& device : devices) {
    if (normalizeAddress(device.address) != address) continue;
    change(device);
    settings.setDevices(devices);
    return;
  }
}

Menu DeviceMenu::fill(const Context& context, const DeviceSetting& device) {
  Services& services = context.services;
  Settings& settings = context.settings;
  const std::string address = normalizeAddress(device.address);
  const std::string name = displayName(device);
  const bool connected = phaseKind(services, address) == Kind::connected;

  Menu menu;
  menu.push_back(MenuEntry::disabled(status(services, device, context.now)));

  auto toggle = [&services, address] { services.bluetooth.toggle(address); };
  if (connected && device.connectOnly) {
    menu.push_back(MenuEntry::item("Use for Sound Output", toggle));
    menu.push_back(MenuEntry::item("Disconnect", [&services, address] {
      services.bluetooth.set(address, BluetoothManager::Phase::disconnecting());
      services.bluetooth.disconnect(address);
    }));
  } else {
    menu.push_back(MenuEntry::item(connected ? "Disconnect" : "Connect", toggle));
  }
  menu.push_back(MenuEntry::separator());

  for (const Flag& flag : flags()) {
    menu.push_back(MenuEntry::check(flag.title, device.*flag.member, [&settings, address, field = flag.member] {
      update(settings, address, [field](DeviceSetting& record) { record.*field = !(record.*field); });
    }));
    if (flag.member == &DeviceSetting::connectOnly) menu.back().toolTip = connectOnlyToolTip(name);
  }

  Menu icons;
  const DeviceIcon current = savedDeviceIcon(device.icon);
  for (DeviceIcon icon : allDeviceIcons) {
    icons.push_back(MenuEntry::check(iconLabel(icon), icon == current, [&settings, address, icon] {
      update(settings, address, [icon](DeviceSetting& record) { record.icon = std::string(rawValue(icon)); });
    }));
  }
  menu.push_back(MenuEntry::sub("Icon", std::move(icons)));

  Menu hotkey;
  if (context.recordHotkey) {
    hotkey.push_back(MenuEntry::item("Record Hotkey…", [record = context.recordHotkey, device] { record(device); }));
  }
  if (device.hotkey) {
    hotkey.push_back(MenuEntry::item("Remove Hotkey", [&settings, address] {
      update(settings, address, [](DeviceSetting& record) { record.hotkey.reset(); });
    }));
  }
  menu.push_back(MenuEntry::sub("Hotkey: " + (device.hotkey ? context.services.recorder.display(*device.hotkey) : std::string("None")),
                                std::move(hotkey)));
  menu.push_back(MenuEntry::separator());
  menu.push_back(MenuEntry::item("Remove " + name, [&settings, address] { settings.removeDevice(address); }));
  return menu;
}

}  // namespace wh::ui
