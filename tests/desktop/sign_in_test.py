#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A whole sign-in as a user has it: the default browser, the page, the hand-over of the scheme by
the desktop, the keychain, and a scan with the session in a new process. Afterwards no token is in
any file the agent wrote, in its log, or in the environment of the programs it started.

usage: sign_in_test.py PROGRAMS_DIRECTORY SOURCE_DIRECTORY

Runs in a desktop session of its own (tests/support/private-session) with a display.
"""

import json
import os
import re
import subprocess
import sys
import time
import urllib.request
import ssl

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import webdriver  # noqa: E402
from session import AGENT_FILES, HOME, LIMIT, Agent, check, say, wait_for  # noqa: E402

PROGRAMS, SOURCE = (os.path.abspath(path) for path in sys.argv[1:3])
SAMPLE_MESSAGES = 300


class Service:
    """The local service, and what an agent needs to find it."""

    def __init__(self):
        folder = os.path.join(HOME, "service")
        os.makedirs(folder, mode=0o700)
        self.bundle = os.path.join(folder, "bundle")
        self._token = "control-token-of-this-test"
        token_file = os.path.join(folder, "token")
        with open(token_file, "w") as file:
            file.write(self._token + "\n")
        self._log = open(os.path.join(folder, "log"), "w")
        self._process = subprocess.Popen(
            [os.path.join(PROGRAMS, "orvel-local-service"), "--port", "0", "--control",
             "--store", os.path.join(folder, "records.sqlite"),
             "--cert-dir", os.path.join(folder, "certificates"),
             "--token-file", token_file, "--bundle-out", self.bundle],
            stdout=subprocess.PIPE, stderr=self._log, text=True)
        ready = re.match(
            r"orvel-local-service ready at (\S+) \(certificate authority: (.+)\)",
            self._process.stdout.readline())
        check(ready, "the service did not start")
        self.url = ready[1]
        context = ssl.create_default_context(cafile=ready[2])
        self._opener = urllib.request.build_opener(
            urllib.request.ProxyHandler({}), urllib.request.HTTPSHandler(context=context))

    def statistics(self):
        request = urllib.request.Request(
            self.url + "/control/stats", headers={"Authorization": "Bearer " + self._token})
        with self._opener.open(request, timeout=LIMIT) as reply:
            return json.load(reply)["data"]

    def requests(self, path):
        return self.statistics()["requestsByPath"].get(path, 0)

    def stop(self):
        self._process.terminate()
        self._process.wait(timeout=LIMIT)
        self._process.stdout.close()
        self._log.close()


def make_default_browser(profile):
    """The browser opens the URL in a new tab of the one that the test controls."""
    script = os.path.join(HOME, "browser.sh")
    with open(script, "w") as file:
        file.write(
            "#!/bin/sh\n"
            "# What the agent's children are given is looked at in the end.\n"
            f'env >>"{AGENT_FILES}/environment-of-the-browser"\n'
            f'exec chromium {" ".join(webdriver.ARGUMENTS)} '
            f'--user-data-dir="{profile}" "$@" >>"{HOME}/browser-starts.log" 2>&1\n')
    os.chmod(script, 0o755)
    webdriver.register_as_default(script)


def find_page(browser):
    """Goes to the sign-in page if it is open. The website may have opened in a tab of its own."""
    for tab in browser.tabs():
        browser.switch_to(tab)
        if "/link?" in browser.url():
            return True
    return False


def choose(browser, sign_in, element):
    """Clicks the element on the sign-in page, which the agent has just had opened."""
    wait_for("the sign-in page", lambda: find_page(browser), sign_in)
    wait_for("the page's content", lambda: browser.has("#" + element), sign_in)
    browser.click("#" + element)


def sign_in(browser, agent, element, status):
    before = browser.tabs()
    process = agent.start("--sign-in")
    choose(browser, process, element)
    result = agent.finish(process, status)
    say(f"signed in with #{element}: {result[0].strip() or result[1].strip().splitlines()[-1]}")
    # Back to the one empty tab, so that the next page is found by its address.
    for tab in browser.tabs():
        if tab != before[0]:
            browser.switch_to(tab)
            browser.close_tab()
    browser.switch_to(before[0])
    return result


def scenario(service, agent, browser):
    output, _ = agent.run("--account", status=1)
    check(output == "Not signed in.\n", output)

    _, log = sign_in(browser, agent, "no-account", 1)
    check("That sign-in has no Orvel Agent account." in log, log)
    check("sign-in: no account for that identity; opening the website" in log, log)
    check(log.count("AuthError") == 0, log)

    _, log = sign_in(browser, agent, "cancel", 1)
    check('AuthError(message: "access_denied"' in log, log)

    began = time.monotonic()
    output, log = sign_in(browser, agent, "account-1", 0)
    say(f"a sign-in took {time.monotonic() - began:.1f} s")
    account = output
    check(account.startswith("Signed in as sample-1@orvel.example"), account)
    for line in ("sign-in: opening browser",
                 "sign-in: got custom token, exchanging for an ID token",
                 "sign-in: succeeded"):
        check(line in log, log)
    check(service.requests("/api/v1/profile") == 1, "the profile was not loaded once")

    # What follows are new processes, which find the session in the keychain.
    output, _ = agent.run("--account")
    check(output == account, output)

    database = os.path.join(HOME, "chat.db")
    subprocess.run(
        [os.path.join(PROGRAMS, "make-sample-chatdb"), "--messages", str(SAMPLE_MESSAGES),
         "--no-two-chat", database], check=True, stdout=subprocess.DEVNULL)
    output, _ = agent.run(
        "--source", database, "--scope", "allThreads", "--address-book", "none",
        "--backfill-pause", "0", "--state", os.path.join(AGENT_FILES, "state.conf"), "--json")
    summary = json.loads(output)
    stored = service.statistics()["records"]
    check(summary["uploaded"] == stored > 0, f"{summary['uploaded']} sent, {stored} stored")
    check(service.requests("/identity/v1/token") == 1, "the session was not refreshed once")
    say(f"a scan with the stored session: {stored} records")

    output, _ = agent.run("--sign-out")
    check(output == "Signed out.\n", output)
    output, _ = agent.run("--account", status=1)
    check(output == "Not signed in.\n", output)
    _, log = agent.run("--source", database, "--address-book", "none", status=1)
    check(service.requests("/identity/v1/token") == 1, "a token after the sign-out")


def check_for_tokens():
    """In the agent's own files and log, in its children's environment, and in the keyring, which
    must have encrypted what it was given."""
    environment = os.path.join(AGENT_FILES, "environment-of-the-browser")
    check(os.path.getsize(environment) > 0, "the browser's environment was not kept")
    keyring = os.path.join(os.environ["XDG_DATA_HOME"], "keyrings")
    check(os.listdir(keyring), "there is no keyring file")
    search = [os.path.join(SOURCE, "tools", "find-tokens")]
    paths = [AGENT_FILES, keyring, os.environ["XDG_CONFIG_HOME"],
             os.path.join(os.environ["XDG_DATA_HOME"], "applications")]
    found = subprocess.run(search + paths, stdout=subprocess.PIPE, text=True)
    check(found.returncode == 0, "tokens were found:\n" + found.stdout)
    # The search itself: it finds what is there.
    planted = os.path.join(HOME, "planted")
    with open(planted, "wb") as file:
        file.write(b"\0orvel-refresh-0123456789\0")
    check(subprocess.run(search + [planted], stdout=subprocess.DEVNULL).returncode == 1,
          "the search finds nothing")
    say("no token in what the agent wrote: " + " ".join(
        os.path.relpath(path, HOME) for path in paths))


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    service = Service()
    profile = os.path.join(HOME, "browser")
    agent = Agent(PROGRAMS, service.bundle)
    make_default_browser(profile)
    # As if the user had ticked "always" when the browser asked.
    browser = webdriver.Browser(profile, {"protocol_handler": {
        "allowed_origin_protocol_pairs": {service.url: {"orvelagent": True}}}})
    say("the desktop is ready")
    try:
        scenario(service, agent, browser)
    except BaseException:
        print(agent.last_log(), flush=True)
        browser.screenshot(os.environ.get("ORVEL_SCREENSHOT", "/dev/null"))
        raise
    finally:
        browser.quit()
        service.stop()
    check_for_tokens()


if __name__ == "__main__":
    main()
