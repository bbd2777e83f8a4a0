#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Another account, the user "nobody", puts files where orvel-scan is going to write or read. Needs
root, which plays the user.

usage: planted_files_test.py PROGRAMS_DIRECTORY
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

PROGRAMS = None
IS_ROOT = os.geteuid() == 0
NOBODY = 65534
# A program that hangs must fail the test. The limit is no measure of speed.
LIMIT = 120


def as_attacker(action):
    """Runs the function in a child process as the other account."""
    process = os.fork()
    if process == 0:
        status = 1
        try:
            os.setgroups([])
            os.setgid(NOBODY)
            os.setuid(NOBODY)
            os.umask(0)
            action()
            status = 0
        finally:
            os._exit(status)
    _, status = os.waitpid(process, 0)
    if status != 0:
        raise AssertionError("the attacker failed")


def write(path, text):
    with open(path, "w") as file:
        file.write(text)


@unittest.skipUnless(IS_ROOT, "only root can act as another account")
class PlantedFilesTest(unittest.TestCase):
    def setUp(self):
        self.private = tempfile.mkdtemp(prefix="orvel-private-")
        self.shared = tempfile.mkdtemp(prefix="orvel-shared-")
        os.chmod(self.shared, 0o1777)
        self.database = os.path.join(self.private, "chat.db")
        subprocess.run([os.path.join(PROGRAMS, "make-sample-chatdb"), self.database], check=True,
                       stdout=subprocess.DEVNULL, timeout=LIMIT)

    def tearDown(self):
        shutil.rmtree(self.private)
        shutil.rmtree(self.shared)

    def scan(self, *options, program=None, state=None, preview=None, temporary=None):
        """A preview of all messages. Returns the finished process."""
        return subprocess.run(
            [program or os.path.join(PROGRAMS, "orvel-scan"), "--source", self.database,
             "--scope", "allThreads", "--address-book", "none",
             "--state", state or os.path.join(self.private, "state.conf"),
             "--preview", preview or os.path.join(self.private, "preview.jsonl"), *options],
            env={"HOME": self.private, "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8",
                 "TMPDIR": temporary or self.private},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            timeout=LIMIT)

    def assert_refused(self, result, sentence):
        print(result.stdout.strip(), flush=True)
        self.assertNotEqual(0, result.returncode)
        self.assertIn(sentence, result.stdout)

    def test_without_an_attack(self):
        result = self.scan()
        self.assertEqual(0, result.returncode, result.stdout)
        with open(os.path.join(self.private, "preview.jsonl")) as file:
            self.assertIn('"body":', file.read())

    def test_preview(self):
        planted = os.path.join(self.shared, "preview.jsonl")
        precious = os.path.join(self.private, "precious")
        write(precious, "precious")
        attacks = {
            "the file belongs to another user": lambda: write(planted, ""),
            "No such device or address": lambda: os.mkfifo(planted),
            # The reason depends on the kernel's own protection of links.
            "Could not write": lambda: os.symlink(precious, planted)}
        for sentence, plant in attacks.items():
            with self.subTest(sentence):
                as_attacker(plant)
                try:
                    self.assert_refused(self.scan(preview=planted), sentence)
                    if not os.path.islink(planted):
                        self.assertEqual(0, os.path.getsize(planted))
                finally:
                    os.unlink(planted)
        with open(precious) as file:
            self.assertEqual("precious", file.read())

    def test_progress(self):
        state = os.path.join(self.shared, "state.conf")
        as_attacker(lambda: write(state, ""))
        self.assert_refused(self.scan(state=state), "belongs to another user")

    def test_folder_of_the_private_copy(self):
        os.chmod(self.shared, 0o777)
        self.assert_refused(
            self.scan(temporary=self.shared), "Set TMPDIR to a folder of your own")
        self.assertEqual([], os.listdir(self.shared))

    def test_configuration_beside_the_program(self):
        os.mkdir(os.path.join(self.shared, "bin"))
        program = os.path.join(self.shared, "bin", "orvel-scan")
        shutil.copy(os.path.join(PROGRAMS, "orvel-scan"), program)
        with open(os.path.join(PROGRAMS, "..", "resources", "Info.plist")) as file:
            configuration = file.read()
        folder = os.path.join(self.shared, "share", "orvel-agent")

        def plant():
            os.makedirs(folder)
            write(os.path.join(folder, "Info.plist"), configuration)

        as_attacker(plant)
        self.assert_refused(self.scan(program=program), "Info.plist is not used")


if __name__ == "__main__":
    PROGRAMS = os.path.abspath(sys.argv.pop(1))
    if not os.path.isfile(os.path.join(PROGRAMS, "orvel-scan")):
        sys.exit("there is no orvel-scan in " + PROGRAMS)
    if not IS_ROOT:
        print("Not root: attacks as another account are skipped.", flush=True)
    unittest.main(verbosity=2)
