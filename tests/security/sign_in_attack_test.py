#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Attacks on a sign-in that waits: another account of the machine reads the process list and opens
the address that it finds there, and a page in the user's browser calls back with the code of an
attacker's account or with a text of its own. Prints what the attackers got.

usage: sign_in_attack_test.py PROGRAMS_DIRECTORY

Runs in a private desktop session (tests/support/private-session). Only root can act as another
account, so other users skip that part.
"""

import base64
import hashlib
import html
import json
import os
import re
import socket
import subprocess
import sys
import urllib.parse

TESTS = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(TESTS, "desktop"))
from service import Service  # noqa: E402
from session import HOME, LIMIT, Agent, check, command_lines, say, wait_for  # noqa: E402

PROGRAMS = os.path.abspath(sys.argv[1])
IS_ROOT = os.geteuid() == 0
NOBODY = 65534
ATTACKER, USER = 2, 1  # accounts of the service
REPORTED = "The sign-in page reported an error."


class Browser:
    """The default browser: a script that records its address and stays open."""

    def __init__(self):
        self._url = os.path.join(HOME, "opened-url")
        door = os.path.join(HOME, "door")
        os.mkfifo(door)
        # Open for both directions, so that opening does not wait.
        self._door = os.open(door, os.O_RDWR)
        script = os.path.join(HOME, "browser")
        with open(script, "w") as file:
            file.write(f"#!/bin/sh\nprintf %s \"$1\" >'{self._url}.new'\n"
                       f"mv '{self._url}.new' '{self._url}'\nread -r _ <'{door}'\n")
        os.chmod(script, 0o755)
        os.environ["BROWSER"] = script

    def wait_for_url(self, process):
        wait_for("the browser", lambda: os.path.exists(self._url), process)
        with open(self._url) as file:
            return file.read()

    def close(self):
        os.write(self._door, b"\n")
        if os.path.exists(self._url):
            os.remove(self._url)


def open_address(url, method="GET"):
    """Opens an address of this machine as a browser does. Returns the reply, which is empty if the
    connection is closed without one."""
    parts = urllib.parse.urlsplit(url)
    reply = b""
    with socket.socket() as connection:
        connection.settimeout(LIMIT)
        # Not `create_connection`, which loads a module that another account may not be able to
        # read.
        connection.connect((parts.hostname, parts.port))
        try:
            connection.sendall((f"{method} {parts.path} HTTP/1.1\r\nHost: {parts.netloc}\r\n"
                                "Sec-Fetch-Site: none\r\n\r\n").encode())
            while part := connection.recv(4096):
                reply += part
        except (BrokenPipeError, ConnectionResetError):
            pass
    return reply.decode()


def challenge_in(text):
    found = re.search(r"challenge=([\w-]+)", text)
    return found and found[1]


def look_around():
    """What another account finds: the address in the process list, the challenge in it, and the
    reply of the address."""
    processes = command_lines()
    address = re.search(r"http://127\.0\.0\.1:\d+/[0-9a-f]{32}", processes)
    reply = open_address(address[0]) if address else ""
    return {"address": address and address[0], "reply": reply,
            "challenge": challenge_in(processes) or challenge_in(reply)}


def as_other_account(function):
    """Runs the function as another account. Returns its result."""
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            os.setgroups([])
            os.setresgid(NOBODY, NOBODY, NOBODY)
            os.setresuid(NOBODY, NOBODY, NOBODY)
            os.write(writer, json.dumps(function()).encode())
        except Exception as error:
            print("the other account:", repr(error), flush=True)
        finally:
            os._exit(0)
    os.close(writer)
    with os.fdopen(reader) as file:
        result = file.read()
    os.waitpid(child, 0)
    check(result, "the other account failed")
    return json.loads(result)


def new_challenge():
    verifier = base64.urlsafe_b64encode(os.urandom(32)).rstrip(b"=")
    return base64.urlsafe_b64encode(hashlib.sha256(verifier).digest()).rstrip(b"=").decode()


def callback_for(service, challenge, number):
    """Signs in on the service's page with that account. Returns the page's callback."""
    form = service.page("/link?" + urllib.parse.urlencode(
        {"challenge": challenge, "client": "mac", "v": "1.0"}))
    account = re.search(rf'id="account-{number}" name="account" value="([^"]+)"', form)[1]
    answer = service.page("/link", {"challenge": challenge, "account": html.unescape(account)})
    return html.unescape(re.search(r'href="(orvelagent:[^"]+)"', answer)[1])


def call_back(url):
    """Does what the desktop does when a page opens the URL. Returns whether it was accepted."""
    return subprocess.run([os.path.join(PROGRAMS, "orvel-agent-callback"), url],
                          stderr=subprocess.DEVNULL, timeout=LIMIT).returncode == 0


class SignIn:
    def __init__(self, agent, browser):
        self._agent, self._browser = agent, browser
        self._process = agent.start("--sign-in")
        self.address = browser.wait_for_url(self._process)

    def open_page(self):
        """Opens the page in the user's browser. Returns its challenge."""
        reply = open_address(self.address)
        check(reply.startswith("HTTP/1.1 302 "), f"the user's browser got {reply!r}")
        return challenge_in(reply)

    def is_waiting(self):
        return self._process.poll() is None

    def finish(self, status):
        output, log = self._agent.finish(self._process, status)
        self._browser.close()
        return output + log


