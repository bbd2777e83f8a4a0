#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Traces the system calls of a sign-in and of a scan, and compares with a short list of what they
may do outside of their own memory: which paths they change, where they connect to and which
programs they start. Fails for everything else, and for an entry of the list that is not needed.

usage: effects_test.py PROGRAMS_DIRECTORY

Runs in a private desktop session (tests/support/private-session) with a keyring.
"""

import json
import os
import re
import subprocess
import sys
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "desktop"))
from service import Service  # noqa: E402
from session import AGENT_FILES, HOME, Agent, check, say  # noqa: E402

PROGRAMS = os.path.abspath(sys.argv[1])
STATE = os.path.join(AGENT_FILES, "state.conf")
UUID = r"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"

# Calls that change the file system, and which of their arguments are paths.
PATH_CALLS = {
    "chmod": [0], "fchmodat": [1], "chown": [0], "lchown": [0], "fchownat": [1], "creat": [0],
    "link": [1], "linkat": [3], "mkdir": [0], "mkdirat": [1], "mknod": [0], "mknodat": [1],
    "rename": [0, 1], "renameat": [1, 3], "renameat2": [1, 3], "rmdir": [0], "symlink": [1],
    "symlinkat": [2], "truncate": [0], "unlink": [0], "unlinkat": [1], "utime": [0],
    "utimes": [0], "futimesat": [1], "utimensat": [1], "setxattr": [0], "lsetxattr": [0],
    "removexattr": [0], "lremovexattr": [0], "mount": [1]}
TRACED = ["open", "openat", "openat2", "connect", "bind", "sendto", "sendmsg", "socket", "execve",
          "execveat", "clone", "clone3", "fork", "vfork", "ptrace", "setuid", "setgid",
          *PATH_CALLS]
WRITING = re.compile(r"O_(WRONLY|RDWR|CREAT|TRUNC|APPEND|TMPFILE)")


class Effects:
    """What the processes of a trace did before they started another program. The call's arguments
    are as strace prints them."""

    def __init__(self, folder):
        self.changed, self.peers, self.programs = set(), set(), set()
        self._children = {}
        self._starts = {}
        traces = {int(name.rsplit(".", 1)[1]): os.path.join(folder, name)
                  for name in os.listdir(folder)}
        parent = {}
        calls = {}
        for process, path in traces.items():
            with open(path, errors="replace") as lines:
                calls[process] = [call for call in map(parse, lines) if call is not None]
            for name, _, result in calls[process]:
                if name in ("clone", "clone3", "fork", "vfork") and result.isdigit():
                    parent[int(result)] = process
        first = next(process for process in traces if process not in parent)
        # The children of a process that has started another program are not looked at.
        waiting, is_first = [first], True
        while waiting:
            process = waiting.pop()
            for name, arguments, result in calls.get(process, []):
                if name in ("clone", "clone3", "fork", "vfork") and result.isdigit():
                    waiting.append(int(result))
                elif name in ("execve", "execveat") and result == "0":
                    if is_first:
                        is_first = False
                        continue
                    self.programs.add(
                        program_of(text_of(arguments[0 if name == "execve" else 1])))
                    break
                else:
                    self._note(name, arguments, result)

    def _note(self, name, arguments, result):
        if name in ("ptrace", "setuid", "setgid"):
            self.programs.add(f"{name}({', '.join(arguments)})")
        elif name in ("connect", "bind", "sendto", "sendmsg"):
            if result.startswith("-1") and "EINPROGRESS" not in result:
                return
            address = re.search(r"\{sa_family=.*?\}(?=[,\s)]|$)", ", ".join(arguments))
            if address:
                self.peers.add(name + " " + address[0])
        elif result.startswith("-1"):
            return
        elif name in ("open", "openat", "openat2"):
            if WRITING.search(" ".join(arguments)):
                self.changed.add(path_of(arguments, 0 if name == "open" else 1))
        elif name in PATH_CALLS:
            for index in PATH_CALLS[name]:
                self.changed.add(path_of(arguments, index))


def parse(line):
    """The call's name, its arguments and its result. None for a line without a call."""
    match = re.match(r"(\w+)\((.*)\)\s+= (.*)$", line.rstrip("\n"))
    if match is None:
        check(line.startswith(("+++", "---")), "not understood: " + line)
        return None
    return match[1], arguments_of(match[2]), match[3]


