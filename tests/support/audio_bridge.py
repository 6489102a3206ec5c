#!/usr/bin/python3
# Watches Device1.Connected on the system bus and loads or unloads the headphones' nodes with
# pactl, named as PipeWire names them (PulseAudio's null source takes no properties: its name
# alone says Bluetooth).
# Usage: audio_bridge.py SYSTEM-BUS-ADDRESS DELAY-SECONDS
import subprocess, sys, time, dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib
DBusGMainLoop(set_as_default=True)
bus, delay = dbus.bus.BusConnection(sys.argv[1]), float(sys.argv[2])
connected, modules = set(), {}

def appear(address, path):
    if address not in connected or address in modules:
        return False
    name = bus.get_object("org.bluez", path).Get("org.bluez.Device1", "Alias", dbus_interface=dbus.PROPERTIES_IFACE)
    under = address.replace(":", "_")
    sink = ("sink_properties='device.description=\"%s\" device.api=bluez5 api.bluez5.address=%s'" % (name, address))
    load = lambda *args: subprocess.run(["pactl", "load-module", *args], capture_output=True, text=True).stdout.strip()
    # The sink exists once its module is loaded: that moment is when the output appeared.
    modules[address] = [load("module-null-sink", "sink_name=bluez_output.%s.1" % under, "rate=44100", sink)]
    appeared = time.clock_gettime(time.CLOCK_MONOTONIC)
    modules[address].append(load("module-null-source", "source_name=bluez_input.%s.0" % under, "rate=16000"))
    print("appeared", address, "%.6f" % appeared, flush=True)
    return False

def changed(interface, properties, invalidated, path=None):
    if interface != "org.bluez.Device1" or "/dev_" not in path or "Connected" not in properties:
        return
    address = path.rsplit("/dev_", 1)[1].replace("_", ":")
    if not properties["Connected"]:
        connected.discard(address)
        for module in modules.pop(address, []):
            subprocess.run(["pactl", "unload-module", module], capture_output=True)
        print("vanished", address, flush=True)
    elif address not in connected:
        connected.add(address)
        if delay >= 0:
            GLib.timeout_add(int(delay * 1000), appear, address, path)

bus.add_signal_receiver(changed, signal_name="PropertiesChanged", dbus_interface=dbus.PROPERTIES_IFACE,
                        path_keyword="path")
print("ready", flush=True)
GLib.MainLoop().run()
