#pragma once
// The Bluetooth stack over BlueZ on the system bus. Paired audio devices are the Device1 objects
// that are paired and whose major device class is audio; connect and disconnect are Device1's
// Connect and Disconnect, waited for with a time limit.
//
// The stack keeps one live copy of BlueZ's adapters and devices: filled by an asynchronous
// GetManagedObjects and kept current from InterfacesAdded, InterfacesRemoved, PropertiesChanged
// and bluetoothd coming and going. The reads are answered from that copy at once, from any
// thread; while it is not filled (bluetoothd absent, not answering, or not read yet) they answer
// "unreachable". Connection notifications follow the same copy.
//
// Make the stack and its observations on the main thread, and drop the observations before the
// stack. Connect and disconnect block and are made on the Bluetooth queue.

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
  // How long after a read of BlueZ's objects that was not answered it is read again.
  static constexpr std::chrono::milliseconds rereadDelay{2000};

  explicit BluezStack(MainQueue& main, QDBusConnection bus = QDBusConnection::systemBus(),
                      std::chrono::milliseconds callTimeout = defaultCallTimeout);
  ~BluezStack() override;

  BluetoothResult<std::vector<PairedDevice>> pairedAudioDevices() override;
  BluetoothResult<bool> isConnected(const std::string& address) override;
  BluetoothResult<std::map<std::string, bool>> connectionStates() override;
  BluetoothResult<BluetoothStatus> openConnection(const std::string& address) override;
  BluetoothResult<BluetoothStatus> closeConnection(const std::string& address) override;
  std::unique_ptr<Registration> observeConnections(std::function<void(const std::string&)> connected,
                                                   std::function<void(const std::string&)> disconnected,
                                                   std::function<void()> readable = nullptr) override;
  BluetoothAdapterState adapterState() override;
  std::unique_ptr<Registration> observeAdapter(std::function<void()> changed) override;


 private:
  class Mirror;
  class Observer;
  class AdapterObserver;
  BluetoothResult<BluetoothStatus> changeConnection(const std::string& address, bool connect);
  int queryMilliseconds() const;

  MainQueue& main_;
  QDBusConnection bus_;
  std::chrono::milliseconds callTimeout_;
  std::unique_ptr<Mirror> mirror_;
};

}  // namespace wh::platform
