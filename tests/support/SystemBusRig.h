#pragma once
// A private system bus for tests, carrying python3-dbusmock's stand-ins for bluetoothd (template
// bluez5), systemd-logind (logind) and UPower (upower), and, when asked, a private session bus as
// well. Helpers add an adapter and paired headphones of audio class with a battery, connect and
// disconnect them from outside, choose what Device1.Connect does (succeed, fail with a BlueZ
// error, never answer, lose the device), stop and restart bluetoothd, emit PrepareForSleep and
// read logind's inhibitor list, and add UPower devices. Everything is stopped when the rig goes
// away, also when a test fails halfway (the mocks are ChildProcesses, and they end with their bus).
//
// The mocks are driven with gdbus; a helper that cannot do its part records a test failure.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"
#include "support/TempDir.h"

namespace wh::test {

class SystemBusRig {
 public:
  struct Options {
    bool bluez = true;
    bool logind = false;
    bool upower = false;
    // A private session bus too (for a whole agent, whose command channel lives there).
    bool sessionBus = false;
    // The bus policy refuses every call to org.bluez (as a policy or sandbox would).
    bool denyBluez = false;
  };

  // The same headphones as PulseRig's, so that a bridge between the two rigs can pair them up.
  static constexpr const char* headphonesAddress = "AA:BB:CC:DD:EE:FF";
  static constexpr const char* headphonesName = "WH-1000XM4";
  // Major class audio/video (4), minor class wearable headset; services audio and rendering.
  static constexpr std::uint32_t headphonesClass = 0x240404;
  static constexpr std::uint32_t phoneClass = 0x5a020c;

  struct Device {
    std::string address;  // "AA:BB:CC:DD:EE:FF"
    std::string name;     // Name and Alias; empty for a device that told none
    std::uint32_t deviceClass = headphonesClass;
    bool paired = true;
    std::optional<int> battery;  // Battery1.Percentage
    std::string adapter = "hci0";
  };
  // Paired headphones of audio class with their battery at 80 %.
  static Device headphones();

  struct Inhibitor {
    std::string what, who, why, mode;
  };

  struct PowerDevice {
    std::string name;   // the last part of its object path
    unsigned type = 19;  // UPower's device kind: 17 headset, 19 headphones, 2 battery, 5 mouse, ...
    std::string model;
    std::string serial;
    std::string nativePath;
    double percentage = 0;
  };

  explicit SystemBusRig(Options options);
  SystemBusRig() : SystemBusRig(Options()) {}
  ~SystemBusRig();
  SystemBusRig(const SystemBusRig&) = delete;
  SystemBusRig& operator=(const SystemBusRig&) = delete;

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  const std::string& systemBusAddress() const { return system_->address(); }
  // Empty unless Options::sessionBus.
  std::string sessionBusAddress() const { return session_ ? session_->address() : std::string(); }
  // DBUS_SYSTEM_BUS_ADDRESS (and DBUS_SESSION_BUS_ADDRESS) for a program under test.
  ChildProcess::Environment environment() const;
  // What a mock ("bluez", "logind", "upower") logged: every call it answered.
  std::string mockLog(const std::string& which) const;

  // --- bluetoothd
  bool bluezRunning() const { return bluez_ != nullptr; }
  // Ends bluetoothd (politely, or as a crash) and waits until its name has left the bus.
  void stopBluez(bool crash = false);
  // Starts it and puts back the adapters and devices added so far, paired and not connected, as a
  // restarted bluetoothd reads them from its storage. True once they are there.
  bool startBluez();

  bool addAdapter(const std::string& name = "hci0", bool powered = true);
  bool setAdapterPowered(const std::string& name, bool powered);
  // Adds the device (and its adapter when there is none yet) with Connect and Disconnect that
  // work, as BlueZ announces it: the object first, then its pairing and class.
  bool addDevice(const Device& device);
  bool addHeadphones() { return addDevice(headphones()); }
  // Removes the device as Adapter1.RemoveDevice does.
  bool removeDevice(const std::string& address);
  // Sets the battery level, adding Battery1 when the device has none.
  bool setBattery(const std::string& address, int percent);
  // The link as the headphones or another program make or break it.
  bool connectFromOutside(const std::string& address);
  bool disconnectFromOutside(const std::string& address);
  // What bluetoothd says about the link.
  bool isConnected(const std::string& address);
  // How often Device1.Connect was called on the device.
  int connectCalls(const std::string& address);

  // What Device1.Connect does from now on (until the device is added again or bluetoothd restarts):
  bool connectNormally(const std::string& address);
  bool failConnect(const std::string& address, const std::string& errorName, const std::string& message);
  // Answers only after `seconds`; bluetoothd answers nothing else meanwhile.
  bool hangConnect(const std::string& address, double seconds);
  // The device disappears while the call runs; the call then fails with org.bluez.Error.Failed.
  // It is gone from what a restart puts back at once.
  bool removeDuringConnect(const std::string& address);
  bool failDisconnect(const std::string& address, const std::string& errorName, const std::string& message);
  // Any other behaviour: Python run by dbusmock with `self` the device object.
  bool setMethodCode(const std::string& address, const std::string& method, const std::string& pythonCode);

  static std::string devicePath(const std::string& adapter, const std::string& address);

  // --- logind
  // Ends logind as a crash would and starts a fresh one (with no inhibitors); true once it is back.
  bool restartLogind();
  // Sets PreparingForSleep and emits PrepareForSleep(sleeping), as logind does around sleep.
  bool emitPrepareForSleep(bool sleeping);
  std::vector<Inhibitor> inhibitors();

  // --- UPower
  bool addPowerDevice(const PowerDevice& device);

  // gdbus call on the system bus; `arguments` in GVariant text. Failures are returned, not recorded.
  CommandResult call(const std::string& destination, const std::string& path, const std::string& method,
                     const std::vector<std::string>& arguments = {}) const;
  // GVariant text of a string.
  static std::string text(const std::string& value);

 private:
  std::unique_ptr<ChildProcess> startMock(const std::string& templateName);
  bool expect(const std::string& what, const CommandResult& result) const;
  bool putAdapter(const std::string& name, bool powered);
  bool putDevice(const Device& device);
  bool showBattery(const Device& device, int percent);
  const Device* device(const std::string& address) const;
  bool bluezCall(const std::string& address, const std::string& method, const std::vector<std::string>& arguments);

  Options options_;
  std::string whyNot_;
  TempDir folder_{"wrenhaven-system-bus"};
  std::unique_ptr<DBusDaemon> system_;
  std::unique_ptr<DBusDaemon> session_;
  std::unique_ptr<ChildProcess> bluez_;
  std::unique_ptr<ChildProcess> logind_;
  std::unique_ptr<ChildProcess> upower_;
  std::vector<std::pair<std::string, bool>> adapters_;  // name, powered
  std::vector<Device> devices_;
  std::vector<std::string> batteriesShown_;  // addresses whose Battery1 exists in this bluetoothd
};

}  // namespace wh::test
