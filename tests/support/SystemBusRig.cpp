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

// The helper: python3 -c helper BUS-ADDRESS COMMAND ARGUMENTS...
constexpr const char* helper = R"(
import sys, dbus
bus = dbus.bus.BusConnection(sys.argv[1])
command, a = sys.argv[2], sys.argv[3:]
MOCK, DEVICE, PROPS = 'org.freedesktop.DBus.Mock', 'org.bluez.Device1', 'org.freedesktop.DBus.Properties'
def get(name, path, interface): return dbus.Interface(bus.get_object(name, path), interface)
def bluez(): return get('org.bluez', '/', 'org.bluez.Mock')
def device(interface=MOCK): return get('org.bluez', '/org/bluez/%s/dev_%s' % (a[0], a[1].replace(':', '_')), interface)
def adapter(interface): return get('org.bluez', '/org/bluez/' + a[0], interface)
def fail(name, message): return 'raise dbus.exceptions.DBusException(%r, name=%r)\n' % (message, name)
def link(up):
  return ('if %sself.props[%r]["Connected"]:\n  ' % ('' if up else 'not ', DEVICE) +
          fail('org.bluez.Error.' + ('AlreadyConnected' if up else 'NotConnected'), 'Already Connected' if up else 'Not Connected') +
          'self.UpdateProperties(%r, {"Connected": dbus.Boolean(%s)})\n' % (DEVICE, up))
def behave(method, how, *rest):
  code = {'normal': lambda: link(method == 'Connect'), 'fail': lambda: fail(rest[0], rest[1]),
          'hang': lambda: 'time.sleep(%s)\n' % rest[0] + link(True),
          'vanish': lambda: 'objects["/org/bluez/%s"].RemoveObject(self.path)\n' % a[0] +
                            'objects["/"].EmitSignal("org.freedesktop.DBus.ObjectManager", "InterfacesRemoved", "oas", '
                            '[dbus.ObjectPath(self.path), [%r]])\n' % DEVICE + fail('org.bluez.Error.Failed', 'Connection canceled')}[how]()
  device().AddMethod(DEVICE, method, '', '', code)
def battery(percent):
  level = dbus.Byte(int(percent))
  try:
    device(PROPS).Get('org.bluez.Battery1', 'Percentage')
    device().UpdateProperties('org.bluez.Battery1', {'Percentage': level})
  except dbus.exceptions.DBusException:
    device().AddProperty('org.bluez.Battery1', 'Percentage', level)
    get('org.bluez', '/', MOCK).EmitSignal('org.freedesktop.DBus.ObjectManager', 'InterfacesAdded', 'oa{sa{sv}}',
        [device().object_path, {'org.bluez.Battery1': {'Percentage': level}}])
if command == 'power':
  if a[1] == 'new': bluez().AddAdapter(a[0], 'wrenhaven-rig')
  adapter(PROPS).Set('org.bluez.Adapter1', 'Powered', dbus.Boolean(a[2] == '1'))
elif command == 'device':
  bluez().AddDevice(a[0], a[1], a[2])
  device().UpdateProperties(DEVICE, {'Class': dbus.UInt32(int(a[3])), 'Paired': dbus.Boolean(a[4] == '1'),
                                     'Icon': 'audio-headset' if (int(a[3]) >> 8) & 0x1F == 4 else 'phone'})
  behave('Connect', 'normal'); behave('Disconnect', 'normal')
  if a[5] != '-': battery(a[5])
elif command == 'battery': battery(a[2])
elif command == 'remove': adapter('org.bluez.Adapter1').RemoveDevice(device().object_path)
elif command == 'outside': (bluez().ConnectDevice if a[2] == '1' else bluez().DisconnectDevice)(a[0], a[1])
elif command == 'connected': print(bool(device(PROPS).Get(DEVICE, 'Connected')))
elif command == 'calls': print(len(device().GetMethodCalls('Connect')))
elif command == 'behave': behave(*a[2:])
elif command == 'sleep':
  login = get('org.freedesktop.login1', '/org/freedesktop/login1', MOCK)
  login.UpdateProperties('org.freedesktop.login1.Manager', {'PreparingForSleep': dbus.Boolean(a[0] == '1')})
  login.EmitSignal('org.freedesktop.login1.Manager', 'PrepareForSleep', 'b', [dbus.Boolean(a[0] == '1')])
