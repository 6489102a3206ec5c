#pragma once
// The Bluetooth stack over BlueZ on the system bus. Paired audio devices are the Device1 objects
// that are paired and whose major device class is audio; connect and disconnect are Device1's
// Connect and Disconnect, waited for with a time limit; connection notifications follow Device1's
// Connected property, BlueZ's objects coming and going, and bluetoothd itself coming and going.
//
// The blocking calls may be made from any thread (Qt runs the bus connection on a thread of its
// own). Make the stack and its observations on the main thread: notifications are posted to the
// main queue from there.

#include <QDBusConnection>
#include <QDBusError>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/bluetooth/BluetoothPorts.h"
#include "core/runtime/Runtime.h"

namespace wh::platform {

// The status that a failed BlueZ call stands for: NotReady -> bluetoothOff; no answer in time or a
// page time-out -> timeout; no such device or object, host down, BlueZ not running -> notFound;
// anything else -> failed.
BluetoothStatus bluezStatus(const QDBusError& error);

class BluezStack final : public BluetoothStack {
 public:
  // How long Connect and Disconnect may take before they count as not answered.
  static constexpr std::chrono::milliseconds defaultCallTimeout{20000};
  // How long a read of BlueZ's objects may take (capped by the call time-out).
  static constexpr std::chrono::milliseconds queryTimeout{3000};

  explicit BluezStack(MainQueue& main, QDBusConnection bus = QDBusConnection::systemBus(),
                      std::chrono::milliseconds callTimeout = defaultCallTimeout);
  ~BluezStack() override;

  std::vector<PairedDevice> pairedAudioDevices() override;
  std::optional<bool> isConnected(const std::string& address) override;
  std::map<std::string, bool> connectionStates() override;
  std::optional<BluetoothStatus> openConnection(const std::string& address) override;
  std::optional<BluetoothStatus> closeConnection(const std::string& address) override;
  std::unique_ptr<Registration> observeConnections(std::function<void(const std::string&)> connected,
                                                   std::function<void(const std::string&)> disconnected) override;

 private:
  class Observer;
  std::optional<BluetoothStatus> changeConnection(const std::string& address, bool connect);
  int queryMilliseconds() const;

  MainQueue& main_;
  QDBusConnection bus_;
  std::chrono::milliseconds callTimeout_;
};

}  // namespace wh::platform
