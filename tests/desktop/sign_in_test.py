#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A complete sign-in: the default browser, the page, the desktop's handler of the URL scheme, the
keychain, and a scan with the session in a new process. At the end no token is in any file the agent
wrote, in its log, or in the environment of the programs it started.

usage: sign_in_test.py PROGRAMS_DIRECTORY SOURCE_DIRECTORY

Runs in a private desktop session (tests/support/private-session) with a display.
"""

import json
import os
import re
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import webdriver  # noqa: E402
from service import Service  # noqa: E402
from session import AGENT_FILES, HOME, Agent, check, command_lines, say, wait_for  # noqa: E402

PROGRAMS, SOURCE = (os.path.abspath(path) for path in sys.argv[1:3])
SAMPLE_MESSAGES = 300


def choose(browser, sign_in, element):
    """Clicks the element on the sign-in page that the agent has just opened."""
    wait_for("the sign-in page", lambda: browser.find_tab("/link?"), sign_in)
    wait_for("the page's content", lambda: browser.has("#" + element), sign_in)
    challenge = re.search(r"challenge=([\w-]+)", browser.url())[1]
    check(challenge not in command_lines(), "a command line has the challenge")
    browser.click("#" + element)


def sign_in(browser, agent, element, status):
    before = browser.tabs()
    process = agent.start("--sign-in")
    choose(browser, process, element)
    result = agent.finish(process, status)
    say(f"signed in with #{element}: {result[0].strip() or result[1].strip().splitlines()[-1]}")
    # Close the other tabs, so that the next sign-in page is the only one with its address.
    for tab in browser.tabs():
        if tab != before[0]:
            browser.switch_to(tab)
            browser.close_tab()
    browser.switch_to(before[0])
    return result


def open_pages(service, browser):
    """Without the link, the browser sees no page; afterwards it sees them."""
    browser.open(service.url)
    check("Open the link" in browser.text("h1"), browser.text("h1"))
    browser.open(service.page_link)
    wait_for("the page of records", lambda: browser.url() == service.url + "/")
    check(browser.text("h1") == "Orvel local service", browser.text("h1"))
    browser.open("about:blank")


def scenario(service, agent, browser):
    open_pages(service, browser)
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

    # The following commands are new processes, which find the session in the keychain.
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
    """Searches the agent's files and log, its child's environment, and the keyring, which must be
    encrypted."""
    environment = os.path.join(AGENT_FILES, "environment-of-the-browser")
    check(os.path.getsize(environment) > 0, "the browser's environment was not saved")
    keyring = os.path.join(os.environ["XDG_DATA_HOME"], "keyrings")
    check(os.listdir(keyring), "there is no keyring file")
    search = [os.path.join(SOURCE, "tools", "dev", "find-tokens")]
    paths = [AGENT_FILES, keyring, os.environ["XDG_CONFIG_HOME"],
             os.path.join(os.environ["XDG_DATA_HOME"], "applications")]
    found = subprocess.run(search + paths, stdout=subprocess.PIPE, text=True)
    check(found.returncode == 0, "tokens were found:\n" + found.stdout)
    # The search must find a planted token.
    planted = os.path.join(HOME, "planted")
    with open(planted, "wb") as file:
        file.write(b"\0orvel-refresh-0123456789\0")
    check(subprocess.run(search + [planted], stdout=subprocess.DEVNULL).returncode == 1,
          "the search finds nothing")
    say("no token in the files of the agent: " + " ".join(
        os.path.relpath(path, HOME) for path in paths))


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    service = Service(PROGRAMS)
    profile = os.path.join(HOME, "browser")
    agent = Agent(PROGRAMS, service.bundle)
    # check_for_tokens() searches the environment of the browser that the agent starts.
    webdriver.make_default(profile, os.path.join(AGENT_FILES, "environment-of-the-browser"))
    browser = webdriver.Browser(profile, webdriver.allowing_scheme(service.url))
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