def arguments_of(text):
    """Splits at the commas that are not within quotes or brackets."""
    arguments, depth, quoted, start, position = [], 0, False, 0, 0
    while position < len(text):
        character = text[position]
        if quoted:
            if character == "\\":
                position += 1
            elif character == '"':
                quoted = False
        elif character == '"':
            quoted = True
        elif character in "([{":
            depth += 1
        elif character in ")]}":
            depth -= 1
        elif character == "," and depth == 0:
            arguments.append(text[start:position].strip())
            start = position + 1
        position += 1
    return arguments + [text[start:].strip()]


def text_of(argument):
    check(argument.startswith('"') and argument.endswith('"'), "not a whole text: " + argument)
    return argument[1:-1]


def program_of(path):
    """The path without links to folders: where "/bin" is a link to "/usr/bin", the order of PATH
    decides by which of the two a program was found."""
    return os.path.join(os.path.realpath(os.path.dirname(path)), os.path.basename(path))


def path_of(arguments, index):
    """The path, with that of the directory that the argument before names."""
    path = text_of(arguments[index])
    if not path.startswith("/"):
        directory = re.search(r"<(/.*)>$", arguments[index - 1]) if index > 0 else None
        path = os.path.join(directory[1] if directory else os.getcwd(), path)
    return os.path.normpath(path)


def compare(what, found, allowed):
    """Each of what was found must fit to an allowed pattern, and each pattern to one of them."""
    patterns = [re.compile(pattern) for pattern in allowed]
    for text in sorted(found):
        check(any(pattern.fullmatch(text) for pattern in patterns), f"{what}: {text}")
    for pattern in patterns:
        check(any(pattern.fullmatch(text) for text in found),
              f"{what}: nothing fits to {pattern.pattern} any more")
    say(f"{what}: {len(found)}, all allowed")


class TracedAgent(Agent):
    """Runs orvel-scan under strace."""

    def __init__(self, bundle, environment):
        super().__init__(PROGRAMS, bundle)
        self._environment |= environment
        # The leak check stops its own process, which a traced one cannot do.
        self._environment["ASAN_OPTIONS"] = "detect_leaks=0"
        self.trace = None

    def command(self, arguments):
        self.trace = os.path.join(HOME, f"trace-{self._runs}")
        os.makedirs(self.trace)
        return ["strace", "-ff", "-qq", "-y", "-s", "4096", "-e", "signal=none",
                "-e", "trace=" + ",".join("?" + name for name in TRACED),
                "-o", os.path.join(self.trace, "process"), *super().command(arguments)]

    def effects(self, *arguments):
        output, _ = self.run(*arguments)
        return Effects(self.trace), output


def make_browser(path, service):
    """A browser without a window. It chooses the first account on the sign-in page and passes the
    page's redirection to the desktop's handler of the agent's addresses."""
    with open(path, "w") as file:
        file.write(f"""#!/usr/bin/python3
import glob, html, os, re, shlex, ssl, subprocess, sys, urllib.parse, urllib.request
context = ssl.create_default_context(cafile={service.authority!r})
opener = urllib.request.build_opener(
    urllib.request.ProxyHandler({{}}), urllib.request.HTTPSHandler(context=context),
    urllib.request.HTTPCookieProcessor())
opener.open({service.page_link!r}).close()
with opener.open(sys.argv[1]) as reply:
    page, address = reply.read().decode(), reply.url
challenge = re.search(r'name="challenge" value="([^"]*)"', page)[1]
choice = re.search(r'id="account-1" name="([^"]*)" value="([^"]*)"', page)
account = html.unescape(choice.expand(r"\\1=\\2"))
site = urllib.parse.urlsplit(address)
request = urllib.request.Request(
    f"{{site.scheme}}://{{site.netloc}}/link",
    (account + "&challenge=" + challenge).encode(),
    {{"Origin": f"{{site.scheme}}://{{site.netloc}}",
      "Content-Type": "application/x-www-form-urlencoded"}})
with opener.open(request) as reply:
    callback = html.unescape(re.search(r'href="(orvelagent:[^"]*)"', reply.read().decode())[1])
for entry in glob.glob(os.environ["XDG_DATA_HOME"] + "/applications/*.desktop"):
    with open(entry) as file:
        command = re.search(r"^Exec=(.*)$", file.read(), re.M)
    if command:
        sys.exit(subprocess.call(
            [callback if part == "%u" else part for part in shlex.split(command[1])]))
sys.exit("no handler")
""")
    os.chmod(path, 0o755)


