# SPDX-License-Identifier: Apache-2.0
"""Runs the local service and controls it."""

import json
import os
import re
import ssl
import subprocess
import urllib.parse
import urllib.request

from session import HOME, LIMIT, check


class Service:
    def __init__(self, programs, *options):
        folder = os.path.join(HOME, "service")
        os.makedirs(folder, mode=0o700)
        self.bundle = os.path.join(folder, "bundle")
        self._token = "control-token-of-this-test"
        token_file = os.path.join(folder, "token")
        with open(token_file, "w") as file:
            file.write(self._token + "\n")
        self._log = open(os.path.join(folder, "log"), "w")
        self._process = subprocess.Popen(
            [os.path.join(programs, "orvel-local-service"), "--port", "0", "--control",
             "--store", os.path.join(folder, "records.sqlite"),
             "--cert-dir", os.path.join(folder, "certificates"),
             "--token-file", token_file, "--bundle-out", self.bundle, *options],
            stdout=subprocess.PIPE, stderr=self._log, text=True)
        ready = re.match(
            r"orvel-local-service ready at (\S+) \(certificate authority: (.+)\)",
            self._process.stdout.readline())
        check(ready, "the service did not start")
        self.url, self.authority = ready[1], ready[2]
        link = re.match(
            r"Open the pages with this link, which works once: (\S+)",
            self._process.stdout.readline())
        check(link, "the service printed no link to its pages")
        self.page_link = link[1]
        context = ssl.create_default_context(cafile=self.authority)
        self._opener = urllib.request.build_opener(
            urllib.request.ProxyHandler({}), urllib.request.HTTPSHandler(context=context),
            urllib.request.HTTPCookieProcessor())
        self._sees_pages = False

    def statistics(self):
        return self._control("stats")

    def page(self, path, form=None):
        """The text of a page, after sending the form that the page before had. Uses up the link to
        the pages."""
        if not self._sees_pages:
            self._opener.open(self.page_link, timeout=LIMIT).close()
            self._sees_pages = True
        data = None if form is None else urllib.parse.urlencode(form).encode()
        request = urllib.request.Request(self.url + path, data, {"Origin": self.url})
        with self._opener.open(request, timeout=LIMIT) as reply:
            return reply.read().decode()

    def script_fault(self, path, **fault):
        """Scripts a fault for the next request to that path."""
        self._control("faults", json.dumps({"path": path, **fault}).encode())

    def _control(self, name, body=None):
        request = urllib.request.Request(
            self.url + "/control/" + name, body, {
                "Authorization": "Bearer " + self._token, "Content-Type": "application/json"})
        with self._opener.open(request, timeout=LIMIT) as reply:
            return json.load(reply)["data"]

    def requests(self, path):
        return self.statistics()["requestsByPath"].get(path, 0)

    def stop(self):
        self._process.terminate()
        self._process.wait(timeout=LIMIT)
        self._process.stdout.close()
        self._log.close()
