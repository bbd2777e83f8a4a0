#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Uses the agent like a user: clicks the icon in the tray, reads the panel, signs in with the
browser, changes the settings, scans again from the beginning, watches the log, reads the version
history, quits, and logs out during a scan. At the end the service has every message once, and no
temporary file is left.

usage: agent_test.py PROGRAMS_DIRECTORY

Runs in a private desktop session (tests/support/private-session) with a display.
"""

import contextlib
import itertools
import os
import re
import signal
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import accessibility  # noqa: E402
import webdriver  # noqa: E402
from service import Service  # noqa: E402
from session import (  # noqa: E402
    AGENT_FILES, HOME, LIMIT, check, end, say, send_together, wait_for, wake_ups)

PROGRAMS = os.path.abspath(sys.argv[1])
SAMPLE_MESSAGES = 300
# The agent sends all of these.
LATER_MESSAGES = 12
DATABASE = os.path.join(HOME, "Library", "Messages", "chat.db")
SETTINGS = os.path.join(os.environ["XDG_CONFIG_HOME"], "orvel-agent", "defaults.conf")
PROGRESS_KEYS = ("messages.rowid.", "messages.backfill.")
SNAPSHOTS = os.path.join(HOME, "snapshots")
POLLS_UNTIL_CLICK = 100
INGEST_PATH = "/api/v1/context/ingest"
DIGEST_PATH = "/api/v1/context/handle-digest"
SCREENSHOTS = os.environ.get("ORVEL_SCREENSHOTS")


def xdotool(*arguments):
    return subprocess.run(
        ["xdotool", *map(str, arguments)], check=True, stdout=subprocess.PIPE, text=True).stdout


class Desktop:
    """A window manager, a tray, and the accessibility bus."""

    def __init__(self):
        self._log = open(os.path.join(HOME, "desktop.log"), "w")
        self._processes = [accessibility.start_bus()]
        for command in (["openbox"], ["trayer", "--edge", "top", "--align", "right",
                                      "--widthtype", "request", "--height", "24"]):
            self._processes.append(
                subprocess.Popen(command, stdout=self._log, stderr=subprocess.STDOUT))

    def click_tray_icon(self):
        x, y = wait_for("the icon in the tray", self._icon_centre)
        xdotool("mousemove", x, y, "click", 1)

    @staticmethod
    def _icon_centre():
        """The centre of the agent's only window with the size of an icon."""
        windows = subprocess.run(
            ["xdotool", "search", "--onlyvisible", "--class", "orvel-agent"],
            stdout=subprocess.PIPE, text=True).stdout.split()
        for window in windows:
            geometry = dict(line.split("=") for line in
                            xdotool("getwindowgeometry", "--shell", window).split())
            x, y, width, height = (int(geometry[key]) for key in ("X", "Y", "WIDTH", "HEIGHT"))
            if width == height and 16 <= width <= 48:
                return x + width // 2, y + height // 2
        return None

    def stop(self):
        for process in reversed(self._processes):
            end(process)
        self._log.close()


def screenshot(name):
    if SCREENSHOTS:
        subprocess.run(["import", "-window", "root", os.path.join(SCREENSHOTS, name + ".png")])


class Agent(accessibility.Application):
    """The running agent. Leaving its `with` block stops it and, on failure, prints its windows."""

    def __init__(self, bundle):
        os.makedirs(AGENT_FILES, exist_ok=True)
        os.makedirs(SNAPSHOTS, exist_ok=True)
        self._log = os.path.join(AGENT_FILES, "log")
        environment = {name: value for name, value in os.environ.items()
                       if name.lower() not in ("https_proxy", "all_proxy")}
        environment["ORVEL_AGENT_BUNDLE"] = bundle
        environment["TMPDIR"] = SNAPSHOTS
        environment["SSLKEYLOGFILE"] = self._keys = os.path.join(AGENT_FILES, "keys")
        with open(self._log, "w") as log:
            self.process = subprocess.Popen(
                [os.path.join(PROGRAMS, "orvel-agent")],
                stdout=log, stderr=subprocess.STDOUT, env=environment)
        super().__init__(self.process)

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        try:
            if failure and self.process.poll() is None:
                screenshot("failure")
                print(self.describe(), self._logged(), sep="\n", flush=True)
        finally:
            end(self.process)

    def _logged(self):
        with open(self._log) as log:
            return log.read()

    def finish(self):
        self.process.wait(timeout=LIMIT)
        text = self._logged()
        check(self.process.returncode == 0,
              f"the agent exited with {self.process.returncode}:\n{text}")
        check(not os.path.exists(self._keys), "the keys of connections were recorded")
        return text


