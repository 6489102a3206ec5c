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

// The helper: python3 -c helper BUS-ADDRESS COMMAND ARGUMENTS...; devices live on hci0.
constexpr const char* helper = R"(
import sys, dbus
bus = dbus.bus.BusConnection(sys.argv[1])
command, a = sys.argv[2], sys.argv[3:]
MOCK, DEVICE, PROPS, HCI = 'org.freedesktop.DBus.Mock', 'org.bluez.Device1', 'org.freedesktop.DBus.Properties', '/org/bluez/hci0'
def get(name, path, interface): return dbus.Interface(bus.get_object(name, path), interface)
def bluez(): return get('org.bluez', '/', 'org.bluez.Mock')
def device(interface=MOCK): return get('org.bluez', HCI + '/dev_' + a[0].replace(':', '_'), interface)
def fail(name, message): return 'raise dbus.exceptions.DBusException(%r, name=%r)\n' % (message, name)
def link(up):
  return ('if %sself.props[%r]["Connected"]:\n  ' % ('' if up else 'not ', DEVICE) +
          fail('org.bluez.Error.' + ('AlreadyConnected' if up else 'NotConnected'), 'Already Connected' if up else 'Not Connected') +
          'self.UpdateProperties(%r, {"Connected": dbus.Boolean(%s)})\n' % (DEVICE, up))
def behave(method, how, *rest):
  code = {'normal': lambda: link(method == 'Connect'), 'fail': lambda: fail(rest[0], rest[1]),
          'hang': lambda: 'time.sleep(%s)\n' % rest[0] + link(True),
          'vanish': lambda: 'objects[%r].RemoveObject(self.path)\n' % HCI +
                            'objects["/"].EmitSignal("org.freedesktop.DBus.ObjectManager", "InterfacesRemoved", "oas", '
                            '[dbus.ObjectPath(self.path), [%r]])\n' % DEVICE + fail('org.bluez.Error.Failed', 'Connection canceled')}[how]()
  device().AddMethod(DEVICE, method, '', '', code)
if command == 'power':
  if a[1:] == ['new']: bluez().AddAdapter('hci0', 'wrenhaven-rig')
  get('org.bluez', HCI, PROPS).Set('org.bluez.Adapter1', 'Powered', dbus.Boolean(a[0] == '1'))
elif command == 'device':
  bluez().AddDevice('hci0', a[0], a[1])
  device().UpdateProperties(DEVICE, {'Class': dbus.UInt32(int(a[2])), 'Paired': dbus.Boolean(a[3] == '1'),
                                     'Icon': 'audio-headset' if (int(a[2]) >> 8) & 0x1F == 4 else 'phone'})
  behave('Connect', 'normal'); behave('Disconnect', 'normal')
  if a[4] != '-':
    device().AddProperty('org.bluez.Battery1', 'Percentage', dbus.Byte(int(a[4])))
    get('org.bluez', '/', MOCK).EmitSignal('org.freedesktop.DBus.ObjectManager', 'InterfacesAdded', 'oa{sa{sv}}',
        [device().object_path, {'org.bluez.Battery1': {'Percentage': dbus.Byte(int(a[4]))}}])
elif command == 'remove': get('org.bluez', HCI, 'org.bluez.Adapter1').RemoveDevice(device().object_path)
elif command == 'outside': (bluez().ConnectDevice if a[1] == '1' else bluez().DisconnectDevice)('hci0', a[0])
elif command == 'connected': print(bool(device(PROPS).Get(DEVICE, 'Connected')))
elif command == 'calls': print(len(device().GetMethodCalls('Connect')))
elif command == 'behave': behave(*a[1:])
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