def main():
    check("PRIVATE_SESSION" in os.environ, "run this under tests/support/private-session")
    service = Service(PROGRAMS)
    browser = os.path.join(HOME, "browser")
    make_browser(browser, service)
    temporary = os.path.join(HOME, "temporary")
    os.makedirs(temporary, mode=0o700)
    agent = TracedAgent(service.bundle, {"BROWSER": browser, "TMPDIR": temporary})
    port = urllib.parse.urlsplit(service.url).port
    bus = re.match(r"unix:path=([^,]+)", os.environ["DBUS_SESSION_BUS_ADDRESS"])[1]
    connections = [
        r"connect \{sa_family=AF_INET, sin_port=htons\(" + str(port) +
        r"\), sin_addr=inet_addr\(\"127\.0\.0\.1\"\)\}",
        r"connect \{sa_family=AF_UNIX, sun_path=\"" + re.escape(bus) + r"\"\}"]
    database = os.path.join(HOME, "chat.db")
    try:
        subprocess.run(
            [os.path.join(PROGRAMS, "make-sample-chatdb"), "--messages", "300", database],
            check=True, stdout=subprocess.DEVNULL)
        effects, output = agent.effects("--sign-in")
        check(output.startswith("Signed in as sample-1@"), output)
        applications = re.escape(os.path.join(os.environ["XDG_DATA_HOME"], "applications"))
        compare("paths changed by a sign-in", effects.changed, [
            # The output of the programs below.
            "/dev/null",
            # The handler of the agent's addresses.
            applications,
            applications + r"/app\.orvel\.OrvelAgent\.SignIn\.desktop"])
        compare("programs of a sign-in", effects.programs, [
            "/usr/bin/update-desktop-database", "/usr/bin/xdg-mime", "/usr/bin/xdg-open"])
        # The address that the browser opens.
        loopback = (r"bind \{sa_family=AF_INET, sin_port=htons\(0\), "
                    r"sin_addr=inet_addr\(\"127\.0\.0\.1\"\)\}")
        # Asks the kernel which account has connected there.
        kernel = r"sendmsg \{sa_family=AF_NETLINK, nl_pid=0, nl_groups=00000000\}"
        compare("connections of a sign-in", effects.peers, [*connections, loopback, kernel])

        effects, output = agent.effects(
            "--source", database, "--scope", "allThreads", "--address-book", "none",
            "--backfill-pause", "0", "--state", STATE, "--json")
        check(json.loads(output)["uploaded"] > 0, output)
        copy = re.escape(temporary) + "/tavrin-chatdb-" + UUID
        compare("paths changed by a scan", effects.changed, [
            copy, copy + r"/chat\.db", copy + r"/chat\.db-wal", copy + r"/chat\.db-shm",
            re.escape(AGENT_FILES),
            re.escape(STATE), re.escape(STATE) + r"\.[A-Za-z]{6}", re.escape(STATE) + r"\.lock",
            re.escape(STATE) + r"\.inuse"])
        compare("programs of a scan", effects.programs, [])
        compare("connections of a scan", effects.peers, connections)
        check(os.listdir(temporary) == [], f"left behind: {os.listdir(temporary)}")
    except BaseException:
        print(agent.last_log(), flush=True)
        raise
    finally:
        service.stop()


if __name__ == "__main__":
    main()
