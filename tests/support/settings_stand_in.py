#!/usr/bin/python3
# Stands in for the settings program: owns its bus name on $DBUS_SESSION_BUS_ADDRESS, appends its
# arguments to $STAND_IN_LOG, and ends on SIGTERM.
import os, signal, sys, dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib
DBusGMainLoop(set_as_default=True)
bus = dbus.bus.BusConnection(os.environ["DBUS_SESSION_BUS_ADDRESS"])
bus.request_name("com.quintelbarrows.wrenhaven.settings")
with open(os.environ["STAND_IN_LOG"], "a") as log:
    log.write(" ".join(["started"] + sys.argv[1:]) + "\n")
loop = GLib.MainLoop()
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, loop.quit)
loop.run()
