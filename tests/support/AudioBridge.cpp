#include "support/AudioBridge.h"

#include <sstream>

namespace wh::test {

namespace {

// Watches Device1.Connected on the system bus and loads or unloads the headphones' nodes with
// pactl, named as PipeWire names them. (PulseAudio's null source takes no properties: its name
// alone says Bluetooth.)
constexpr const char* kBridge = R"(
import subprocess, sys, time, dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib
DBusGMainLoop(set_as_default=True)
bus = dbus.bus.BusConnection(sys.argv[1])
delay = float(sys.argv[2])
connected, modules, paths = {}, {}, {}

def appear(address, generation):
    if connected.get(address) != generation or address in modules:
        return False
    under = address.replace(":", "_")
    try:
        name = str(bus.get_object("org.bluez", paths[address]).Get(
            "org.bluez.Device1", "Alias", dbus_interface="org.freedesktop.DBus.Properties"))
    except dbus.DBusException:
        name = address
    sink = ("sink_properties='device.description=\"%s\" device.bus=bluetooth device.api=bluez5 "
            "device.form_factor=headphone api.bluez5.address=%s'" % (name, address))
    modules[address] = []
    for args in (["module-null-sink", "sink_name=bluez_output.%s.1" % under, "rate=44100", sink],
                 ["module-null-source", "source_name=bluez_input.%s.0" % under, "rate=16000", "channels=1"]):
        result = subprocess.run(["pactl", "load-module", *args], capture_output=True, text=True)
        modules[address].append(result.stdout.strip())
        if result.returncode != 0:
            print("failed", result.stderr.strip(), flush=True)
    print("appeared", address, "%.6f" % time.clock_gettime(time.CLOCK_MONOTONIC), flush=True)
    return False

def changed(interface, properties, invalidated, path=None):
    if interface != "org.bluez.Device1" or "dev_" not in path or "Connected" not in properties:
        return
    address = path.rsplit("/dev_", 1)[1].replace("_", ":")
    paths[address] = path
    if not properties["Connected"]:
        connected.pop(address, None)
        for module in modules.pop(address, []):
            subprocess.run(["pactl", "unload-module", module], capture_output=True)
        print("vanished", address, flush=True)
    elif address not in connected and delay >= 0:
        connected[address] = generation = object()
        GLib.timeout_add(int(delay * 1000), appear, address, generation)
    else:
        connected.setdefault(address, object())

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
