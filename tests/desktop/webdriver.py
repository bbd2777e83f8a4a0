# SPDX-License-Identifier: Apache-2.0
"""Controls a browser with WebDriver commands through chromedriver."""

import base64
import json
import os
import subprocess
import threading
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"


class WebDriverError(Exception):
    pass


ARGUMENTS = (
    "--no-sandbox",
    "--disable-gpu",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
    "--disable-dev-shm-usage",
    "--password-store=basic",
    # The local service has a self-made certificate.
    "--ignore-certificate-errors",
)


class Browser:
    """A browser with a separate profile. Like a user's browser, it opens a tab when started again
    with the same profile. `quit` ends it."""

    def __init__(self, profile, preferences):
        os.makedirs(os.path.join(profile, "Default"))
        with open(os.path.join(profile, "Default", "Preferences"), "w") as file:
            json.dump(preferences, file)
        self._log = open(profile + ".log", "w")
        # Not started by the driver: such a browser opens no tabs for later starts.
        self._browser = subprocess.Popen(
            ["chromium", *ARGUMENTS, f"--user-data-dir={profile}", "--remote-debugging-port=0",
             "about:blank"],
            stdout=self._log, stderr=subprocess.PIPE, text=True)
        address = None
        for line in self._browser.stderr:
            if line.startswith("DevTools listening on ws://"):
                address = line.split("/")[2]
                break
        if address is None:
            raise WebDriverError("the browser did not start")
        # Keep reading, because the browser would block on a full pipe.
        self._reader = threading.Thread(target=self._browser.stderr.read)
        self._reader.start()

        self._driver = subprocess.Popen(
            ["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
        port = None
        for line in self._driver.stdout:
            if "started successfully on port" in line:
                port = int(line.split("port")[1].strip().rstrip("."))
                break
        if port is None:
            raise WebDriverError("chromedriver did not start")
        self._base = f"http://127.0.0.1:{port}"
        # Local connections need no proxy.
        self._opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        options = {"goog:chromeOptions": {"debuggerAddress": address}}
        session = self._call("POST", "/session", {"capabilities": {"alwaysMatch": options}})
        self._base += "/session/" + session["sessionId"]

    def tabs(self):
        return self._call("GET", "/window/handles")

    def switch_to(self, tab):
        self._call("POST", "/window", {"handle": tab})

    def open(self, url):
        self._call("POST", "/url", {"url": url})

    def close_tab(self):
        self._call("DELETE", "/window")

    def find_tab(self, part):
        """Switches to a tab whose address contains the text. Returns whether there is one."""
        for tab in self.tabs():
            self.switch_to(tab)
            if part in self.url():
                return True
        return False

    def url(self):
        return self._call("GET", "/url")

    def has(self, selector):
        return bool(self._call(
            "POST", "/elements", {"using": "css selector", "value": selector}))

    def text(self, selector):
        return self._call("GET", f"/element/{self._find(selector)}/text")

    def click(self, selector):
        self._call("POST", f"/element/{self._find(selector)}/click", {})

    def screenshot(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self._call("GET", "/screenshot")))

    def quit(self):
        self._driver.terminate()
        self._driver.wait(timeout=30)
        self._driver.stdout.close()
        self._browser.terminate()
        self._browser.wait(timeout=30)
        self._reader.join()
        self._browser.stderr.close()
        self._log.close()

    def _find(self, selector):
        return self._call(
            "POST", "/element", {"using": "css selector", "value": selector})[ELEMENT]

    def _call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(
            self._base + path, data=data, method=method,
            headers={"Content-Type": "application/json"})
        try:
            with self._opener.open(request, timeout=60) as reply:
                return json.load(reply)["value"]
        except urllib.error.HTTPError as error:
            value = json.load(error)["value"]
            raise WebDriverError(f"{value['error']}: {value['message']}") from None


def allowing_scheme(url):
    """Preferences that let the site open the agent without a question."""
    return {"protocol_handler": {"allowed_origin_protocol_pairs": {url: {"orvelagent": True}}}}


def make_default(profile, environment_file):
    """Makes a browser with that profile the desktop's default. It opens addresses in a new tab of
    the browser that runs with the profile. Its environment is saved in the file."""
    script = profile + ".sh"
    with open(script, "w") as file:
        file.write(
            "#!/bin/sh\n"
            f'env >>"{environment_file}"\n'
            f'exec chromium {" ".join(ARGUMENTS)} '
            f'--user-data-dir="{profile}" "$@" >>"{profile}-starts.log" 2>&1\n')
    os.chmod(script, 0o755)
    entries = os.path.join(os.environ["XDG_DATA_HOME"], "applications")
    os.makedirs(entries, exist_ok=True)
    with open(os.path.join(entries, "test-browser.desktop"), "w") as file:
        file.write(
            "[Desktop Entry]\nType=Application\nName=Test browser\n"
            f"Exec={script} %u\nMimeType=x-scheme-handler/http;x-scheme-handler/https;\n")
    config = os.environ["XDG_CONFIG_HOME"]
    os.makedirs(config, exist_ok=True)
    with open(os.path.join(config, "mimeapps.list"), "w") as file:
        file.write(
            "[Default Applications]\n"
            "x-scheme-handler/http=test-browser.desktop\n"
            "x-scheme-handler/https=test-browser.desktop\n")
