#!/usr/bin/python3
"""Reads a program's accessibility tree through AT-SPI, as a screen reader does: waits for the
application called NAME on the accessibility bus of the session bus in DBUS_SESSION_BUS_ADDRESS,
then chooses each entry of its list of pages in turn and prints every object of the window as a
line of JSON: the page, the role, the name, and whether it can take the keyboard focus.

    atspi_tree.py NAME
"""
import json
import sys
import time

import pyatspi

INTERACTIVE = {"check box", "toggle button", "push button", "slider", "combo box", "radio button",
               "spin button", "text", "entry", "list item", "menu item", "page tab", "link"}


def find_application(name, seconds=20):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        for app in pyatspi.Registry.getDesktop(0):
            if app is not None and app.name == name:
                return app
        time.sleep(0.2)
    return None


def walk(node, found):
    found.append(node)
    for i in range(node.childCount):
        child = node.getChildAtIndex(i)
        if child is not None:
            walk(child, found)
    return found


def describe(page, node):
    states = node.getState()
    return {"page": page, "role": node.getRoleName(), "name": node.name,
            "focusable": states.contains(pyatspi.STATE_FOCUSABLE),
            "showing": states.contains(pyatspi.STATE_SHOWING),
            "interactive": node.getRoleName() in INTERACTIVE}


def main():
    app = find_application(sys.argv[1])
    if app is None:
        print(json.dumps({"error": "no application called " + sys.argv[1]}), flush=True)
        return 1
    window = app.getChildAtIndex(0)
    pages = [node for node in walk(window, []) if node.getRoleName() == "list"]
    if not pages:
        for node in walk(window, []):
            print(json.dumps(describe("", node)), flush=True)
        return 0
    for index in range(pages[0].childCount):
        entry = pages[0].getChildAtIndex(index)
        # A list entry's action selects it, as a click or the arrow keys do.
        entry.queryAction().doAction(0)
        time.sleep(0.5)
        page = entry.name
        for node in walk(window, []):
            print(json.dumps(describe(page, node)), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
