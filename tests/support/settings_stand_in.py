#!/usr/bin/python3
# Stands in for the settings program on $DBUS_SESSION_BUS_ADDRESS: owns its bus name, appends its
# arguments to $STAND_IN_LOG (when set), prints "status <argument count>" for every status signal,
# and ends on SIGTERM. With --send-toggle it sends, after 0.2 s, a "toggle" command carrying three
# plain values and one container (which the agent ignores).
import os, signal, sys, dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib
DBusGMainLoop(set_as_default=True)
PATH, INTERFACE = "/com/quintelbarrows/wrenhaven", "com.quintelbarrows.wrenhaven"
bus = dbus.bus.BusConnection(os.environ["DBUS_SESSION_BUS_ADDRESS"])
bus.add_signal_receiver(lambda *args: print("status", len(args), flush=True), signal_name="status",
                        dbus_interface=INTERFACE, path=PATH)
bus.request_name("com.quintelbarrows.wrenhaven.settings")
if "STAND_IN_LOG" in os.environ:
    with open(os.environ["STAND_IN_LOG"], "a") as log:
        log.write(" ".join(["started"] + sys.argv[1:]) + "\n")
if "--send-toggle" in sys.argv:
    message = dbus.lowlevel.SignalMessage(PATH, INTERFACE, "command")
    message.append("toggle", dbus.Dictionary({"address": "aa-bb-cc-dd-ee-ff", "value": dbus.Boolean(True),
        "count": dbus.Int32(3), "list": dbus.Array(["x"], signature="s")}, signature="sv"))
    GLib.timeout_add(200, lambda: bus.send_message(message) and False)
loop = GLib.MainLoop()
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, loop.quit)
loop.run()
