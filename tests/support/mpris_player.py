#!/usr/bin/python3
"""A stand-in music player on the session bus: owns org.mpris.MediaPlayer2.<name>, answers the
MPRIS player methods and prints each call it receives ("Seek -5000000"), one per line.

usage: mpris_player.py NAME DESKTOP_ENTRY [ok|error|silent]
  ok      answers every call
  error   answers every call with an error
  silent  never answers
"""
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

ROOT = "org.mpris.MediaPlayer2"
PLAYER = "org.mpris.MediaPlayer2.Player"
name, desktop_entry = sys.argv[1], sys.argv[2]
mode = sys.argv[3] if len(sys.argv) > 3 else "ok"


def record(text, ok, fail):
    print(text, flush=True)
    if mode == "ok":
        ok()
    elif mode == "error":
        fail(dbus.exceptions.DBusException("the player refused", name="org.mpris.MediaPlayer2.Error"))


class Player(dbus.service.Object):

    @dbus.service.method(PLAYER, in_signature="", async_callbacks=("ok", "fail"))
    def PlayPause(self, ok, fail):
        record("PlayPause", ok, fail)

    @dbus.service.method(PLAYER, in_signature="", async_callbacks=("ok", "fail"))
    def Play(self, ok, fail):
        record("Play", ok, fail)

    @dbus.service.method(PLAYER, in_signature="", async_callbacks=("ok", "fail"))
    def Next(self, ok, fail):
        record("Next", ok, fail)

    @dbus.service.method(PLAYER, in_signature="", async_callbacks=("ok", "fail"))
    def Previous(self, ok, fail):
        record("Previous", ok, fail)

    @dbus.service.method(PLAYER, in_signature="x", async_callbacks=("ok", "fail"))
    def Seek(self, offset, ok, fail):
        record("Seek %d" % offset, ok, fail)

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, prop):
        return {"DesktopEntry": desktop_entry, "Identity": name}.get(prop, "")


DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
player = Player(bus, "/org/mpris/MediaPlayer2")
bus_name = dbus.service.BusName(ROOT + "." + name, bus)
print("ready", flush=True)
GLib.MainLoop().run()
