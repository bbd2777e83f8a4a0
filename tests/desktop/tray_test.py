#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The agent's icon in a tray of the session bus, as the tray has it: its title and tool tip say how
things are, all else is there as well, and a click opens the panel.

usage: tray_test.py PROGRAMS_DIRECTORY

Runs in a desktop session of its own (tests/support/private-session) with a display.
"""

import os
import plistlib
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import accessibility  # noqa: E402

from gi.repository import Gio, GLib  # noqa: E402

from session import HOME, LIMIT, check, say  # noqa: E402

AGENT = os.path.join(os.path.abspath(sys.argv[1]), "orvel-agent")
ITEM = "org.kde.StatusNotifierItem"
WATCHER = """
<node>
  <interface name="org.kde.StatusNotifierWatcher">
    <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
    <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  </interface>
</node>
"""
REASON = "Orvel Agent: Sign in to start collecting."


class Tray:
    """The watcher and the host in one."""

    def __init__(self):
        self._bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        self._item = None
        self.signals = []
        self._bus.register_object(
            "/StatusNotifierWatcher", Gio.DBusNodeInfo.new_for_xml(WATCHER).interfaces[0],
            self._register, lambda *_: GLib.Variant("b", True), None)
        self._bus.signal_subscribe(
            None, ITEM, None, None, None, Gio.DBusSignalFlags.NONE,
            lambda *arguments: self.signals.append(arguments[4]))
        Gio.bus_own_name_on_connection(
            self._bus, "org.kde.StatusNotifierWatcher", Gio.BusNameOwnerFlags.NONE, None, None)

    def _register(self, _bus, sender, _path, _interface, _method, _arguments, call):
        self._item = sender
        call.return_value(None)

    def call(self, interface, method, *arguments, signature=""):
        return self._bus.call_sync(
            self._item, "/StatusNotifierItem", interface, method,
            GLib.Variant(f"({signature})", arguments), None, Gio.DBusCallFlags.NONE, LIMIT * 1000,
            None).unpack()

    def get(self, name):
        return self.call("org.freedesktop.DBus.Properties", "Get", ITEM, name, signature="ss")[0]

    def get_all(self):
        return self.call("org.freedesktop.DBus.Properties", "GetAll", ITEM, signature="s")[0]

    def has_item(self):
        return self._item is not None


def wait_for(what, condition):
    """While the bus is served."""
    is_late = []
    limit = GLib.timeout_add_seconds(LIMIT, lambda: is_late.append(True) or False)
    wake_up = GLib.timeout_add(50, lambda: True)
    while not condition():
        check(not is_late, f"waited in vain for {what}")
        GLib.MainContext.default().iteration(True)
    GLib.source_remove(wake_up)
    GLib.source_remove(limit)


def make_bundle(path):
    """Of an agent whose service is nowhere: nobody is going to sign in."""
    os.makedirs(path)
    with open(os.path.join(path, "Info.plist"), "wb") as file:
        plistlib.dump({
            "CFBundleIdentifier": "app.orvel.OrvelAgent",
            "CFBundleDisplayName": "Orvel Agent",
            "API_HOST": "127.0.0.1:1",
            "WEB_HOST": "127.0.0.1:1"}, file)


def scenario(tray, agent):
    wait_for("the icon", tray.has_item)
    wait_for("the reason as the title", lambda: tray.get("Title") == REASON)
    check("NewTitle" in tray.signals, f"told of {tray.signals} only")
    # It flashes.
    wait_for("the other title", lambda: tray.get("Title") == "Orvel Agent")
    say("the title tells how things are")
    everything = tray.get_all()
    check(everything["Title"] == everything["ToolTip"][2], everything["ToolTip"])
    check(everything["Id"] == "orvel-agent", everything["Id"])
    check(everything["Menu"] == "/MenuBar", everything["Menu"])
    check(everything["IconPixmap"] and tray.get("IconPixmap"), "no image")
    try:
        tray.get("NoSuchProperty")
        check(False, "it has every property")
    except GLib.Error as error:
        check("UnknownProperty" in error.message, error.message)
    say("so does the tool tip, and all else is as it was")
    tray.call(ITEM, "Activate", 100, 100, signature="ii")
    wait_for("the panel", lambda: agent.find("frame", "Orvel Agent"))
    say("a click opens the panel")


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    bundle = os.path.join(HOME, "bundle")
    make_bundle(bundle)
    bus = accessibility.start_bus()
    tray = Tray()
    process = subprocess.Popen([AGENT], env={**os.environ, "ORVEL_AGENT_BUNDLE": bundle})
    try:
        scenario(tray, accessibility.Application(process))
    finally:
        process.terminate()
        process.wait(timeout=LIMIT)
        bus.terminate()
        bus.wait(timeout=LIMIT)
    check(process.returncode == 0, f"it ended with {process.returncode}")


if __name__ == "__main__":
    main()
