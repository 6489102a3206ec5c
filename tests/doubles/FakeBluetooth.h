#pragma once
// In-memory stand-ins for the Bluetooth stack, sleep and wake, the Bluetooth permission and the
// battery sources, for tests of the headphones logic on the virtual clock.

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/bluetooth/BluetoothPorts.h"
#include "core/settings/Address.h"

namespace wh::test {

class FakeRegistration : public Registration {
 public:
  explicit FakeRegistration(bool& live) : live_(live) { live_ = true; }
  ~FakeRegistration() override { live_ = false; }

 private:
  bool& live_;
};

class FakeBluetoothStack : public BluetoothStack {
 public:
  struct Device {
    std::string name;
    bool paired = true;
    bool audio = true;
    bool connected = false;
  };

  std::map<std::string, Device> devices;  // by normalised address
  // Results of the next connects, in order; once empty, connects succeed. A failed close leaves
  // the device connected, as a real stack would.
  std::deque<BluetoothStatus> connectResults;
  BluetoothStatus closeResult = BluetoothStatus::success;
  // While set, the stack cannot be asked: every read and call gives this error.
  std::optional<BluetoothError> readError;
  std::vector<std::string> calls;  // "open aa-…", "close aa-…"

  Device& add(const std::string& address, const std::string& name, bool connected = false) {
    auto& device = devices[normalizeAddress(address)];
    device.name = name;
    device.connected = connected;
    return device;
  }

  BluetoothResult<std::vector<PairedDevice>> pairedAudioDevices() override {
    std::vector<PairedDevice> out;
    for (const auto& [address, device] : devices) {
      if (device.paired && device.audio) out.push_back({address, device.name, device.connected});
    }
    return readError ? BluetoothResult<std::vector<PairedDevice>>(*readError) : out;
  }
  BluetoothResult<bool> isConnected(const std::string& address) override {
    auto found = devices.find(normalizeAddress(address));
    if (readError || found == devices.end()) return readError.value_or(BluetoothError::unknownDevice);
    return found->second.connected;
  }
  BluetoothResult<std::map<std::string, bool>> connectionStates() override {
    std::map<std::string, bool> states;
    for (const auto& [address, device] : devices) states[address] = device.connected;
    return readError ? BluetoothResult<std::map<std::string, bool>>(*readError) : states;
  }
  BluetoothResult<BluetoothStatus> openConnection(const std::string& address) override { return change(address, true); }
  BluetoothResult<BluetoothStatus> closeConnection(const std::string& address) override { return change(address, false); }
  std::unique_ptr<Registration> observeConnections(std::function<void(const std::string&)> connected,
                                                   std::function<void(const std::string&)> disconnected,
                                                   std::function<void()> readable = nullptr) override {
    onConnected = std::move(connected);
    onDisconnected = std::move(disconnected);
    onReadable = std::move(readable);
    return std::make_unique<FakeRegistration>(observing);
  }

  BluetoothAdapterState adapterState() override { return adapter; }
  std::unique_ptr<Registration> observeAdapter(std::function<void()> changed) override {
    onAdapter = std::move(changed);
    return std::make_unique<FakeRegistration>(observingAdapter);
  }
  // The adapter is switched, bluetoothd comes or goes; the stack reports it.
  void setAdapter(BluetoothAdapterState next) {
    adapter = next;
    if (observingAdapter && onAdapter) onAdapter();
  }
  BluetoothAdapterState adapter = BluetoothAdapterState::on;
  bool observingAdapter = false;
  std::function<void()> onAdapter;

  // Something outside the agent connects or disconnects the device; the stack reports it.
  void connectFromOutside(const std::string& address) { fromOutside(address, true); }
  void disconnectFromOutside(const std::string& address) { fromOutside(address, false); }

  bool observing = false;
  std::function<void(const std::string&)> onConnected;
  std::function<void(const std::string&)> onDisconnected;
  std::function<void()> onReadable;

 private:
  BluetoothResult<BluetoothStatus> change(const std::string& address, bool connect) {
    calls.push_back((connect ? "open " : "close ") + normalizeAddress(address));
    auto found = devices.find(normalizeAddress(address));
    if (readError || found == devices.end()) return readError.value_or(BluetoothError::unknownDevice);
    BluetoothStatus status = connect ? BluetoothStatus::success : closeResult;
    if (connect && !connectResults.empty()) status = connectResults.front(), connectResults.pop_front();
    if (status == BluetoothStatus::success) found->second.connected = connect;
    return status;
  }
  void fromOutside(const std::string& address, bool connected) {
    devices[normalizeAddress(address)].connected = connected;
    const auto& report = connected ? onConnected : onDisconnected;
    if (observing && report) report(normalizeAddress(address));
  }
};

class FakeSleepWatcher : public SleepWatcher {
 public:
  std::unique_ptr<Registration> observe(std::function<void(std::function<void()>)> willSleep,
                                        std::function<void()> didWake) override {
    sleep = std::move(willSleep);
    wake = std::move(didWake);
    return std::make_unique<FakeRegistration>(observing);
  }
  bool observing = false;
  std::function<void(std::function<void()>)> sleep;
  std::function<void()> wake;
};

class FakeBluetoothAuthority : public BluetoothAuthority {
 public:
  BluetoothAuthorization authorization() const override { return state; }
  void startWatching(std::function<void()> updated) override {
    ++watchStarts;
    if (!onUpdate) onUpdate = std::move(updated);
  }
  // The permission changes; the update reaches the watcher (on the main thread, as here).
  void change(BluetoothAuthorization next) {
    state = next;
    if (onUpdate) onUpdate();
  }
  BluetoothAuthorization state = BluetoothAuthorization::undetermined;
  int watchStarts = 0;
  std::function<void()> onUpdate;
};

class FakeBatterySources : public BatterySources {
 public:
  std::vector<BatteryEntry> readLive() override { return ++liveReads, live; }
  std::map<std::string, BatteryLevels> readSlow() override { return ++slowReads, slow; }
  std::vector<BatteryEntry> live;
  std::map<std::string, BatteryLevels> slow;
  int liveReads = 0;
  int slowReads = 0;
};

}  // namespace wh::test
