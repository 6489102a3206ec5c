#!/usr/bin/python3
"""A desktop's GlobalShortcuts portal backend (org.freedesktop.impl.portal.GlobalShortcuts) on the
session bus named by DBUS_SESSION_BUS_ADDRESS, for the real xdg-desktop-portal frontend to use. It
binds every shortcut to its preferred trigger, except triggers listed as taken (refused, as a
desktop refuses a trigger it already uses) and those listed as rebound (given another trigger, as a
person choosing another key in the desktop's dialog). It prints each binding as a line of JSON,
and a test presses a bound shortcut through its control interface.

    global_shortcuts.py BUS-NAME [--taken TRIGGER]... [--rebind TRIGGER=OTHER]...
        serve until killed; prints "ready" once the name is owned
"""
import argparse
import json
import os
import sys
import time

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

IMPL = "org.freedesktop.impl.portal.GlobalShortcuts"
SESSION = "org.freedesktop.impl.portal.Session"
CONTROL = "com.quintelbarrows.wrenhaven.test.GlobalShortcuts"
PATH = "/org/freedesktop/portal/desktop"


class Session(dbus.service.Object):
    def __init__(self, bus, path, owner):
        super().__init__(bus, path)
        self.owner = owner

    @dbus.service.method(SESSION, in_signature="", out_signature="")
    def Close(self):
        self.owner.sessions.pop(str(self._object_path), None)
        self.remove_from_connection()

    @dbus.service.signal(SESSION, signature="")
    def Closed(self):
        pass


class Shortcuts(dbus.service.Object):
    def __init__(self, bus, taken, rebind):
        super().__init__(bus, PATH)
        self.bus = bus
        self.taken = set(taken)
        self.rebind = rebind
        self.sessions = {}  # session path -> {shortcut id: trigger}

    @dbus.service.method(IMPL, in_signature="oosa{sv}", out_signature="ua{sv}")
    def CreateSession(self, handle, session_handle, app_id, options):
        self.sessions[str(session_handle)] = {}
        Session(self.bus, session_handle, self)
        return dbus.UInt32(0), dbus.Dictionary({"session_id": str(session_handle)}, signature="sv")

    @dbus.service.method(IMPL, in_signature="ooa(sa{sv})sa{sv}", out_signature="ua{sv}")
    def BindShortcuts(self, handle, session_handle, shortcuts, parent_window, options):
        bound = {}
        answer = []
        for shortcut_id, properties in shortcuts:
            preferred = str(properties.get("preferred_trigger", ""))
            if preferred in self.taken:
                continue
            trigger = self.rebind.get(preferred, preferred)
            bound[str(shortcut_id)] = trigger
            answer.append(dbus.Struct((shortcut_id, dbus.Dictionary(
                {"description": properties.get("description", ""), "trigger_description": trigger},
                signature="sv")), signature="sa{sv}"))
        self.sessions[str(session_handle)] = bound
        print(json.dumps({"bound": {str(i): str(p.get("preferred_trigger", "")) for i, p in shortcuts},
                          "given": bound}), flush=True)
        return dbus.UInt32(0), dbus.Dictionary(
            {"shortcuts": dbus.Array(answer, signature="(sa{sv})")}, signature="sv")

    @dbus.service.method(IMPL, in_signature="oo", out_signature="ua{sv}")
    def ListShortcuts(self, handle, session_handle):
        shortcuts = [dbus.Struct((i, dbus.Dictionary({"trigger_description": t}, signature="sv")),
                                 signature="sa{sv}")
                     for i, t in self.sessions.get(str(session_handle), {}).items()]
        return dbus.UInt32(0), dbus.Dictionary(
            {"shortcuts": dbus.Array(shortcuts, signature="(sa{sv})")}, signature="sv")

    @dbus.service.signal(IMPL, signature="osta{sv}")
    def Activated(self, session_handle, shortcut_id, timestamp, options):
        pass

    @dbus.service.signal(IMPL, signature="osta{sv}")
    def Deactivated(self, session_handle, shortcut_id, timestamp, options):
        pass

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.GetAll(interface)[name]

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return {"version": dbus.UInt32(1)}

    @dbus.service.method(CONTROL, in_signature="s", out_signature="b")
    def Press(self, trigger):
        """Presses and releases the key bound to `trigger` in every session that has it."""
        pressed = False
        stamp = dbus.UInt64(int(time.monotonic() * 1000))
        for session, bound in self.sessions.items():
            for shortcut_id, given in bound.items():
                if given == trigger:
                    self.Activated(dbus.ObjectPath(session), shortcut_id, stamp, {})
                    self.Deactivated(dbus.ObjectPath(session), shortcut_id, stamp, {})
                    pressed = True
        return pressed


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("name")
    parser.add_argument("--taken", action="append", default=[])
    parser.add_argument("--rebind", action="append", default=[])
    arguments = parser.parse_args()
    DBusGMainLoop(set_as_default=True)
    bus = dbus.bus.BusConnection(os.environ["DBUS_SESSION_BUS_ADDRESS"])
    shortcuts = Shortcuts(bus, arguments.taken, dict(r.split("=", 1) for r in arguments.rebind))
    name = dbus.service.BusName(arguments.name, bus)
    print("ready", flush=True)
    GLib.MainLoop().run()
    del shortcuts, name


if __name__ == "__main__":
    sys.exit(main())
