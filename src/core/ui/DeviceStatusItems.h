#pragma once
// One tray item per remembered pair of headphones that asks for it: a plain click connects or
// disconnects them, the menu click opens their device menu.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "core/app/Services.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"
#include "core/ui/MenuEntry.h"

namespace wh::ui {

// What an item shows: the glyph of its icon kind, the connection phase and the battery badge.
struct DeviceItemLook {
  DeviceIcon icon = DeviceIcon::headphones;
  BluetoothManager::Phase::Kind phase = BluetoothManager::Phase::Kind::disconnected;
  std::optional<int> battery;
  std::string toolTip;

  friend bool operator==(const DeviceItemLook&, const DeviceItemLook&) = default;
};

// One tray item, drawn by the toolkit.
class DeviceItem {
 public:
  virtual ~DeviceItem() = default;
  // Redraws the item and replaces the menu the tray shows for it.
  virtual void update(const DeviceItemLook& look, Menu menu) = 0;
  // Opens the menu at the item (or at the pointer) now.
  virtual void popUpMenu() = 0;
};

class DeviceTray {
 public:
  enum class Click { plain, menu };
  virtual ~DeviceTray() = default;
  // A new item; `clicked` reports its clicks.
  virtual std::unique_ptr<DeviceItem> makeItem(const std::string& address, std::function<void(Click)> clicked) = 0;
};

class DeviceStatusItems {
 public:
  DeviceStatusItems(Runtime& runtime, Services& services, Settings& settings, DeviceTray& tray);
  DeviceStatusItems(const DeviceStatusItems&) = delete;
  DeviceStatusItems& operator=(const DeviceStatusItems&) = delete;

  // Opens the hotkey recorder for the headphones; unset until a recorder exists.
  std::function<void(const DeviceSetting&)> recordHotkey;

  // Makes the items match the records that ask for one and redraws every item.
  void refresh();
  void clicked(const std::string& address, DeviceTray::Click click);

  std::size_t count() const { return items_.size(); }
  static DeviceItemLook look(const Services& services, const DeviceSetting& device,
                             std::chrono::system_clock::time_point now);

 private:
  Menu menuFor(const DeviceSetting& device) const;

  Runtime& runtime_;
  Services& services_;
  Settings& settings_;
  DeviceTray& tray_;
  std::map<std::string, std::unique_ptr<DeviceItem>> items_;
  Lifetime lifetime_;
};

}  // namespace wh::ui
