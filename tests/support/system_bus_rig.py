# Drives the dbusmock BlueZ, logind and UPower templates of the system bus rig.
# Usage: system_bus_rig.py BUS-ADDRESS COMMAND ARGUMENTS...; devices live on hci0.
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