elif command == 'inhibitors':
  for entry in get('org.freedesktop.login1', '/org/freedesktop/login1', 'org.freedesktop.login1.Manager').ListInhibitors():
    print(' '.join(entry[:4]))
elif command == 'upower':
  path = '/org/freedesktop/UPower/devices/' + a[0]
  upower = get('org.freedesktop.UPower', '/org/freedesktop/UPower', MOCK)
  upower.AddObject(path, 'org.freedesktop.UPower.Device', {'Type': dbus.UInt32(int(a[1])), 'Model': a[2], 'Serial': a[3],
      'NativePath': a[4], 'Percentage': float(a[5]), 'IsPresent': True, 'PowerSupply': False}, dbus.Array([], '(ssss)'))
  upower.EmitSignal('org.freedesktop.UPower', 'DeviceAdded', 'o', [dbus.ObjectPath(path)])
)";

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
    if (!eventually([&] { return system_->hasOwner(name) || !(*mock)->running(); }, 15s) || !(*mock)->running()) {
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
  std::vector<std::string> argv{python, "-c", helper, systemBusAddress()};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  const auto result = runCommand(argv, {}, 15s);
  if (output != nullptr) *output = result.output;
  EXPECT_EQ(result.status, 0) << "system bus rig: " << arguments.front() << " failed: " << result.output;
  return result.status == 0;
}

bool SystemBusRig::drive(const std::string& command, const std::string& address, std::vector<std::string> arguments,
                         std::string* output) {
  const auto known = std::find_if(devices_.begin(), devices_.end(), [&](const Device& d) { return d.address == address; });
  if (known == devices_.end()) {
    ADD_FAILURE() << "system bus rig: no device " << address << " was added";
    return false;
  }
  arguments.insert(arguments.begin(), {command, known->adapter, address});
  return run(arguments, output);
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
  for (const auto& [name, powered] : adapters_) ok = ok && run({"power", name, "new", powered ? "1" : "0"});
  for (const auto& device : devices_) ok = ok && putDevice(device);
  return ok;
}

bool SystemBusRig::setAdapterPowered(const std::string& adapter, bool powered) {
  for (auto& known : adapters_) {
    if (known.first == adapter) known.second = powered;
  }
  return run({"power", adapter, "set", powered ? "1" : "0"});
}

bool SystemBusRig::putDevice(const Device& device) {
  return run({"device", device.adapter, device.address, device.name, std::to_string(device.deviceClass),
              device.paired ? "1" : "0", device.battery ? std::to_string(*device.battery) : "-"});
}

bool SystemBusRig::addDevice(const Device& device) {
  if (std::none_of(adapters_.begin(), adapters_.end(), [&](const auto& a) { return a.first == device.adapter; })) {
    if (!run({"power", device.adapter, "new", "1"})) return false;
    adapters_.emplace_back(device.adapter, true);
  }
  std::erase_if(devices_, [&](const Device& known) { return known.address == device.address; });
  devices_.push_back(device);
  return putDevice(device);
}

bool SystemBusRig::removeDevice(const std::string& address) {
  return drive("remove", address, {}) && std::erase_if(devices_, [&](const Device& d) { return d.address == address; });
}

bool SystemBusRig::setBattery(const std::string& address, int percent) {
  for (auto& known : devices_) {
    if (known.address == address) known.battery = percent;
  }
  return drive("battery", address, {std::to_string(percent)});
}

bool SystemBusRig::isConnected(const std::string& address) {
  std::string output;
  return drive("connected", address, {}, &output) && output.starts_with("True");
}

int SystemBusRig::connectCalls(const std::string& address) {
  std::string output;
  return drive("calls", address, {}, &output) ? std::stoi(output) : -1;
}

bool SystemBusRig::behave(const std::string& address, const std::string& method, std::vector<std::string> how) {
  how.insert(how.begin(), method);
  const bool ok = drive("behave", address, how);
  // A device that vanishes is gone from what a restart puts back.
  if (how.at(1) == "vanish") std::erase_if(devices_, [&](const Device& d) { return d.address == address; });
  return ok;
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
