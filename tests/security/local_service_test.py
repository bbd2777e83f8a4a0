#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Another account of the machine attacks a running local service. As root, the attacker is the user
"nobody". Otherwise it is this user without the secrets, and attacks on files are skipped.

usage: local_service_test.py PROGRAMS_DIRECTORY
"""

import contextlib
import http.client
import json
import os
import re
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import traceback
import unittest
import urllib.parse

PROGRAM = None
IS_ROOT = os.geteuid() == 0
NOBODY = 65534
TEXT = "Shall we meet at the harbour?"
ACCOUNT = "sample-1@orvel.example"
CHALLENGE = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"
INGEST = "/api/v1/context/ingest"
# A hanging service must fail the test. The limit is no measure of speed.
LIMIT = 120


def say_loot(attack, loot):
    print(f"{attack}: the attacker got {', '.join(loot) if loot else 'nothing'}", flush=True)


class Attacker:
    """Runs the function in a child process as the other account, from `start` to `finish`. The
    function gets a callback that reports that it is in position and waits for `finish`. It returns
    what it got, as JSON."""

    def __init__(self, attack):
        self._attack = attack

    def start(self):
        self._position, position = os.pipe()
        release, self._release = os.pipe()
        self._result, result = os.pipe()
        self._process = os.fork()
        if self._process == 0:
            status = 1
            try:
                os.close(self._release)
                if IS_ROOT:
                    os.setgroups([])
                    os.setgid(NOBODY)
                    os.setuid(NOBODY)

                def hold():
                    os.write(position, b"1")
                    os.read(release, 1)

                loot = json.dumps(self._attack(hold)).encode()
                with os.fdopen(result, "wb") as file:
                    file.write(loot)
                status = 0
            except BaseException:
                traceback.print_exc()
            finally:
                os._exit(status)
        for end in (position, release, result):
            os.close(end)
        return self

    def wait_for_position(self):
        if os.read(self._position, 1) != b"1":
            raise AssertionError("the attacker failed")

    def finish(self):
        os.close(self._release)
        with os.fdopen(self._result, "rb") as file:
            loot = file.read()
        os.close(self._position)
        _, status = os.waitpid(self._process, 0)
        if status != 0:
            raise AssertionError("the attacker failed")
        return json.loads(loot)


def attack(function):
    """What the function returns when the attacker calls it."""
    return Attacker(lambda hold: function()).start().finish()


class Service:
    """`port` is None if the service did not start."""

    def __init__(self, store, certificates, *options):
        self._process = subprocess.Popen(
            [PROGRAM, "--port", "0", "--exit-with-parent", "--store",
             os.path.join(store, "records.sqlite"), "--cert-dir", certificates, *options],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        ready = re.match(r"orvel-local-service ready at https://127.0.0.1:(\d+) ",
                         self._process.stdout.readline())
        self.port = int(ready[1]) if ready else None
        self.link = self._process.stdout.readline().split()[-1] if ready else None
        self.process_id = self._process.pid

    def new_link(self):
        self._process.send_signal(signal.SIGUSR1)
        return next(line.split()[-1] for line in self._process.stdout if "/open?key=" in line)

    def stop(self):
        self._process.terminate()
        self._process.communicate(timeout=LIMIT)


def unverified():
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    return context


def request(port, method, path, headers=None, body=None):
    """The status, the headers and the text of the reply."""
    connection = http.client.HTTPSConnection(
        "127.0.0.1", port, timeout=LIMIT, context=unverified())
    with contextlib.closing(connection):
        connection.request(method, path, body=body, headers=headers or {})
        reply = connection.getresponse()
        return reply.status, dict(reply.getheaders()), reply.read().decode(errors="replace")


def tls(port):
    plain = socket.create_connection(("127.0.0.1", port), timeout=LIMIT)
    try:
        return unverified().wrap_socket(plain, server_hostname="127.0.0.1")
    except OSError:
        plain.close()
        raise


def received(connection):
    data = b""
    with contextlib.suppress(OSError):
        while part := connection.recv(65536):
            data += part
    return data


def record(text):
    return {
        "guid": "a", "rowID": 7, "chatGUID": "iMessage;-;+14155550100",
        "participants": ["+14155550100"], "participantNames": {}, "participantEmails": {},
        "isFromMe": False, "sentAt": "2024-03-09T17:05:42Z", "isGroupThread": False,
        "hasAttachments": False, "associatedMessageType": 0, "bodyUnavailable": False,
        "body": text}


class LocalServiceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="orvel-security-")
        os.mkdir(os.path.join(cls.folder, "updates"))
        with open(os.path.join(cls.folder, "updates", "appcast.xml"), "w") as file:
            file.write("<rss/>")
        cls.service = Service(
            cls.folder, os.path.join(cls.folder, "certificates"), "--control", "--capture", os.path.join(cls.folder, "traffic"),
            "--bundle-out", os.path.join(cls.folder, "bundle"),
            "--updates", os.path.join(cls.folder, "updates"))
        cls.port = cls.service.port
        with open(os.path.join(cls.folder, "token")) as file:
            cls.token = file.read().strip()
        # The user opens the link and sends a record.
        path = cls.service.link.partition(str(cls.port))[2]
        _, headers, _ = request(cls.port, "GET", path)
        cls.used_path = path
        cls.cookie = headers["Set-Cookie"].partition(";")[0]
        status, _, _ = request(
            cls.port, "POST", INGEST,
            {"Authorization": "Bearer " + cls.token, "Content-Type": "application/json"},
            json.dumps({"source": "imessage", "client": "mac/1.2.3", "records": [record(TEXT)],
                        "watermark": 1}))
        assert status == 200, status

    @classmethod
    def tearDownClass(cls):
        cls.service.stop()
        shutil.rmtree(cls.folder)

    def sees_page(self):
        """Whether the user still gets an answer."""
        status, _, text = request(self.port, "GET", "/", {"Cookie": self.cookie})
        link, _, _ = request(
            self.port, "GET", "/link?challenge=" + CHALLENGE, {"Cookie": self.cookie})
        return status == 200 and TEXT in text and link == 200

    def loot_of(self, name, requests):
        """Sends the requests as the attacker. The loot is what should have been refused."""
        def send():
            loot = []
            for method, path, headers, body in requests:
                status, got, text = request(self.port, method, path, headers, body)
                secrets = [word for word in (TEXT, ACCOUNT, "orvelagent:", "Set-Cookie",
                                             "orvel-id-", "orvel-custom-", self.folder)
                           if word in text or word in got]
                if status < 400 or secrets:
                    loot.append(f"{status} for {method} {path[:60]} {secrets}")
            return loot

        loot = attack(send)
        say_loot(name, loot)
        return loot

    def test_the_user_is_served(self):
        self.assertTrue(self.sees_page())

    def test_pages(self):
        origin = f"https://127.0.0.1:{self.port}"
        form = {"Content-Type": "application/x-www-form-urlencoded", "Origin": origin,
                "Sec-Fetch-Site": "same-origin"}
        body = urllib.parse.urlencode({"challenge": CHALLENGE, "account": "sample-account-1"})
        name = f"__Host-orvel-{self.port}"
        link = "/link?challenge=" + CHALLENGE
        self.assertEqual([], self.loot_of("pages", [
            ("GET", "/", {}, None),
            ("HEAD", "/", {}, None),
            ("GET", "//", {}, None),
            ("GET", "/?key=" + CHALLENGE, {}, None),
            ("GET", "/%2e/", {}, None),
            ("GET", "/", {"Cookie": name + "="}, None),
            ("GET", "/", {"Cookie": name + "=orvel-browser-" + CHALLENGE}, None),
            ("GET", "/", {"Authorization": "Bearer x"}, None),
            ("GET", link, {}, None),
            ("POST", "/link", form, body),
            ("GET", self.used_path, {}, None),
            ("GET", "/open", {}, None),
            ("GET", "/open?key=", {}, None),
            ("GET", "/open?key=orvel-page-" + CHALLENGE, {}, None),
        ]))

    @unittest.skipUnless(IS_ROOT, "only root can act as another account")
    def test_cookie_and_link(self):
        """The browser sends its cookies to every port of 127.0.0.1, so another account can get
        them with a server of its own."""
        origin = f"https://127.0.0.1:{self.port}"
        form = {"Content-Type": "application/x-www-form-urlencoded", "Origin": origin,
                "Sec-Fetch-Site": "same-origin", "Cookie": self.cookie}
        body = urllib.parse.urlencode({"challenge": CHALLENGE, "account": "sample-account-1"})
        cookie = {"Cookie": self.cookie}
        unused = self.service.new_link().partition(str(self.port))[2]
        self.assertEqual([], self.loot_of("the browser's cookie and an unused link", [
            ("GET", "/", cookie, None),
            ("GET", "/link?challenge=" + CHALLENGE, cookie, None),
            ("POST", "/link", form, body),
            ("GET", unused, cookie, None),
            ("GET", unused, {}, None),
        ]))
        self.assertTrue(self.sees_page())
        status, headers, _ = request(self.port, "GET", unused)
        self.assertEqual((200, True), (status, "Set-Cookie" in headers))

    def test_interfaces(self):
        data = json.dumps({"source": "imessage", "client": "mac/1", "records": [], "watermark": 1})
        attempts = []
        for value in ("", "Bearer", "Bearer ", "Bearer any", "Bearer orvel-token-", "Basic any",
                      "Bearer orvel-id-" + CHALLENGE, "Bearer " + "a" * 9000):
            headers = {"Content-Type": "application/json"}
            if value:
                headers["Authorization"] = value
            attempts += [
                ("POST", INGEST, headers, data),
                ("POST", "/api/v1/context/handle-digest", headers, "{}"),
                ("POST", "/api/v1/context/diagnostics", headers, "{}"),
                ("GET", "/api/v1/profile", headers, None),
                ("GET", "/control/stats", headers, None),
                ("POST", "/control/faults", headers, '{"fault":"reset"}')]
        json_type = {"Content-Type": "application/json"}
        attempts += [
            ("POST", "/api/v1/auth/device/token", json_type,
             json.dumps({"code": "orvel-code-" + CHALLENGE, "codeVerifier": CHALLENGE})),
            ("POST", "/identity/v1/accounts:signInWithCustomToken?key=any", json_type,
             json.dumps({"token": "orvel-custom-" + CHALLENGE, "returnSecureToken": True})),
            ("POST", "/identity/v1/token?key=any",
             {"Content-Type": "application/x-www-form-urlencoded"},
             "grant_type=refresh_token&refresh_token=orvel-refresh-" + CHALLENGE)]
        self.assertEqual([], self.loot_of("interfaces", attempts))

    def test_other_hosts(self):
        hosts = ("evil.example", f"evil.example:{self.port}", "127.0.0.1.evil.example",
                 f"localhost:{self.port}@evil.example", "0.0.0.0", "[::1]", "")
        requests = [("GET", path, {"Host": host, "Cookie": self.cookie}, None)
                    for host in hosts for path in ("/", "/link?challenge=" + CHALLENGE)]
        self.assertEqual([], self.loot_of("other names (DNS rebinding)", requests))

    def test_paths(self):
        requests = [("GET", "/updates/" + path, {}, None) for path in (
            "..%2ftoken", "%2e%2e%2ftoken", "../token", "..%5ctoken", "%2e%2e", "..",
            "appcast.xml%00", "appcast.xml%2f..%2f..%2ftoken",
            os.path.join(self.folder, "token"))]
        requests += [("GET", "/../token", {}, None), ("GET", "/..%2ftoken", {}, None)]
        self.assertEqual([], self.loot_of("paths", requests))

    def test_smuggling(self):
        inner = b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n"
        attempts = {
            "both lengths": b"POST /link HTTP/1.1\r\nHost: localhost\r\nContent-Length: 4\r\n"
                            b"Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + inner,
            "two lengths": b"POST /link HTTP/1.1\r\nHost: localhost\r\nContent-Length: 4\r\n"
                           b"Content-Length: 5\r\n\r\n0\r\n\r\n" + inner,
            "two requests": inner + inner,
            "a folded line": b"GET / HTTP/1.1\r\nHost: localhost\r\nA: b\r\n c\r\n\r\n" + inner,
            "line feeds": b"GET / HTTP/1.1\nHost: localhost\n\n\r\n\r\n" + inner,
            "a space before a colon": b"GET / HTTP/1.1\r\nHost : localhost\r\n\r\n" + inner,
            "two hosts": b"GET / HTTP/1.1\r\nHost: localhost\r\nHost: evil\r\n\r\n" + inner,
        }

        def send():
            loot = []
            for name, data in attempts.items():
                with tls(self.port) as connection:
                    connection.sendall(data)
                    reply = received(connection)
                statuses = re.findall(rb"HTTP/1\.1 (\d+)", reply)
                if len(statuses) > 1 or any(status < b"400" for status in statuses):
                    loot.append(f"{name}: {statuses}")
            return loot

        loot = attack(send)
        say_loot("smuggled requests", loot)
        self.assertEqual([], loot)

    def test_silent_connections(self):
        def hold_silent(hold):
            with contextlib.ExitStack() as connections:
                for _ in range(500):
                    connections.enter_context(
                        socket.create_connection(("127.0.0.1", self.port), timeout=LIMIT))
                hold()
            return 500

        attacker = Attacker(hold_silent).start()
        attacker.wait_for_position()
        self.assertTrue(self.sees_page())
        self.assertEqual(500, attacker.finish())
        say_loot("500 silent connections", [])

    def test_slow_requests(self):
        beginnings = (
            b"G", b"GET / HTTP/1.1\r\nHost: localhost\r\nA: ",
            b"POST /link HTTP/1.1\r\nHost: localhost\r\nContent-Length: 60000\r\n\r\na",
            b"POST " + INGEST.encode() + b" HTTP/1.1\r\nHost: localhost\r\n"
            b"Authorization: Bearer wrong\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n")

        def hold_slow(hold):
            count = 0
            with contextlib.ExitStack() as connections:
                for index in range(300):
                    # The service closes the oldest connections for new ones.
                    with contextlib.suppress(OSError):
                        connection = connections.enter_context(tls(self.port))
                        connection.sendall(beginnings[index % len(beginnings)])
                        count += 1
                hold()
            return count

        attacker = Attacker(hold_slow).start()
        attacker.wait_for_position()
        self.assertTrue(self.sees_page())
        self.assertGreater(attacker.finish(), 0)
        say_loot("300 slow requests", [])

    def test_large_requests(self):
        large = b"a" * 1_000_000
        attempts = [
            (b"GET / HTTP/1.1\r\nA: " + large, b"431"),
            (b"GET / HTTP/1.1\r\n" + (b"A: " + b"a" * 1000 + b"\r\n") * 1000, b"431"),
            (b"GET / HTTP/1.1\r\n" + b"A:\r\n" * 10_000 + b"\r\n", b"431"),
            (b"GET /" + b"a" * 60_000 + b" HTTP/1.1\r\nHost: localhost\r\n\r\n", b"414"),
            (b"GET /" + large, b"431")]

        def send():
            loot = []
            for data, expected in attempts:
                with tls(self.port) as connection:
                    with contextlib.suppress(OSError):
                        connection.sendall(data)
                    reply = received(connection)
                if reply[9:12] != expected:
                    loot.append(f"{reply[:40]} for {data[:20]}")
            return loot

        loot = attack(send)
        say_loot("large requests", loot)
        self.assertEqual([], loot)
        self.assertTrue(self.sees_page())

    @unittest.skipUnless(IS_ROOT, "only root can act as another account")
    def test_files_and_process(self):
        names = [self.folder]
        for folder, folders, files in os.walk(self.folder):
            names += [os.path.join(folder, name) for name in folders + files]
        self.assertGreater(len(names), 10)
        # Also without the protection of the folder around them.
        os.chmod(self.folder, 0o755)
        os.chmod(os.path.join(self.folder, "updates"), 0o700)
        process = self.service.process_id

        def steal():
            loot = []
            for name in names[1:]:
                with contextlib.suppress(OSError):
                    os.listdir(name) if os.path.isdir(name) else open(name, "rb").close()
                    loot.append("read " + os.path.relpath(name, self.folder))
            for name in ("environ", "mem", "fd", "maps"):
                with contextlib.suppress(OSError):
                    path = f"/proc/{process}/{name}"
                    os.listdir(path) if name == "fd" else open(path, "rb").read(1)
                    loot.append(name)
            with open(f"/proc/{process}/cmdline", "rb") as file:
                if self.token.encode() in file.read():
                    loot.append("the token in the command line")
            for number in (signal.SIGUSR1, signal.SIGTERM):
                with contextlib.suppress(OSError):
                    os.kill(process, number)
                    loot.append(f"signal {number}")
            return loot

        loot = attack(steal)
        os.chmod(self.folder, 0o700)
        say_loot("files and process", loot)
        self.assertEqual([], loot)

    def test_core_dumps(self):
        with open(f"/proc/{self.service.process_id}/limits") as file:
            soft, hard = next(line for line in file if line.startswith("Max core")).split()[4:6]
        # At 0 the kernel would still pass a dump to a program. A limit of 0 for the whole session
        # cannot be raised.
        self.assertTrue(soft == "1" or hard == "0", f"{soft} of {hard}")

    @unittest.skipUnless(IS_ROOT, "only root can act as another account")
    def test_planted_files(self):
        loot = []
        for name in ("records.sqlite", "records.sqlite-journal", "token", "certificates", "traffic",
                     "token.new"):
            loot += self.plant(name)
        say_loot("planted files in a shared folder", loot)
        self.assertEqual([], loot)

    def plant(self, name):
        """Lets the attacker put a file or folder, and then a link, where the service would create
        its own in a folder like /tmp."""
        loot = []
        with tempfile.TemporaryDirectory(prefix="orvel-shared-") as shared, \
                tempfile.TemporaryDirectory(prefix="orvel-private-") as private:
            os.chmod(shared, 0o1777)
            planted = os.path.join(shared, name)
            precious = os.path.join(private, "precious")
            with open(precious, "w") as file:
                file.write("precious")

            def put_folder():
                os.mkdir(planted)
                os.chmod(planted, 0o777)

            def put_file():
                with open(planted, "w") as file:
                    os.fchmod(file.fileno(), 0o666)

            def put_link():
                os.symlink(precious, planted)

            for put in (put_folder if name == "certificates" else put_file, put_link):
                attack(put)
                store = private if name in ("certificates", "traffic") else shared
                certificates = planted if name == "certificates" else os.path.join(
                    private, "certificates")
                options = ["--capture", planted] if name == "traffic" else []
                service = Service(store, certificates, *options)
                if service.port is not None:
                    loot.append(f"a service that uses {name} after {put.__name__}")
                service.stop()
                if put == put_file and os.stat(planted).st_size > 0:
                    loot.append("the content of " + name)
                if put == put_folder:
                    loot += [f"{name}/{entry}" for entry in os.listdir(planted)]
                    shutil.rmtree(planted)
                else:
                    os.unlink(planted)
            with open(precious) as file:
                if file.read() != "precious":
                    loot.append(f"a change through the link {name}")
        return loot


if __name__ == "__main__":
    PROGRAM = os.path.join(os.path.abspath(sys.argv.pop(1)), "orvel-local-service")
    if not os.path.isfile(PROGRAM):
        sys.exit("there is no " + PROGRAM)
    if not IS_ROOT:
        print("Not root: attacks on files as another account are skipped.", flush=True)
    unittest.main(verbosity=2)
