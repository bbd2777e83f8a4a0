#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The agent's process: only one instance runs, its icon appears as soon as there is a tray, it
hardly wakes up while idle, and signals end it cleanly.

usage: single_instance_test.py PROGRAMS_DIRECTORY

Runs in a private desktop session (tests/support/private-session) with a display.
"""

import os
import re
import signal
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from session import (  # noqa: E402
    HOME, LIMIT, check, make_bundle_without_service, say, send_together, wait_for, wake_ups)

AGENT = os.path.join(os.path.abspath(sys.argv[1]), "orvel-agent")
BUNDLE = os.path.join(HOME, "bundle")
TEMPORARY = os.path.join(HOME, "temporary")


class Terminal:
    """A terminal that collects the agent's log."""

    def __init__(self):
        self._master, self.slave = os.openpty()
        os.set_blocking(self._master, False)
        self._shown = b""

    @staticmethod
    def make():
        """None where /dev/pts is not mounted."""
        try:
            return Terminal()
        except OSError as error:
            print(f"desktop.single_instance (the log) ... skipped 'no pseudo-terminal: {error}'")
            return None

    def shown(self):
        try:
            while True:
                self._shown += os.read(self._master, 4096)
        except BlockingIOError:
            return self._shown.decode(errors="replace")


class Agent:
    """One started instance."""

    started = 0

    def __init__(self, *arguments, terminal=None, **environment):
        Agent.started += 1
        self._errors = os.path.join(HOME, f"errors-{Agent.started}")
        with open(self._errors, "w") as file:
            self.process = subprocess.Popen(
                [AGENT, *arguments], stdout=subprocess.PIPE, text=True,
                stderr=terminal.slave if terminal else file,
                env={**os.environ, "ORVEL_AGENT_BUNDLE": BUNDLE, "TMPDIR": TEMPORARY, **environment})

    @property
    def pid(self):
        return self.process.pid

    def errors(self):
        with open(self._errors) as file:
            return file.read()

    def is_running(self):
        return self.process.poll() is None

    def wait(self, status):
        output, _ = self.process.communicate(timeout=LIMIT)
        check(self.process.returncode == status,
              f"status {self.process.returncode}, not {status}: {self.errors()}")
        return output

    def end(self, *numbers):
        send_together(self.process, *(numbers or (signal.SIGTERM,)))
        self.wait(0)
        check(self.errors() == "", self.errors())
        check(os.listdir(TEMPORARY) == [], os.listdir(TEMPORARY))


def expect_other(copy, first):
    check(copy.wait(0) == "", "it printed to standard output")
    check(copy.errors() == f"Another instance is already running (pid {first.pid}); "
          "this copy is exiting.\n", copy.errors())


def windows(title):
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    return found.stdout.split()


def geometry_of(window):
    text = subprocess.run(["xdotool", "getwindowgeometry", "--shell", window], check=True,
                          stdout=subprocess.PIPE, text=True).stdout
    values = dict(re.findall(r"(\w+)=(-?\d+)", text))
    return tuple(int(values[key]) for key in ("X", "Y", "WIDTH", "HEIGHT"))


def click(x, y):
    subprocess.run(["xdotool", "mousemove", str(x), str(y), "click", "1"], check=True)


def try_command_line():
    check("usage: " in Agent("--help").wait(0).lower(), "no usage")
    check(re.fullmatch(r"orvel-agent \d+\.\d+\.\d+\n", Agent("--version", DISPLAY="").wait(0)),
          "no version")
    refused = Agent("--unknown")
    check(refused.wait(2) == "" and "Usage: " in refused.errors(), refused.errors())
    say("the command line options work")


def try_without_bundle():
    broken = Agent(ORVEL_AGENT_BUNDLE="/nonexistent")
    window = wait_for("the window with the reason", lambda: windows("The agent cannot start"),
                      broken.process)
    subprocess.run(["xdotool", "windowfocus", "--sync", window[0], "key", "Escape"], check=True)
    broken.wait(1)
    check(re.fullmatch(r"orvel-agent: .*/nonexistent.*\n", broken.errors()), broken.errors())
    say("a window shows why the agent cannot start")


def try_instant_double_start():
    copies = [Agent() for _ in range(4)]
    wait_for("a single instance", lambda: sum(copy.is_running() for copy in copies) == 1)
    first = next(copy for copy in copies if copy.is_running())
    for copy in copies:
        if copy is not first:
            expect_other(copy, first)
    say("of four simultaneous starts, one instance is left")
    return first


