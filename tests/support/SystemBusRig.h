#pragma once
// A private system bus for tests, carrying python3-dbusmock's stand-ins for bluetoothd (template
// bluez5), systemd-logind (logind) and UPower (upower), and, when asked, a private session bus.
// The mocks are driven by a small Python helper (dbus-python, as dbusmock itself): add adapters and
// paired devices with a battery, make and break links from outside, choose what Device1's Connect
// and Disconnect do, stop and restart bluetoothd, emit PrepareForSleep, read logind's inhibitors,
// add UPower devices. A helper that cannot do its part records a test failure. Everything stops
// when the rig goes away.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"

namespace wh::test {

class SystemBusRig {
 public:
  struct Options {
    bool bluez = true, logind = false, upower = false;
    bool sessionBus = false;  // for a whole agent, whose command channel lives there
    bool denyBluez = false;   // the bus policy refuses every call to org.bluez
  };
  // The same headphones as PulseRig's, so that a bridge between the two rigs can pair them up.
  static constexpr const char* headphonesAddress = "AA:BB:CC:DD:EE:FF";
  static constexpr std::uint32_t headphonesClass = 0x240404;  // audio/video, wearable headset
  static constexpr std::uint32_t phoneClass = 0x5a020c;
  struct Device {
    std::string address;  // "AA:BB:CC:DD:EE:FF", on adapter hci0
    std::string name;     // empty for a device that told none
    std::uint32_t deviceClass = headphonesClass;
    bool paired = true;
    std::optional<int> battery = std::nullopt;  // Battery1.Percentage
  };
  struct PowerDevice {
    std::string name;    // the last part of its object path
    unsigned type = 19;  // UPower's kind: 17 headset, 19 headphones, 2 battery, 5 mouse, ...
    std::string model, serial, nativePath;
    double percentage = 0;
  };

  explicit SystemBusRig(Options options);
  SystemBusRig() : SystemBusRig(Options()) {}
  ~SystemBusRig() = default;  // the mocks first, then their buses (the members' order)
  SystemBusRig(const SystemBusRig&) = delete;
  SystemBusRig& operator=(const SystemBusRig&) = delete;

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  const std::string& systemBusAddress() const { return system_->address(); }
  std::string sessionBusAddress() const { return session_ ? session_->address() : std::string(); }
  // DBUS_SYSTEM_BUS_ADDRESS (and DBUS_SESSION_BUS_ADDRESS) for a program under test.
  ChildProcess::Environment environment() const;

  // --- bluetoothd. Stopping (politely or as a crash) waits until its name has left the bus;
  // starting puts back the adapter and the devices added so far, paired and not connected.
  void stopBluez(bool crash = false);
  bool startBluez();
  bool setAdapterPowered(bool powered) { return run({"power", powered ? "1" : "0"}) && (powered_ = powered, true); }
  // Adds the device (and the adapter when there is none yet) as BlueZ announces it: the object
  // first, then its pairing and class; Connect and Disconnect work.
  bool addDevice(const Device& device);
  // Paired headphones of audio class with their battery at 80 %.
  bool addHeadphones() { return addDevice({headphonesAddress, "WH-1000XM4", headphonesClass, true, 80}); }
  bool removeDevice(const std::string& address) { return forget(address), run({"remove", address}); }
  // The link as the headphones or another program make or break it.
  bool connectFromOutside(const std::string& address) { return run({"outside", address, "1"}); }
  bool disconnectFromOutside(const std::string& address) { return run({"outside", address, "0"}); }
  bool isConnected(const std::string& address) { return output({"connected", address}).starts_with("True"); }
  int connectCalls(const std::string& address) { return std::stoi("0" + output({"calls", address})); }
  // What Device1's `method` ("Connect", "Disconnect") does from now on: {"normal"},
  // {"fail", error name, message}, {"hang", seconds} (then works; bluetoothd answers nothing else
  // meanwhile), {"vanish"} (the device disappears during the call, which fails).
  bool behave(const std::string& address, const std::string& method, const std::vector<std::string>& how);

  // --- logind: a crash and a fresh start with no inhibitors; PreparingForSleep set and
  // PrepareForSleep(sleeping) emitted, as around sleep; "what who why mode" of each inhibitor.
  bool restartLogind();
  bool emitPrepareForSleep(bool sleeping) { return run({"sleep", sleeping ? "1" : "0"}); }
  std::vector<std::string> inhibitors();

  // --- UPower
  bool addPowerDevice(const PowerDevice& device);

 private:
  std::unique_ptr<ChildProcess> startMock(const std::string& templateName);
  bool waitForName(const char* name, bool present);
  // Runs the helper with `arguments`; a failure is a test failure.
  bool run(const std::vector<std::string>& arguments, std::string* output = nullptr) const;
  std::string output(const std::vector<std::string>& arguments) const;
  bool putDevice(const Device& device) const;
  void forget(const std::string& address) { std::erase_if(devices_, [&](const Device& d) { return d.address == address; }); }

  std::string whyNot_;
  std::unique_ptr<DBusDaemon> system_, session_;  // outlive the mocks
  std::unique_ptr<ChildProcess> bluez_, logind_, upower_;
  std::optional<bool> powered_;  // hci0's, once there is one
  std::vector<Device> devices_;
};

}  // namespace wh::test
