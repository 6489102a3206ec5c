#include "support/SystemBusRig.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>

namespace wh::test {

namespace {

using namespace std::chrono_literals;

constexpr const char* python = "/usr/bin/python3";
constexpr const char* bluezName = "org.bluez";
constexpr const char* logindName = "org.freedesktop.login1";
constexpr const char* upowerName = "org.freedesktop.UPower";
constexpr const char* logindPath = "/org/freedesktop/login1";
constexpr const char* upowerPath = "/org/freedesktop/UPower";
constexpr const char* device1 = "org.bluez.Device1";
constexpr const char* mockInterface = "org.freedesktop.DBus.Mock";

// A Python string literal.
std::string pythonText(const std::string& value) {
  std::string out = "'";
  for (char c : value) {
    if (c == '\\' || c == '\'') out.push_back('\\');
    out.push_back(c);
  }
  return out + "'";
}

std::string boolean(bool value) { return value ? "true" : "false"; }

std::string objectPath(const std::string& path) { return "objectpath " + SystemBusRig::text(path); }

// Device1's methods as BlueZ behaves: Connect on a connected device and Disconnect on a
// disconnected one are refused.
std::string linkCode(bool connect) {
  const std::string state = connect ? "True" : "False";
  const std::string refusal = connect ? "raise dbus.exceptions.DBusException('Already Connected', "
                                        "name='org.bluez.Error.AlreadyConnected')"
                                      : "raise dbus.exceptions.DBusException('Not Connected', "
                                        "name='org.bluez.Error.NotConnected')";
  return std::string("if ") + (connect ? "" : "not ") + "self.props['org.bluez.Device1']['Connected']:\n    " +
         refusal + "\nself.UpdateProperties('org.bluez.Device1', {'Connected': dbus.Boolean(" + state + ")})\n";
}

std::string raiseCode(const std::string& errorName, const std::string& message) {
  return "raise dbus.exceptions.DBusException(" + pythonText(message) + ", name=" + pythonText(errorName) + ")\n";
}

}  // namespace

SystemBusRig::Device SystemBusRig::headphones() {
  Device device;
  device.address = headphonesAddress;
  device.name = headphonesName;
  device.battery = 80;
  return device;
}

std::string SystemBusRig::text(const std::string& value) {
  std::string out = "'";
  for (char c : value) {
    if (c == '\\' || c == '\'') {
      out.push_back('\\');
      out.push_back(c);
    } else if (c == '\n') {
      out += "\\n";
    } else {
      out.push_back(c);
    }
  }
  return out + "'";
}

std::string SystemBusRig::devicePath(const std::string& adapter, const std::string& address) {
  std::string path = "/org/bluez/" + adapter + "/dev_";
  for (char c : address) path.push_back(c == ':' || c == '-' ? '_' : static_cast<char>(std::toupper(c)));
  return path;
}

SystemBusRig::SystemBusRig(Options options) : options_(options) {
  if (::access(python, X_OK) != 0) {
    whyNot_ = "Debian's /usr/bin/python3 is missing (scripts/install-deps.sh installs it with python3-dbusmock)";
    return;
  }
  if (findExecutable("gdbus").empty()) {
    whyNot_ = "gdbus is not installed (scripts/install-deps.sh installs libglib2.0-bin)";
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
  if (options.bluez) bluez_ = startMock("bluez5");
  if (options.logind) logind_ = startMock("logind");
  if (options.upower) upower_ = startMock("upower");
  const auto ready = [&](std::unique_ptr<ChildProcess>& mock, const char* name, const char* templateName) {
    if (!mock || !whyNot_.empty()) return;
    if (!eventually([&] { return system_->hasOwner(name) || !mock->running(); }, 15s) || !mock->running()) {
      whyNot_ = std::string("python3-dbusmock's ") + templateName +
                " template did not start (scripts/install-deps.sh installs python3-dbusmock and python3-gi)";
    }
  };
  ready(bluez_, bluezName, "bluez5");
  ready(logind_, logindName, "logind");
  ready(upower_, upowerName, "upower");
}

SystemBusRig::~SystemBusRig() {
  // The mocks first, then their buses.
  bluez_.reset();
  logind_.reset();
  upower_.reset();
  session_.reset();
  system_.reset();
}

std::unique_ptr<ChildProcess> SystemBusRig::startMock(const std::string& templateName) {
  const auto log = folder_.path() / (templateName == "bluez5" ? "bluez.log" : templateName + ".log");
  return std::make_unique<ChildProcess>(
      std::vector<std::string>{python, "-m", "dbusmock", "--template", templateName, "--logfile", log.string()},
      ChildProcess::Environment{{"DBUS_SYSTEM_BUS_ADDRESS", system_->address()}});
}

ChildProcess::Environment SystemBusRig::environment() const {
  ChildProcess::Environment environment{{"DBUS_SYSTEM_BUS_ADDRESS", systemBusAddress()}};
  if (session_) environment["DBUS_SESSION_BUS_ADDRESS"] = session_->address();
  return environment;
}

std::string SystemBusRig::mockLog(const std::string& which) const {
  std::ifstream in(folder_.path() / (which + ".log"));
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

CommandResult SystemBusRig::call(const std::string& destination, const std::string& path, const std::string& method,
                                 const std::vector<std::string>& arguments) const {
  std::vector<std::string> argv{"gdbus", "call", "--address", systemBusAddress(), "--dest", destination,
                                "--object-path", path, "--method", method};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  return runCommand(argv, {}, 10s);
}

bool SystemBusRig::expect(const std::string& what, const CommandResult& result) const {
  if (result.status == 0) return true;
  ADD_FAILURE() << "system bus rig: " << what << " failed: " << result.output;
  return false;
}

void SystemBusRig::stopBluez(bool crash) {
  if (!bluez_) return;
  bluez_->terminate(crash ? SIGKILL : SIGTERM);
  bluez_->waitFor(5s);
  bluez_.reset();
  batteriesShown_.clear();
  EXPECT_TRUE(eventually([&] { return !system_->hasOwner(bluezName); }, 5s)) << "org.bluez stayed on the bus";
}

bool SystemBusRig::startBluez() {
  if (bluez_) return true;
  bluez_ = startMock("bluez5");
  if (!eventually([&] { return system_->hasOwner(bluezName); }, 15s)) {
    ADD_FAILURE() << "system bus rig: bluetoothd did not come back";
    return false;
  }
  bool ok = true;
  for (const auto& [name, powered] : adapters_) ok = putAdapter(name, powered) && ok;
  for (const auto& device : devices_) ok = putDevice(device) && ok;
  return ok;
}

bool SystemBusRig::putAdapter(const std::string& name, bool powered) {
  if (!expect("AddAdapter " + name,
              call(bluezName, "/", "org.bluez.Mock.AddAdapter", {text(name), text("wrenhaven-rig")}))) {
    return false;
  }
  return powered || expect("switching " + name + " off",
                           call(bluezName, "/org/bluez/" + name, "org.freedesktop.DBus.Properties.Set",
                                {text("org.bluez.Adapter1"), text("Powered"), "<false>"}));
}

bool SystemBusRig::addAdapter(const std::string& name, bool powered) {
  if (!putAdapter(name, powered)) return false;
  adapters_.emplace_back(name, powered);
  return true;
}

bool SystemBusRig::setAdapterPowered(const std::string& name, bool powered) {
  for (auto& adapter : adapters_) {
    if (adapter.first == name) adapter.second = powered;
  }
  return expect("powering " + name, call(bluezName, "/org/bluez/" + name, "org.freedesktop.DBus.Properties.Set",
                                         {text("org.bluez.Adapter1"), text("Powered"), "<" + boolean(powered) + ">"}));
}

bool SystemBusRig::putDevice(const Device& device) {
  const std::string path = devicePath(device.adapter, device.address);
  const std::string icon = ((device.deviceClass >> 8) & 0x1F) == 4 ? "audio-headset" : "phone";
  bool ok = expect("AddDevice " + device.address,
                   call(bluezName, "/", "org.bluez.Mock.AddDevice",
                        {text(device.adapter), text(device.address), text(device.name)})) &&
            expect("pairing " + device.address,
                   call(bluezName, path, std::string(mockInterface) + ".UpdateProperties",
                        {text(device1), "{'Class': <uint32 " + std::to_string(device.deviceClass) + ">, 'Paired': <" +
                                            boolean(device.paired) + ">, 'Icon': <" + text(icon) + ">}"})) &&
            setMethodCode(device.address, "Connect", linkCode(true)) &&
            setMethodCode(device.address, "Disconnect", linkCode(false));
  if (ok && device.battery) ok = showBattery(device, *device.battery);
  return ok;
}

bool SystemBusRig::addDevice(const Device& device) {
  if (std::none_of(adapters_.begin(), adapters_.end(), [&](const auto& a) { return a.first == device.adapter; })) {
    if (!addAdapter(device.adapter)) return false;
  }
  std::erase_if(devices_, [&](const Device& known) { return known.address == device.address; });
  devices_.push_back(device);
  return putDevice(device);
}

const SystemBusRig::Device* SystemBusRig::device(const std::string& address) const {
  for (const auto& known : devices_) {
    if (known.address == address) return &known;
  }
  ADD_FAILURE() << "system bus rig: no device " << address << " was added";
  return nullptr;
}

bool SystemBusRig::removeDevice(const std::string& address) {
  const Device* known = device(address);
  if (known == nullptr) return false;
  const std::string adapter = known->adapter;
  std::erase_if(devices_, [&](const Device& d) { return d.address == address; });
  std::erase(batteriesShown_, address);
  return expect("removing " + address, call(bluezName, "/org/bluez/" + adapter, "org.bluez.Adapter1.RemoveDevice",
                                            {objectPath(devicePath(adapter, address))}));
}

bool SystemBusRig::showBattery(const Device& device, int percent) {
  const std::string path = devicePath(device.adapter, device.address);
  const std::string level = "<byte " + std::to_string(percent) + ">";
  if (std::find(batteriesShown_.begin(), batteriesShown_.end(), device.address) != batteriesShown_.end()) {
    return expect("battery of " + device.address,
                  call(bluezName, path, std::string(mockInterface) + ".UpdateProperties",
                       {text("org.bluez.Battery1"), "{'Percentage': " + level + "}"}));
  }
  batteriesShown_.push_back(device.address);
  return expect("adding Battery1 to " + device.address,
                call(bluezName, path, std::string(mockInterface) + ".AddProperty",
                     {text("org.bluez.Battery1"), text("Percentage"), level})) &&
         expect("announcing Battery1 of " + device.address,
                call(bluezName, "/", std::string(mockInterface) + ".EmitSignal",
                     {text("org.freedesktop.DBus.ObjectManager"), text("InterfacesAdded"), text("oa{sa{sv}}"),
                      "[<" + objectPath(path) + ">, <{'org.bluez.Battery1': {'Percentage': " + level + "}}>]"}));
}

bool SystemBusRig::setBattery(const std::string& address, int percent) {
  for (auto& known : devices_) {
    if (known.address == address) {
      known.battery = percent;
      return showBattery(known, percent);
    }
  }
  ADD_FAILURE() << "system bus rig: no device " << address << " was added";
  return false;
}

bool SystemBusRig::bluezCall(const std::string& address, const std::string& method,
                             const std::vector<std::string>& arguments) {
  const Device* known = device(address);
  if (known == nullptr) return false;
  std::vector<std::string> all{text(known->adapter), text(address)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return expect(method + " " + address, call(bluezName, "/", "org.bluez.Mock." + method, all));
}

bool SystemBusRig::connectFromOutside(const std::string& address) { return bluezCall(address, "ConnectDevice", {}); }

bool SystemBusRig::disconnectFromOutside(const std::string& address) {
  return bluezCall(address, "DisconnectDevice", {});
}

bool SystemBusRig::isConnected(const std::string& address) {
  const Device* known = device(address);
  if (known == nullptr) return false;
  const auto result = call(bluezName, devicePath(known->adapter, address), "org.freedesktop.DBus.Properties.Get",
                           {text(device1), text("Connected")});
  expect("reading Connected of " + address, result);
  return result.output.find("true") != std::string::npos;
}

int SystemBusRig::connectCalls(const std::string& address) {
  const Device* known = device(address);
  if (known == nullptr) return -1;
  const auto result = call(bluezName, devicePath(known->adapter, address),
                           std::string(mockInterface) + ".GetMethodCalls", {text("Connect")});
  if (!expect("reading the calls of " + address, result)) return -1;
  // One (time stamp, arguments) pair per call; gdbus names the type of the first one only.
  static const std::regex call(R"(\((uint64 )?\d+, )");
  const auto calls = std::sregex_iterator(result.output.begin(), result.output.end(), call);
  return static_cast<int>(std::distance(calls, std::sregex_iterator()));
}

bool SystemBusRig::setMethodCode(const std::string& address, const std::string& method, const std::string& pythonCode) {
  const Device* known = device(address);
  if (known == nullptr) return false;
  return expect(method + " of " + address,
                call(bluezName, devicePath(known->adapter, address), std::string(mockInterface) + ".AddMethod",
                     {text(device1), text(method), text(""), text(""), text(pythonCode)}));
}

bool SystemBusRig::connectNormally(const std::string& address) {
  return setMethodCode(address, "Connect", linkCode(true));
}

bool SystemBusRig::failConnect(const std::string& address, const std::string& errorName, const std::string& message) {
  return setMethodCode(address, "Connect", raiseCode(errorName, message));
}

bool SystemBusRig::hangConnect(const std::string& address, double seconds) {
  return setMethodCode(address, "Connect", "time.sleep(" + std::to_string(seconds) + ")\n" + linkCode(true));
}

bool SystemBusRig::removeDuringConnect(const std::string& address) {
  const Device* known = device(address);
  if (known == nullptr) return false;
  const std::string adapterPath = "/org/bluez/" + known->adapter;
  const bool ok = setMethodCode(
      address, "Connect",
      "objects[" + pythonText(adapterPath) + "].RemoveObject(self.path)\n"
      "objects['/'].EmitSignal('org.freedesktop.DBus.ObjectManager', 'InterfacesRemoved', 'oas',\n"
      "                        [dbus.ObjectPath(self.path), ['org.bluez.Device1']])\n" +
          raiseCode("org.bluez.Error.Failed", "Connection canceled"));
  std::erase_if(devices_, [&](const Device& d) { return d.address == address; });
  return ok;
}

bool SystemBusRig::failDisconnect(const std::string& address, const std::string& errorName,
                                  const std::string& message) {
  return setMethodCode(address, "Disconnect", raiseCode(errorName, message));
}

bool SystemBusRig::restartLogind() {
  if (logind_) {
    logind_->terminate(SIGKILL);
    logind_->waitFor(5s);
  }
  if (!eventually([&] { return !system_->hasOwner(logindName); }, 5s)) {
    ADD_FAILURE() << "system bus rig: logind stayed on the bus";
    return false;
  }
  logind_ = startMock("logind");
  if (!eventually([&] { return system_->hasOwner(logindName); }, 15s)) {
    ADD_FAILURE() << "system bus rig: logind did not come back";
    return false;
  }
  return true;
}

bool SystemBusRig::emitPrepareForSleep(bool sleeping) {
  return expect("PreparingForSleep", call(logindName, logindPath, std::string(mockInterface) + ".UpdateProperties",
                                          {text("org.freedesktop.login1.Manager"),
                                           "{'PreparingForSleep': <" + boolean(sleeping) + ">}"})) &&
         expect("PrepareForSleep", call(logindName, logindPath, std::string(mockInterface) + ".EmitSignal",
                                        {text("org.freedesktop.login1.Manager"), text("PrepareForSleep"), text("b"),
                                         "[<" + boolean(sleeping) + ">]"}));
}

std::vector<SystemBusRig::Inhibitor> SystemBusRig::inhibitors() {
  std::vector<Inhibitor> list;
  const auto result = call(logindName, logindPath, "org.freedesktop.login1.Manager.ListInhibitors");
  if (!expect("ListInhibitors", result)) return list;
  static const std::regex entry(R"re(\('([^']*)', '([^']*)', '([^']*)', '([^']*)')re");
  for (auto it = std::sregex_iterator(result.output.begin(), result.output.end(), entry); it != std::sregex_iterator();
       ++it) {
    list.push_back({(*it)[1], (*it)[2], (*it)[3], (*it)[4]});
  }
  return list;
}

bool SystemBusRig::addPowerDevice(const PowerDevice& device) {
  const std::string path = std::string(upowerPath) + "/devices/" + device.name;
  std::ostringstream properties;
  properties << "{'Type': <uint32 " << device.type << ">, 'Model': <" << text(device.model) << ">, 'Serial': <"
             << text(device.serial) << ">, 'NativePath': <" << text(device.nativePath) << ">, 'Percentage': <double "
             << device.percentage << ">, 'IsPresent': <true>, 'PowerSupply': <false>}";
  return expect("adding UPower device " + device.name,
                call(upowerName, upowerPath, std::string(mockInterface) + ".AddObject",
                     {text(path), text("org.freedesktop.UPower.Device"), properties.str(), "@a(ssss) []"})) &&
         expect("announcing UPower device " + device.name,
                call(upowerName, upowerPath, std::string(mockInterface) + ".EmitSignal",
                     {text("org.freedesktop.UPower"), text("DeviceAdded"), text("o"), "[<" + objectPath(path) + ">]"}));
}

}  // namespace wh::test