def try_without_tray(first):
    panel = wait_for("the panel as a window", lambda: windows("Orvel Agent"), first.process)
    say("without a tray the panel is a window")
    properties = subprocess.run(["xprop", "-id", panel[0]], check=True, stdout=subprocess.PIPE,
                                text=True, errors="replace").stdout
    check("_NET_WM_ICON(CARDINAL)" in properties, properties)
    check('WM_NAME(STRING) = "Orvel Agent"' in properties, properties)
    subprocess.run(["xdotool", "windowfocus", "--sync", panel[0], "key", "Escape"], check=True)
    wait_for("the panel to close", lambda: not windows("Orvel Agent"), first.process)
    expect_other(Agent(), first)
    wait_for("the panel of a second start", lambda: windows("Orvel Agent"), first.process)
    subprocess.run(["xdotool", "windowfocus", "--sync", windows("Orvel Agent")[0], "key",
                    "ctrl+w"], check=True)
    wait_for("the panel to close", lambda: not windows("Orvel Agent"), first.process)
    say("a second start opens the panel again")
    expect_other(Agent(), first)
    panel = wait_for("the panel of a third", lambda: windows("Orvel Agent"), first.process)
    subprocess.run(["xdotool", "windowfocus", "--sync", panel[0], "key", "shift+Tab", "space"],
                   check=True)
    first.wait(0)
    say("its last button quits the agent")


def start_tray():
    return subprocess.Popen(["trayer", "--edge", "top", "--align", "right", "--margin", "0",
                             "--widthtype", "pixel", "--width", "24", "--height", "24",
                             "--SetPartialStrut", "true"], stderr=subprocess.DEVNULL)


def click_on_icon(first):
    """Clicks until the icon is in the tray and the panel opens."""
    def is_open():
        if not windows("Orvel Agent"):
            click(1268, 12)
        return windows("Orvel Agent")
    return wait_for("the panel", is_open, first.process)[0]


def try_late_tray(first):
    tray = start_tray()
    x, y, width, height = geometry_of(click_on_icon(first))
    check(x + width <= 1280 and x > 640 and 0 <= y < 100, (x, y, width, height))
    subprocess.run(["xdotool", "key", "Escape"], check=True)
    wait_for("the panel to close", lambda: not windows("Orvel Agent"), first.process)
    say("a tray that starts late gets the icon")
    tray.terminate()
    tray.wait()
    tray = start_tray()
    click_on_icon(first)
    subprocess.run(["xdotool", "key", "Escape"], check=True)
    wait_for("the panel to close", lambda: not windows("Orvel Agent"), first.process)
    say("a restarted tray gets the icon again")
    return tray


def try_lost_tray(first, tray, terminal):
    tray.terminate()
    tray.wait()
    wait_for("the panel as a window", lambda: windows("Orvel Agent"), first.process)
    reason = "this desktop has no tray for the icon, so the panel opens as a window"
    say("without the tray, the panel opens as a window")
    if terminal:
        check(terminal.shown().count(reason) == 1, terminal.shown())
        say("and the log says why")
    tray = start_tray()
    wait_for("the panel to close", lambda: not windows("Orvel Agent"), first.process)
    click_on_icon(first)
    subprocess.run(["xdotool", "key", "Escape"], check=True)
    wait_for("the panel to close", lambda: not windows("Orvel Agent"), first.process)
    say("with a new tray, the window closes and the icon is back")
    return tray


def try_idle(first):
    """Measures while the icon flashes, twice in 3.2 s."""
    count, waits = wake_ups(first.process)
    say(f"{count} wake-ups in 10 s while flashing, with {waits} waits of all threads")
    check(2 <= count <= 10, f"{count} wake-ups in 10 s")
    check(waits <= 40, f"{waits} waits in 10 s")


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    make_bundle_without_service(BUNDLE)
    os.makedirs(TEMPORARY)
    desktop = [subprocess.Popen(["openbox"], stderr=subprocess.DEVNULL)]
    try:
        try_command_line()
        try_without_bundle()
        first = try_instant_double_start()
        try_without_tray(first)
        terminal = Terminal.make()
        first = Agent(terminal=terminal)
        desktop.append(try_late_tray(first))
        desktop.append(try_lost_tray(first, desktop.pop(), terminal))
        try_idle(first)
        expect_other(Agent(), first)
        first.end()
        # A logout often sends the last pair.
        for numbers in ((signal.SIGINT,), (signal.SIGHUP,), (signal.SIGTERM, signal.SIGHUP)):
            next_copy = Agent()
            click_on_icon(next_copy)
            next_copy.end(*numbers)
        say("every signal ends the agent cleanly")
    finally:
        for process in desktop:
            process.terminate()
            process.wait(timeout=LIMIT)


if __name__ == "__main__":
    main()
