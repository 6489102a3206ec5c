#include "support/SystemBusRig.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <sstream>

namespace wh::test {

namespace {

using namespace std::chrono_literals;

constexpr const char* python = "/usr/bin/python3";

// Drives the mocks: system_bus_rig.py BUS-ADDRESS COMMAND ARGUMENTS...
constexpr const char* helper = WRENHAVEN_SYSTEM_BUS_HELPER;

}  // namespace

SystemBusRig::SystemBusRig(Options options) {
  if (::access(python, X_OK) != 0) {
    whyNot_ = "Debian's /usr/bin/python3 is missing (scripts/install-deps.sh installs it with python3-dbusmock)";
    return;
  }
  system_ = std::make_unique<DBusDaemon>(
      DBusDaemon::Kind::system, options.denyBluez ? "    <deny send_destination=\"org.bluez\"/>" : std::string());
  if (!system_->available()) {
    whyNot_ = system_->whyNot();
    return;
  }
  if (options.sessionBus) {
    session_ = std::make_unique<DBusDaemon>(DBusDaemon::Kind::session);
    if (!session_->available()) {
      whyNot_ = session_->whyNot();
      return;
    }
  }
  // Started together, waited for one by one: each takes a moment to load Python.
  const std::vector<std::tuple<std::unique_ptr<ChildProcess>*, const char*, const char*>> mocks{
      {options.bluez ? &bluez_ : nullptr, "org.bluez", "bluez5"},
      {options.logind ? &logind_ : nullptr, "org.freedesktop.login1", "logind"},
      {options.upower ? &upower_ : nullptr, "org.freedesktop.UPower", "upower"}};
  for (const auto& [mock, name, templateName] : mocks) {
    if (mock != nullptr) *mock = startMock(templateName);
  }
  for (const auto& [mock, name, templateName] : mocks) {
    if (mock == nullptr || !whyNot_.empty()) continue;
    if (!eventually([&, mock = mock, name = name] { return system_->hasOwner(name) || !(*mock)->running(); }, 15s) ||
        !(*mock)->running()) {
      whyNot_ = std::string("python3-dbusmock's ") + templateName +
                " template did not start (scripts/install-deps.sh installs python3-dbusmock and python3-gi)";
    }
  }
}

std::unique_ptr<ChildProcess> SystemBusRig::startMock(const std::string& templateName) {
  return std::make_unique<ChildProcess>(
      std::vector<std::string>{python, "-m", "dbusmock", "--template", templateName},
      ChildProcess::Environment{{"DBUS_SYSTEM_BUS_ADDRESS", system_->address()}});
}

bool SystemBusRig::waitForName(const char* name, bool present) {
  if (eventually([&] { return system_->hasOwner(name) == present; }, 15s)) return true;
  ADD_FAILURE() << "system bus rig: " << name << (present ? " did not come" : " stayed on the bus");
  return false;
}

ChildProcess::Environment SystemBusRig::environment() const {
  ChildProcess::Environment environment{{"DBUS_SYSTEM_BUS_ADDRESS", systemBusAddress()}};
  if (session_) environment["DBUS_SESSION_BUS_ADDRESS"] = session_->address();
  return environment;
}

bool SystemBusRig::run(const std::vector<std::string>& arguments, std::string* output) const {
  std::vector<std::string> argv{python, helper, systemBusAddress()};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  const auto result = runCommand(argv, {}, 15s);
  if (output != nullptr) *output = result.output;
  EXPECT_EQ(result.status, 0) << "system bus rig: " << arguments.front() << " failed: " << result.output;
  return result.status == 0;
}

std::string SystemBusRig::output(const std::vector<std::string>& arguments) const {
  std::string text;
  return run(arguments, &text) ? text : std::string();
}

void SystemBusRig::stopBluez(bool crash) {
  if (!bluez_) return;
  bluez_->terminate(crash ? SIGKILL : SIGTERM);
  bluez_->waitFor(5s);
  bluez_.reset();
  waitForName("org.bluez", false);
}

bool SystemBusRig::startBluez() {
  if (bluez_) return true;
  bluez_ = startMock("bluez5");
  bool ok = waitForName("org.bluez", true);
  if (powered_) ok = ok && run({"power", *powered_ ? "1" : "0", "new"});
  for (const auto& device : devices_) ok = ok && putDevice(device);
  return ok;
}

bool SystemBusRig::putDevice(const Device& device) const {
  return run({"device", device.address, device.name, std::to_string(device.deviceClass), device.paired ? "1" : "0",
              device.battery ? std::to_string(*device.battery) : "-"});
}

bool SystemBusRig::addDevice(const Device& device) {
  if (!powered_ && !run({"power", "1", "new"})) return false;
  powered_ = powered_.value_or(true);
  forget(device.address);
  devices_.push_back(device);
  return putDevice(device);
}

bool SystemBusRig::behave(const std::string& address, const std::string& method, const std::vector<std::string>& how) {
  std::vector<std::string> arguments{"behave", address, method};
  arguments.insert(arguments.end(), how.begin(), how.end());
  // A device that vanishes is gone from what a restart puts back.
  if (how.front() == "vanish") forget(address);
  return run(arguments);
}

bool SystemBusRig::restartLogind() {
  if (logind_) {
    logind_->terminate(SIGKILL);
    logind_->waitFor(5s);
  }
  if (!waitForName("org.freedesktop.login1", false)) return false;
  logind_ = startMock("logind");
  return waitForName("org.freedesktop.login1", true);
}

std::vector<std::string> SystemBusRig::inhibitors() {
  std::string output;
  run({"inhibitors"}, &output);
  std::vector<std::string> lines;
  std::istringstream in(output);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

bool SystemBusRig::addPowerDevice(const PowerDevice& device) {
  std::ostringstream percentage;
  percentage << device.percentage;
  return run({"upower", device.name, std::to_string(device.type), device.model, device.serial, device.nativePath,
              percentage.str()});
}

}  // namespace wh::test
