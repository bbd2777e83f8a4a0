# SPDX-License-Identifier: Apache-2.0
"""What the tests of a whole desktop share."""

import os
import re
import signal
import subprocess
import time

HOME = os.environ["HOME"]
AGENT_FILES = os.path.join(HOME, "agent")
LIMIT = 60
# So many moments without a sign of life are sleep.
SLEEP = 4
# Something that sleeps at all does so within that many moments.
RESTLESS = 400

started = time.monotonic()


def say(text):
    print(f"{time.monotonic() - started:6.1f} s  {text}", flush=True)


def check(condition, text):
    if not condition:
        raise AssertionError(text)


def wait_for(what, condition, process=None):
    """Polls; the pauses are those of waiting for a process."""
    pause = subprocess.Popen(["tail", "-f", "/dev/null"]) if process is None else process
    try:
        deadline = time.monotonic() + LIMIT
        while True:
            value = condition()
            if value:
                return value
            check(time.monotonic() < deadline, f"waited in vain for {what}")
            try:
                pause.wait(timeout=0.05)
                check(process is None, f"{what}: the program ended with {pause.returncode}")
            except subprocess.TimeoutExpired:
                pass
    finally:
        if process is None:
            pause.kill()
            pause.wait()


def end(process):
    """Whatever it takes."""
    process.terminate()
    try:
        process.wait(timeout=LIMIT)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def send_together(process, *numbers):
    """All of the signals come at the same time, and have come when this returns."""
    process.send_signal(signal.SIGSTOP)
    wait_for("its stop", lambda: os.waitid(
        os.P_PID, process.pid, os.WSTOPPED | os.WNOHANG | os.WNOWAIT))
    for number in numbers:
        process.send_signal(number)
    process.send_signal(signal.SIGCONT)


def waits(pid):
    """How often each thread of a process has waited for something so far."""
    counts = {}
    for thread in os.listdir(f"/proc/{pid}/task"):
        try:
            with open(f"/proc/{pid}/task/{thread}/status") as file:
                status = file.read()
        except (FileNotFoundError, ProcessLookupError):
            # It has ended since it was listed.
            continue
        counts[thread] = int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status, re.M)[1])
    return counts


def waits_in_a_moment(process):
    try:
        process.wait(timeout=0.05)
    except subprocess.TimeoutExpired:
        pass
    return waits(process.pid)


def wake_ups(process):
    """How often a process that has fallen asleep wakes up in ten seconds, and how often its threads
    wait then. What a wake-up does takes a moment, the longer the busier the machine, in which
    several threads wait for each other and for the display: all of that is one. What hardly sleeps
    shows in the second number."""
    before = waits(process.pid)
    for _ in range(RESTLESS):
        now = waits_in_a_moment(process)
        if now == before:
            break
        before = now
    else:
        raise AssertionError(f"the process has not slept for any of {RESTLESS} moments")
    count, total, asleep = 0, 0, SLEEP
    for _ in range(200):
        now = waits_in_a_moment(process)
        is_awake = now != before
        count += is_awake and asleep >= SLEEP
        total += sum(number - before.get(thread, 0) for thread, number in now.items())
        asleep = 0 if is_awake else asleep + 1
        before = now
    return count, total


class Agent:
    """Runs of orvel-scan, each a process of its own, with their output kept as its log."""

    def __init__(self, programs, bundle=None):
        self._program = os.path.join(programs, "orvel-scan")
        self._runs = 0
        self._environment = dict(os.environ)
        if bundle is not None:
            self._environment["ORVEL_AGENT_BUNDLE"] = bundle
        for variable in ("https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "ORVEL_TOKEN"):
            self._environment.pop(variable, None)
        os.makedirs(AGENT_FILES)

    def start(self, *arguments):
        self._runs += 1
        self._output = os.path.join(AGENT_FILES, f"output-{self._runs}")
        self._errors = os.path.join(AGENT_FILES, f"log-{self._runs}")
        with open(self._output, "w") as output, open(self._errors, "w") as errors:
            return subprocess.Popen(
                [self._program, "--verbose", *arguments],
                stdout=output, stderr=errors, env=self._environment)

    def last_log(self):
        """What the last run has printed so far."""
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
