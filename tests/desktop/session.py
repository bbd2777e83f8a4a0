# SPDX-License-Identifier: Apache-2.0
"""Common parts of the desktop tests."""

import glob
import os
import plistlib
import re
import signal
import subprocess
import time

HOME = os.environ["HOME"]
AGENT_FILES = os.path.join(HOME, "agent")
LIMIT = 60
# A sample is 50 ms. A process counts as asleep after this many samples without activity.
SAMPLES_ASLEEP = 4
# A process that never sleeps in this many samples counts as busy.
SAMPLES_BUSY = 400

started = time.monotonic()


def say(text):
    print(f"{time.monotonic() - started:6.1f} s  {text}", flush=True)


def check(condition, text):
    if not condition:
        raise AssertionError(text)


def wait_for(what, condition, process=None):
    """Polls until the condition holds. Fails early if the process exits. Its pauses are waits for a
    process, not sleeps."""
    pause = subprocess.Popen(["tail", "-f", "/dev/null"]) if process is None else process
    try:
        deadline = time.monotonic() + LIMIT
        while True:
            value = condition()
            if value:
                return value
            check(time.monotonic() < deadline, f"timed out waiting for {what}")
            try:
                pause.wait(timeout=0.05)
                check(process is None, f"{what}: the program exited with {pause.returncode}")
            except subprocess.TimeoutExpired:
                pass
    finally:
        if process is None:
            pause.kill()
            pause.wait()


def end(process):
    """Terminates the process, and kills it if that takes too long."""
    process.terminate()
    try:
        process.wait(timeout=LIMIT)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def send_together(process, *numbers):
    """Delivers all signals at once, by stopping the process meanwhile."""
    process.send_signal(signal.SIGSTOP)
    wait_for("the process to stop", lambda: os.waitid(
        os.P_PID, process.pid, os.WSTOPPED | os.WNOHANG | os.WNOWAIT))
    for number in numbers:
        process.send_signal(number)
    process.send_signal(signal.SIGCONT)


def command_lines():
    """The command lines of all processes, as every account can read them."""
    lines = []
    for path in glob.glob("/proc/[0-9]*/cmdline"):
        try:
            with open(path, "rb") as file:
                lines.append(file.read().replace(b"\0", b" ").decode(errors="replace"))
        except OSError:
            # The process has ended.
            pass
    return "\n".join(lines)


def make_bundle_without_service(path):
    """A bundle whose service is unreachable, for an agent that stays signed out."""
    os.makedirs(path)
    with open(os.path.join(path, "Info.plist"), "wb") as file:
        plistlib.dump({
            "CFBundleIdentifier": "app.orvel.OrvelAgent",
            "CFBundleDisplayName": "Orvel Agent",
            "CFBundleShortVersionString": "1.0",
            "CFBundleVersion": "1.0",
            "API_HOST": "127.0.0.1:1",
            "WEB_HOST": "127.0.0.1:1"}, file)


def waits(pid):
    """The number of voluntary context switches of each thread so far."""
    counts = {}
    for thread in os.listdir(f"/proc/{pid}/task"):
        try:
            with open(f"/proc/{pid}/task/{thread}/status") as file:
                status = file.read()
        except (FileNotFoundError, ProcessLookupError):
            # The thread has ended after it was listed.
            continue
        counts[thread] = int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status, re.M)[1])
    return counts


def waits_after_a_sample(process):
    try:
        process.wait(timeout=0.05)
    except subprocess.TimeoutExpired:
        pass
    return waits(process.pid)


def wake_ups(process):
    """Waits until the process sleeps. Then counts for ten seconds how often it wakes up, and the
    waits of all its threads. Activity without sleep in between counts as one wake-up, because on a
    busy machine threads wait for each other and for the display several times. The number of waits
    reveals a process that hardly sleeps."""
    before = waits(process.pid)
    for _ in range(SAMPLES_BUSY):
        now = waits_after_a_sample(process)
        if now == before:
            break
        before = now
    else:
        raise AssertionError(f"the process did not sleep in any of {SAMPLES_BUSY} samples")
    count, total, asleep = 0, 0, SAMPLES_ASLEEP
    for _ in range(200):
        now = waits_after_a_sample(process)
        is_awake = now != before
        count += is_awake and asleep >= SAMPLES_ASLEEP
        total += sum(number - before.get(thread, 0) for thread, number in now.items())
        asleep = 0 if is_awake else asleep + 1
        before = now
    return count, total


class Agent:
    """Runs orvel-scan and stores the output of each run in a file."""

    def __init__(self, programs, bundle=None):
        self._program = os.path.join(programs, "orvel-scan")
        self._runs = 0
        self._environment = dict(os.environ)
        if bundle is not None:
            self._environment["ORVEL_AGENT_BUNDLE"] = bundle
        for variable in ("https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "ORVEL_TOKEN"):
            self._environment.pop(variable, None)
        os.makedirs(AGENT_FILES)

    def command(self, arguments):
        return [self._program, "--verbose", *arguments]

    def start(self, *arguments):
        self._runs += 1
        self._output = os.path.join(AGENT_FILES, f"output-{self._runs}")
        self._errors = os.path.join(AGENT_FILES, f"log-{self._runs}")
        with open(self._output, "w") as output, open(self._errors, "w") as errors:
            return subprocess.Popen(
                self.command(arguments),
                stdout=output, stderr=errors, env=self._environment)

    def last_log(self):
        """The output of the last run so far."""
        with open(self._output) as output, open(self._errors) as errors:
            return output.read() + errors.read()

    def finish(self, process, status):
        process.wait(timeout=LIMIT)
        with open(self._output) as output, open(self._errors) as errors:
            text, log = output.read(), errors.read()
        check(process.returncode == status, f"status {process.returncode}:\n{text}{log}")
        return text, log

    def run(self, *arguments, status=0):
        return self.finish(self.start(*arguments), status)
