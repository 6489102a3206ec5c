#pragma once
// In-memory stand-ins for the Bluetooth stack, sleep and wake, the Bluetooth permission and the
// battery sources, for tests of the headphones logic on the virtual clock.

#include <deque>
#include <map>
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

  // Devices by normalised address.
  std::map<std::string, Device> devices;
  // Results that the next connect calls return, in order; once empty, connects succeed.
  std::deque<BluetoothStatus> connectResults;
  BluetoothStatus closeResult = BluetoothStatus::success;
  // A failed close leaves the device connected, as a real stack would.
  std::vector<std::string> calls;  // "open aa-…", "close aa-…"
  int stateReads = 0;              // connectionStates calls

  Device& add(const std::string& address, const std::string& name, bool connected = false) {
    auto& device = devices[normalizeAddress(address)];
    device.name = name;
    device.connected = connected;
    return device;
  }

  std::vector<PairedDevice> pairedAudioDevices() override {
    std::vector<PairedDevice> out;
    for (const auto& [address, device] : devices) {
      if (device.paired && device.audio) out.push_back({address, device.name, device.connected});
    }
    return out;
  }
  std::optional<bool> isConnected(const std::string& address) override {
    auto found = devices.find(normalizeAddress(address));
    if (found == devices.end()) return std::nullopt;
    return found->second.connected;
  }
  std::map<std::string, bool> connectionStates() override {
    ++stateReads;
    std::map<std::string, bool> states;
    for (const auto& [address, device] : devices) states[address] = device.connected;
    return states;
  }
  std::optional<BluetoothStatus> openConnection(const std::string& address) override {
    calls.push_back("open " + normalizeAddress(address));
    auto found = devices.find(normalizeAddress(address));
    if (found == devices.end()) return std::nullopt;
    BluetoothStatus status = BluetoothStatus::success;
    if (!connectResults.empty()) {
      status = connectResults.front();
      connectResults.pop_front();
    }
    if (status == BluetoothStatus::success) found->second.connected = true;
    return status;
  }
  std::optional<BluetoothStatus> closeConnection(const std::string& address) override {
    calls.push_back("close " + normalizeAddress(address));
    auto found = devices.find(normalizeAddress(address));
    if (found == devices.end()) return std::nullopt;
    if (closeResult == BluetoothStatus::success) found->second.connected = false;
    return closeResult;
  }
  std::unique_ptr<Registration> observeConnections(std::function<void(const std::string&)> connected,
                                                   std::function<void(const std::string&)> disconnected) override {
    onConnected = std::move(connected);
    onDisconnected = std::move(disconnected);
    return std::make_unique<FakeRegistration>(observing);
  }

  // Something outside the agent connects or disconnects the device; the stack reports it.
  void connectFromOutside(const std::string& address) {
    devices[normalizeAddress(address)].connected = true;
    if (observing && onConnected) onConnected(normalizeAddress(address));
  }
  void disconnectFromOutside(const std::string& address) {
    devices[normalizeAddress(address)].connected = false;
    if (observing && onDisconnected) onDisconnected(normalizeAddress(address));
  }

  bool observing = false;
  std::function<void(const std::string&)> onConnected;
  std::function<void(const std::string&)> onDisconnected;
};

class FakeSleepWatcher : public SleepWatcher {
 public:
  std::unique_ptr<Registration> observe(std::function<void()> willSleep, std::function<void()> didWake) override {
    sleep = std::move(willSleep);
    wake = std::move(didWake);
    return std::make_unique<FakeRegistration>(observing);
  }
  bool observing = false;
  std::function<void()> sleep;
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
  std::vector<BatteryEntry> readLive() override {
    ++liveReads;
    return live;
  }
  std::map<std::string, BatteryLevels> readSlow() override {
    ++slowReads;
    return slow;
  }
  std::vector<BatteryEntry> live;
  std::map<std::string, BatteryLevels> slow;
  int liveReads = 0;
  int slowReads = 0;
};

}  // namespace wh::test
