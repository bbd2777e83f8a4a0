#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A keyring that never replies, such as one waiting to be unlocked: Ctrl+C ends every command at
once, and none of them reports that the user is signed out.

usage: silent_keyring_test.py PROGRAMS_DIRECTORY

Runs in a private desktop session (tests/support/private-session).
"""

import os
import signal
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from session import HOME, Agent, check, say, wait_for  # noqa: E402

PROGRAMS = os.path.abspath(sys.argv[1])
PROCESS = os.path.join(HOME, "silent-service.pid")


def make_silent_service():
    """Installs a service that the bus starts for the first call. It never takes its name on the bus,
    so calls wait."""
    services = os.path.join(os.environ["XDG_DATA_HOME"], "dbus-1", "services")
    os.makedirs(services)
    script = os.path.join(HOME, "silent-service.sh")
    with open(script, "w") as file:
        file.write(f"#!/bin/sh\necho $$ >'{PROCESS}'\nexec tail -f /dev/null\n")
    os.chmod(script, 0o755)
    with open(os.path.join(services, "org.freedesktop.secrets.service"), "w") as file:
        file.write(f"[D-BUS Service]\nName=org.freedesktop.secrets\nExec={script}\n")
    ask_bus("ReloadConfig")


def ask_bus(method):
    return subprocess.run(
        ["dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus",
         "/org/freedesktop/DBus", "org.freedesktop.DBus." + method],
        check=True, stdout=subprocess.PIPE, text=True).stdout


def connections():
    return ask_bus("ListNames").count('string ":')


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    make_silent_service()
    agent = Agent(PROGRAMS)
    scan = ["--source", os.path.join(HOME, "chat.db"), "--address-book", "none"]
    before = connections()
    for arguments in (["--account"], ["--sign-out"], scan):
        process = agent.start(*arguments)
        # Once connected to the bus, the program is in its event loop and asks the keyring.
        wait_for("the connection to the bus", lambda: connections() > before, process)
        process.send_signal(signal.SIGINT)
        output, log = agent.finish(process, 128 + signal.SIGINT)
        for claim in ("Not signed in", "Signed out", "You are not signed in"):
            check(claim not in output + log, output + log)
        say(f"{arguments[0]} ended")
    with open(PROCESS) as file:
        os.kill(int(file.read()), signal.SIGTERM)


if __name__ == "__main__":
    main()