def open_panel(desktop, agent):
    """Opens the panel if it is closed: it closes when another window takes the focus. A click that
    arrives while it is closing does not open it, so there is another click after some time."""
    polls = itertools.count()

    def find_or_click():
        button = agent.find("push button", "Quit")
        if button is None and next(polls) % POLLS_UNTIL_CLICK == 0:
            desktop.click_tray_icon()
        return button

    return wait_for("the panel", find_or_click, agent.process)


def make_messages(*options):
    subprocess.run(
        [os.path.join(PROGRAMS, "make-sample-chatdb"), "--no-two-chat", *options, DATABASE],
        check=True, stdout=subprocess.DEVNULL)


def stored_settings():
    """The content of the agent's settings file."""
    with open(SETTINGS) as file:
        return file.read()


def stored_progress():
    return {line for line in stored_settings().splitlines() if line.startswith(PROGRESS_KEYS)}


def after_later_messages(progress):
    return {re.sub(r"(?<=watermark=)\d+", lambda row: str(int(row[0]) + LATER_MESSAGES), line)
            for line in progress}


def choose(agent, picker, choice, stored):
    """Selects the choice in the picker and waits until it is stored."""
    xdotool("mousemove", *agent.centre_of("combo box", picker), "click", 1)
    xdotool("mousemove", *agent.centre_of("list item", choice), "click", 1)
    wait_for(f"{picker} to be {stored}", lambda: stored in stored_settings(), agent.process)


def check_panel(desktop, agent):
    open_panel(desktop, agent)
    agent.wait_for("label", "Sign in to start collecting.")
    agent.wait_for("label", "No scans yet.")
    screenshot("panel-signed-out")
    say("the panel asks to sign in")


def sign_in(desktop, agent, browser):
    agent.press("push button", "Sign in…")
    wait_for("the sign-in page", lambda: browser.find_tab("/link?"), agent.process)
    wait_for("its content", lambda: browser.has("#account-1"), agent.process)
    browser.click("#account-1")
    open_panel(desktop, agent)
    agent.wait_for("label", "sample-1@orvel.example")
    check(not agent.find("label", "Sign in to start collecting."), "still signed out")
    screenshot("panel-signed-in")
    say("signed in")


def change_settings(desktop, agent):
    open_panel(desktop, agent)
    agent.press("push button", "Settings…")
    agent.wait_for("check box", "Start at login")
    agent.press("page tab", "Privacy")
    choose(agent, "Collect", "Timing only — no message text", "metadataOnly")
    choose(agent, "Collect", "Timing and message text", "withBodies")
    choose(agent, "Conversations", "All conversations, including personal and family",
           "allThreads")
    agent.press("push button", "Re-scan from the beginning")
    agent.wait_for("label", "The next scan starts from the beginning.")
    screenshot("settings-privacy")
    xdotool("key", "Escape")
    agent.wait_until_closed("check box", "Start at login")
    say("both choices are stored, and a re-scan is requested")


def check_idle_wake_ups(agent, service):
    """Measures the agent signed in, without windows, while its loop sleeps."""
    # Repeat: closing a window causes some delayed work, and a scan may happen meanwhile.
    for _ in range(3):
        scans = service.requests(DIGEST_PATH)
        count, waits = wake_ups(agent.process)
        say(f"{count} wake-ups in 10 idle seconds, with {waits} waits of all threads")
        if count <= 1 and waits <= 20 and scans == service.requests(DIGEST_PATH):
            break
    check(count <= 1, f"{count} wake-ups in 10 idle seconds")
    check(waits <= 20, f"{waits} waits in 10 idle seconds")