def check_signed_out(agent):
    output, _ = agent.run("--account", status=1)
    check(output == "Not signed in.\n", output)


def attack_from_another_account(service, agent, browser):
    """Another account makes the user's browser deliver a code for the best challenge that it
    found."""
    sign_in = SignIn(agent, browser)
    found = as_other_account(look_around)
    forged = callback_for(service, found["challenge"] or new_challenge(), ATTACKER)
    say(f"another account found the address {found['address']}, the reply {found['reply']!r} "
        f"and the challenge {found['challenge']}")
    if not call_back(forged):
        challenge = sign_in.open_page()
        check(challenge and challenge not in as_other_account(command_lines),
              "the process list shows the challenge")
        # The user finishes the sign-in although the other account tries to open the page.
        check(as_other_account(look_around)["reply"] == "", "the other account got a reply")
        check(call_back(callback_for(service, challenge, USER)), "the user's callback is ignored")
        log = sign_in.finish(0)
        check("another account of this machine tried to open the sign-in page" in log, log)
    else:
        sign_in.finish(0)
    output, _ = agent.run("--account")
    say(f"the user is signed in: {output.strip()}")
    check("sample-1@" in output, "the attacker's account is signed in")
    agent.run("--sign-out")


def attack_with_a_code(service, agent, browser):
    sign_in = SignIn(agent, browser)
    challenge = sign_in.open_page()
    check(challenge not in command_lines(), "the process list shows the challenge")
    call_back(callback_for(service, new_challenge(), ATTACKER))
    log = sign_in.finish(1)
    say("a page with a code of its own account ended the sign-in: " + log.strip().splitlines()[-1])
    check_signed_out(agent)


def attack_with_a_text(service, agent, browser):
    sign_in = SignIn(agent, browser)
    sign_in.open_page()
    text = "Your account is locked, call 555 0100"
    quoted = urllib.parse.quote(text)
    for query in ("", "?code=", "?state=x", "?error=", f"?message={quoted}", f"#{quoted}",
                  f"?code=%zz{quoted}", "?code=" + "x" * 9000):
        check(not call_back("orvelagent://callback" + query), f"accepted: {query[:40]}")
        check(sign_in.is_waiting(), f"ended by {query[:40]}")
    check(call_back(f"orvelagent://callback?error={quoted}"), "the error was ignored")
    log = sign_in.finish(1)
    check(REPORTED in log and "555" not in log, log)
    say("a page with a text of its own ended the sign-in: " + log.strip().splitlines()[-1])
    check_signed_out(agent)


def open_several_times(service, agent, browser):
    """The desktop looks at the address before it starts the browser, and the user reloads the
    page."""
    sign_in = SignIn(agent, browser)
    reply = open_address(sign_in.address, "HEAD")
    check(reply.startswith("HTTP/1.1 200 ") and challenge_in(reply) is None, reply)
    challenge = sign_in.open_page()
    check(sign_in.open_page() == challenge, "the second visit got another page")
    check(sign_in.is_waiting(), "the second visit ended the sign-in")
    check(call_back(callback_for(service, challenge, USER)), "the user's callback is ignored")
    sign_in.finish(0)
    say("the user opened the page several times and signed in")
    agent.run("--sign-out")


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    browser = Browser()
    service = Service(PROGRAMS)
    agent = Agent(PROGRAMS, service.bundle)
    attacks = [attack_with_a_code, attack_with_a_text, open_several_times]
    if IS_ROOT:
        attacks.insert(0, attack_from_another_account)
    else:
        say("not as root: no attack from another account")
    try:
        for attack in attacks:
            attack(service, agent, browser)
    except BaseException:
        print(agent.last_log(), flush=True)
        raise
    finally:
        browser.close()
        service.stop()


if __name__ == "__main__":
    main()
