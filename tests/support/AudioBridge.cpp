#include "support/AudioBridge.h"

#include <sstream>

namespace wh::test {

namespace {

// Watches Device1.Connected on the system bus and loads or unloads the headphones' nodes with
// pactl. Node names and properties are those a PipeWire system gives Bluetooth headphones.
constexpr const char* kBridge = R"(
import subprocess, sys, time, dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib
DBusGMainLoop(set_as_default=True)
bus = dbus.bus.BusConnection(sys.argv[1])
delay = float(sys.argv[2])
connected, modules, paths = {}, {}, {}

def pactl(*args):
    return subprocess.run(["pactl", *args], capture_output=True, text=True)

def appear(address, generation):
    if connected.get(address) != generation or address in modules:
        return False
    under = address.replace(":", "_")
    try:
        device = bus.get_object("org.bluez", paths[address])
        name = str(device.Get("org.bluez.Device1", "Alias", dbus_interface="org.freedesktop.DBus.Properties"))
    except dbus.DBusException:
        name = address
    loaded = []
    for kind, node, rate, channels, description in (
            ("sink", "bluez_output.%s.1" % under, 44100, 2, name),
            ("source", "bluez_input.%s.0" % under, 16000, 1, name + " Microphone")):
        properties = ('device.description="%s" device.bus=bluetooth device.api=bluez5 '
                      'device.form_factor=headphone api.bluez5.address=%s' % (description, address))
        result = pactl("load-module", "module-null-" + kind, kind + "_name=" + node, "rate=%d" % rate,
                       "channels=%d" % channels, kind + "_properties='" + properties + "'")
        if result.returncode == 0:
            loaded.append(result.stdout.strip())
        else:
            print("failed", result.stderr.strip(), flush=True)
    modules[address] = loaded
    print("appeared", address, "%.6f" % time.clock_gettime(time.CLOCK_MONOTONIC), flush=True)
    return False

def vanish(address):
    connected.pop(address, None)
    for module in modules.pop(address, []):
        pactl("unload-module", module)
    print("vanished", address, flush=True)

def changed(interface, properties, invalidated, path=None):
    if interface != "org.bluez.Device1" or "dev_" not in path:
        return
    address = path.rsplit("/dev_", 1)[1].replace("_", ":")
    paths[address] = path
    if "Connected" not in properties:
        return
    if properties["Connected"]:
        if address in connected or delay < 0:
            connected.setdefault(address, object())
            return
        generation = object()
        connected[address] = generation
        GLib.timeout_add(int(delay * 1000), appear, address, generation)
    else:
        vanish(address)

bus.add_signal_receiver(changed, signal_name="PropertiesChanged",
                        dbus_interface="org.freedesktop.DBus.Properties", path_keyword="path")
print("ready", flush=True)
GLib.MainLoop().run()
)";

}  // namespace

AudioBridge::AudioBridge(const SystemBusRig& bus, const PulseRig& pulse, double delaySeconds) {
  if (!bus.available() || !pulse.available()) {
    whyNot_ = "the rigs it joins did not start";
    return;
  }
  std::ostringstream delay;
  delay << delaySeconds;
  process_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"/usr/bin/python3", "-c", kBridge, bus.systemBusAddress(), delay.str()},
      pulse.clientEnvironment());
  if (!process_->waitForOutput("ready\n", std::chrono::seconds(15))) {
    whyNot_ = "the audio bridge did not start: " + process_->output();
  }
}

AudioBridge::~AudioBridge() = default;

std::optional<double> AudioBridge::appearedAt() {
  const std::string& text = output();
  const auto at = text.rfind("appeared ");
  if (at == std::string::npos) return std::nullopt;
  std::istringstream line(text.substr(at, text.find('\n', at) - at));
  std::string word;
  std::string address;
  double seconds = 0;
  line >> word >> address >> seconds;
  return seconds;
}

}  // namespace wh::test