def check_activity_log(desktop, agent, service):
    open_panel(desktop, agent)
    agent.press("push button", "Settings…")
    agent.press("push button", "Open activity log…")
    agent.wait_for("label", "Live")
    wait_for("the scan's end in the log",
             lambda: "scan done" in agent.text_of("Log, newest first"), agent.process)
    log = agent.text_of("Log, newest first")
    check("scan starting (mode=withBodies, scope=allThreads" in log, log)
    stored = service.statistics()["records"]
    check(f"sent {stored}," in log and stored > 0, f"{stored} records are stored:\n{log}")
    screenshot("activity-log")
    agent.press("check box", "Problems only")
    wait_for("the filter", lambda: "scan starting" not in (
        agent.text_of("Log, newest first") or ""), agent.process)
    agent.press("check box", "Problems only")
    agent.press("push button", "Copy all")
    agent.wait_for("push button", "Copied")
    copied = subprocess.run(
        ["xclip", "-selection", "clipboard", "-out"], check=True, stdout=subprocess.PIPE,
        text=True, timeout=LIMIT).stdout
    check("scan starting (mode=withBodies" in copied, copied)
    check(copied.index("scan starting") < copied.index("scan done"), "newest first")
    say("the log shows the scan, and can be filtered and copied")


def check_version_history(desktop, agent):
    open_panel(desktop, agent)
    agent.press("push button", lambda name: name.startswith("Version "))
    agent.wait_for("frame", "Orvel Agent Version History")
    screenshot("version-history")
    xdotool("key", "Escape")
    agent.wait_until_closed("frame", "Orvel Agent Version History")
    say("the version history opens, and Escape closes it")


def end_during_a_scan(service):
    """Ends the agent with several signals, as a logout does, while the service delays a reply."""
    settings = stored_settings()
    with open(SETTINGS, "w") as file:
        file.write("".join(line for line in settings.splitlines(True)
                           if not line.startswith(PROGRESS_KEYS)))
    uploads = service.requests(INGEST_PATH)
    service.script_fault(INGEST_PATH, fault="delay", delayMilliseconds=LIMIT * 10000)
    with Agent(service.bundle) as agent:
        wait_for("an upload", lambda: service.requests(INGEST_PATH) > uploads, agent.process)
        check(len(os.listdir(SNAPSHOTS)) == 1, os.listdir(SNAPSHOTS))
        send_together(agent.process, signal.SIGTERM, signal.SIGHUP)
        check(agent.finish() == "", "the agent printed messages")
    check(os.listdir(SNAPSHOTS) == [], "a copy of the database is left")
    check(stored_progress() == set(), stored_settings())
    say("two signals end the scan, remove the copy and keep the progress")


def check_next_start(service, progress, records):
    """The agent is still signed in and sends the interrupted upload again."""
    with Agent(service.bundle) as agent:
        wait_for("the scan's end", lambda: stored_progress() == progress, agent.process)
        check(service.statistics()["records"] == records, service.statistics())
        agent.process.terminate()
        check(agent.finish() == "", "the agent printed messages")
    say("the next start sends the missing messages")


def scenario(desktop, service, agent, browser):
    check_panel(desktop, agent)
    sign_in(desktop, agent, browser)
    change_settings(desktop, agent)
    check_idle_wake_ups(agent, service)
    check_activity_log(desktop, agent, service)
    check_version_history(desktop, agent)
    open_panel(desktop, agent)
    agent.wait_for("label", lambda text: text.endswith("scanned in the last 24 hours"))
    screenshot("panel")
    agent.press("push button", "Quit")
    log = agent.finish()
    check(log == "", log)
    check(os.listdir(SNAPSHOTS) == [], "a copy of the database is left")
    say("the agent has quit and left no temporary files")
    progress, records = stored_progress(), service.statistics()["records"]
    make_messages("--append", str(LATER_MESSAGES))
    end_during_a_scan(service)
    check(service.statistics()["records"] == records, service.statistics())
    check_next_start(service, after_later_messages(progress), records + LATER_MESSAGES)


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    os.makedirs(os.path.dirname(DATABASE))
    make_messages("--messages", str(SAMPLE_MESSAGES))
    with contextlib.ExitStack() as started:
        service = Service(PROGRAMS)
        started.callback(service.stop)
        desktop = Desktop()
        started.callback(desktop.stop)
        profile = os.path.join(HOME, "browser")
        webdriver.make_default(profile, os.path.join(HOME, "environment-of-the-browser"))
        browser = webdriver.Browser(profile, webdriver.allowing_scheme(service.url))
        started.callback(browser.quit)
        browser.open(service.page_link)
        agent = started.enter_context(Agent(service.bundle))
        say("the desktop is ready")
        scenario(desktop, service, agent, browser)


if __name__ == "__main__":
    main()
