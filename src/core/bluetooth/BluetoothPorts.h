#pragma once
// What the headphones logic needs of the Bluetooth stack, of sleep and wake, of the Bluetooth
// permission and of the battery sources. The Linux adapters speak to BlueZ, systemd-logind and
// UPower; tests use in-memory doubles.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/bluetooth/BatteryLevels.h"
#include "core/runtime/Registration.h"

namespace wh {

// Results of connect and disconnect calls. Zero is success; the other codes are logged as
// "0x%08x" and shown to the user through `BluetoothManager::describe`.
enum class BluetoothStatus : std::uint32_t {
  success = 0,
  bluetoothOff = 0xe00002d8,   // the adapter is off or not ready
  timeout = 0xe00002d6,        // the device did not answer in time
  notFound = 0xe00002f0,       // the device is not there (out of range, removed, host down)
  failed = 0xe00002bc,         // anything else
};

// One paired Bluetooth device whose major device class is audio.
struct PairedDevice {
  std::string address;  // normal form: lower case, "-" between the bytes
  std::string name;     // the device's name, or its address when it has none
  bool isConnected = false;

  friend bool operator==(const PairedDevice&, const PairedDevice&) = default;
};

// Why a read of the Bluetooth stack has no answer. `unknownDevice` is an answer: the stack was
// asked and knows no such device. The others mean it could not be asked, so nothing can be
// concluded and the question is asked again later (as the stack's own reports are not errors,
// these are kept apart from `BluetoothStatus`).
enum class BluetoothError {
  unknownDevice,  // the stack has no device with that address
  bluetoothOff,   // the device is not there and no adapter is present and powered
  unreachable,    // the stack is not running, did not answer, or has not been read yet
};

// A value from the stack or the reason why there is none.
template <class T>
class BluetoothResult {
 public:
  BluetoothResult(T value) : value_(std::move(value)) {}
  BluetoothResult(BluetoothError error) : value_(error) {}

  bool ok() const { return std::holds_alternative<T>(value_); }
  explicit operator bool() const { return ok(); }
  const T& operator*() const { return std::get<T>(value_); }
  const T* operator->() const { return &std::get<T>(value_); }
  // The error; only when there is no value.
  BluetoothError error() const { return std::get<BluetoothError>(value_); }
  // Whether the stack was asked and answered (with a value, or that it knows no such device).
  bool answered() const { return ok() || error() == BluetoothError::unknownDevice; }
  T valueOr(T fallback) const { return ok() ? **this : std::move(fallback); }
  friend bool operator==(const BluetoothResult&, const BluetoothResult&) = default;

 private:
  std::variant<T, BluetoothError> value_;
};

// Whether Bluetooth can be used at all: the stack's service and its adapters.
enum class BluetoothAdapterState {
  unknown,    // not read yet
  noService,  // the stack's service is not running
  noAdapter,  // the stack runs but has no adapter
  off,        // adapters, none of them powered
  on,         // some adapter is powered
};

// The Bluetooth stack. The reads (`pairedAudioDevices`, `isConnected`, `connectionStates`) never
// block: they are answered from what the adapter keeps of the stack, and may be made from any
// thread. The blocking calls (`openConnection`, `closeConnection`) are made on the Bluetooth serial
// queue and return within a bounded time. Addresses are accepted in either form ("AA:BB:…" or
// "aa-bb-…").
class BluetoothStack {
 public:
  virtual ~BluetoothStack() = default;

  // Paired audio devices, in the stack's order.
  virtual BluetoothResult<std::vector<PairedDevice>> pairedAudioDevices() = 0;
  // Whether the device is connected.
  virtual BluetoothResult<bool> isConnected(const std::string& address) = 0;
  // Every device the stack knows, by address (normal form), and whether it is connected: one
  // reading of the stack for many devices.
  virtual BluetoothResult<std::map<std::string, bool>> connectionStates() = 0;
  // Connects the device (blocking); success when it already is connected.
  virtual BluetoothResult<BluetoothStatus> openConnection(const std::string& address) = 0;
  // Disconnects the device (blocking).
  virtual BluetoothResult<BluetoothStatus> closeConnection(const std::string& address) = 0;

  // Calls `connected` on the main thread with the device's address (normal form) whenever a
  // paired device becomes connected, `disconnected` whenever one becomes disconnected, and
  // `readable` whenever the reads can be answered again after they could not (the stack came and
  // was read), until the registration is dropped.
  virtual std::unique_ptr<Registration> observeConnections(std::function<void(const std::string&)> connected,
                                                           std::function<void(const std::string&)> disconnected,
                                                           std::function<void()> readable = nullptr) = 0;

  // The adapters' state now (never blocks; any thread).
  virtual BluetoothAdapterState adapterState() = 0;
  // Calls `changed` on the main thread whenever `adapterState()` changes, until dropped.
  virtual std::unique_ptr<Registration> observeAdapter(std::function<void()> changed) = 0;
};

// Sleep and wake of the machine. Before the machine sleeps, `willSleep` runs on the main thread
// with a completion; the machine waits (the adapter holds a delay lock) until the completion has
// been called, from any thread, or a time limit has passed. `didWake` runs on the main thread
// after wake.
class SleepWatcher {
 public:
  virtual ~SleepWatcher() = default;
  virtual std::unique_ptr<Registration> observe(std::function<void(std::function<void()> done)> willSleep,
                                                std::function<void()> didWake) = 0;
};

// The permission to use Bluetooth.
enum class BluetoothAuthorization { undetermined = 0, restricted = 1, denied = 2, allowedAlways = 3 };

class BluetoothAuthority {
 public:
  virtual ~BluetoothAuthority() = default;
  // The state now (cheap; may be answered from what the adapter last learnt).
  virtual BluetoothAuthorization authorization() const = 0;
  // Starts following the state (the first time only; later calls do nothing): `updated` is then
  // called on the main thread once with the first answer and again on every change.
  virtual void startWatching(std::function<void()> updated) = 0;
};

// One battery entry of the live source.
struct BatteryEntry {
  std::optional<std::string> name;     // product name
  std::optional<std::string> address;  // in any form
  BatteryLevels levels;
};

// Where battery levels come from. Both reads block and run on the battery queue.
class BatterySources {
 public:
  virtual ~BatterySources() = default;
  // The live, cheap source: every entry it has now.
  virtual std::vector<BatteryEntry> readLive() = 0;
  // The slow source (read at most once a minute): levels by address in normal form.
  virtual std::map<std::string, BatteryLevels> readSlow() = 0;
};

}  // namespace wh
