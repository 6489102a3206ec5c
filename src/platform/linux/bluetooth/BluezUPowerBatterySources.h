#pragma once
// Battery levels on Linux. The live source is BlueZ: the Battery1 Percentage that headphones
// report over the link (one level, `single`). The slow source is UPower: its headset, headphones,
// speaker and other audio devices that have a Percentage, matched by the Bluetooth address found
// in their Serial or NativePath. Both reads block (each call at most the time-out) and are made
// on the battery queue.

#include <QDBusConnection>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "core/bluetooth/BluetoothPorts.h"

namespace wh::platform {

// The Bluetooth address (normal form) in a UPower device's Serial ("AA:BB:CC:DD:EE:FF") or, when
// the serial holds none, its NativePath (BlueZ's "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF", the
// kernel's "hid-aa:bb:cc:dd:ee:ff-battery"). Nothing when neither holds an address.
std::optional<std::string> upowerDeviceAddress(std::string_view serial, std::string_view nativePath);

class BluezUPowerBatterySources final : public BatterySources {
 public:
  static constexpr std::chrono::milliseconds defaultTimeout{3000};

  explicit BluezUPowerBatterySources(QDBusConnection bus = QDBusConnection::systemBus(),
                                     std::chrono::milliseconds timeout = defaultTimeout);

  std::vector<BatteryEntry> readLive() override;
  std::map<std::string, BatteryLevels> readSlow() override;

 private:
  QDBusConnection bus_;
  int timeoutMs_;
};

}  // namespace wh::platform
