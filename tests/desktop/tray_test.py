#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The agent's icon as a tray on the session bus sees it: title and tool tip show the agent's state,
all other properties are present, and a click opens the panel.

usage: tray_test.py PROGRAMS_DIRECTORY

Runs in a private desktop session (tests/support/private-session) with a display.
"""

import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import accessibility  # noqa: E402

from gi.repository import Gio, GLib  # noqa: E402

from session import (  # noqa: E402
    HOME, LIMIT, check, end, make_bundle_without_service, say)

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
    """The status notifier watcher and host in one object."""

    def __init__(self):
        self._bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        self._item = None
        self._name = None
        self.signals = []
        self._bus.register_object(
            "/StatusNotifierWatcher", Gio.DBusNodeInfo.new_for_xml(WATCHER).interfaces[0],
            self._register, lambda *_: GLib.Variant("b", True), None)
        self._bus.signal_subscribe(
            None, ITEM, None, None, None, Gio.DBusSignalFlags.NONE,
            lambda *arguments: self.signals.append(arguments[4]))
        self.appear()

    def appear(self):
        self._name = Gio.bus_own_name_on_connection(
            self._bus, "org.kde.StatusNotifierWatcher", Gio.BusNameOwnerFlags.NONE, None, None)

    def disappear(self):
        """Returns the item that was registered."""
        Gio.bus_unown_name(self._name)
        item, self._item = self._item, None
        return item

    def is_on_bus(self, name):
        return self._bus.call_sync(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
            GLib.Variant("(s)", (name,)), None, Gio.DBusCallFlags.NONE, LIMIT * 1000,
            None).unpack()[0]

    def _register(self, _bus, sender, _path, _interface, _method, _arguments, call):
        self._item = sender
        call.return_value(None)

    def call(self, interface, method, *arguments, signature=""):
        return self._bus.call_sync(
            self._item, "/StatusNotifierItem", interface, method,
            GLib.Variant(f"({signature})", arguments), None, Gio.DBusCallFlags.NONE, LIMIT * 1000,
            None).unpack()

    def get(self, name, interface=ITEM):
        return self.call(
            "org.freedesktop.DBus.Properties", "Get", interface, name, signature="ss")[0]

    def get_all(self, interface=ITEM):
        return self.call(
            "org.freedesktop.DBus.Properties", "GetAll", interface, signature="s")[0]

    def has_item(self):
        return self._item is not None


def wait_for(what, condition):
    """Waits and handles calls on the bus meanwhile."""
    is_late = []
    limit = GLib.timeout_add_seconds(LIMIT, lambda: is_late.append(True) or False)
    wake_up = GLib.timeout_add(50, lambda: True)
    while not condition():
        check(not is_late, f"timed out waiting for {what}")
        GLib.MainContext.default().iteration(True)
    GLib.source_remove(wake_up)
    GLib.source_remove(limit)


def expect_refusal(reason, ask):
    try:
        answer = ask()
    except GLib.Error as error:
        check(reason in error.message, error.message)
    else:
        raise AssertionError(f"{answer} instead of {reason}")


def scenario(tray, agent):
    wait_for("the icon", tray.has_item)
    wait_for("the reason as the title", lambda: tray.get("Title") == REASON)
    wait_for("the signal for it", lambda: "NewTitle" in tray.signals)
    # The icon flashes between the two.
    wait_for("the other title", lambda: tray.get("Title") == "Orvel Agent")
    say("the title shows the state")
    everything = tray.get_all()
    check(everything["Title"] == everything["ToolTip"][2], everything["ToolTip"])
    check(everything["Id"] == "orvel-agent", everything["Id"])
    check(everything["Menu"] == "/MenuBar", everything["Menu"])
    check(everything["IconPixmap"] and tray.get("IconPixmap"), "no image")
    check(tray.get("Id", interface="") == "orvel-agent", "no answer without an interface")
    check(tray.get_all(interface="").keys() == everything.keys(), "other properties without one")
    expect_refusal("UnknownProperty", lambda: tray.get("NoSuchProperty"))
    # A property of every QObject.
    expect_refusal("UnknownProperty", lambda: tray.get("objectName"))
    other = "org.freedesktop.DBus.Properties"
    expect_refusal("UnknownInterface", lambda: tray.get("Title", interface=other))
    expect_refusal("UnknownInterface", lambda: tray.get_all(interface=other))
    say("the tool tip shows it, too, and all other properties are present")
    tray.call(ITEM, "Activate", 100, 100, signature="ii")
    wait_for("the panel", lambda: agent.find("frame", "Orvel Agent"))
    say("a click opens the panel")
    item = tray.disappear()
    wait_for("the icon to disappear", lambda: not tray.is_on_bus(item))
    tray.appear()
    wait_for("the icon in the next tray", tray.has_item)
    wait_for("its title", lambda: tray.get("Title") == REASON)
    say("the next tray gets the title, too")


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    bundle = os.path.join(HOME, "bundle")
    make_bundle_without_service(bundle)
    bus = accessibility.start_bus()
    try:
        tray = Tray()
        process = subprocess.Popen([AGENT], env={**os.environ, "ORVEL_AGENT_BUNDLE": bundle})
        agent = accessibility.Application(process)
        try:
            scenario(tray, agent)
        except BaseException:
            print(agent.describe(), flush=True)
            raise
        finally:
            end(process)
    finally:
        end(bus)
    check(process.returncode == 0, f"the agent exited with {process.returncode}")


if __name__ == "__main__":
    main()
