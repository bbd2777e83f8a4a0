#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Attacks a user of the AppImage: another user creates the mount point again, with a program. Also
checks that an AppImage that was extracted is registered like any other folder.

usage: appimage_mount_test.py ORVEL-SCAN ORVEL-AGENT-CALLBACK RESOURCES

Runs in a private session. Signs in with a program in the mount point of an AppImage, which registers
the handler of the sign-in's addresses, ends the program, and removes the mount point as the end of
the AppImage does. Then another user puts a program there. Run as root, the test gives the program to
another user; else only the user's own files take part.
"""

import os
import select
import shutil
import subprocess
import sys
import tempfile
import unittest

SCAN, CALLBACK, RESOURCES = sys.argv[1:4]
LIMIT = 30
URL = "orvelagent://callback?code=secret"
ENTRY = os.path.join(os.environ.get("XDG_DATA_HOME", os.path.join(os.environ["HOME"], ".local/share")),
                     "applications", "app.orvel.OrvelAgent.SignIn.desktop")
OTHER_USER = 65534


def write_program(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, 0o755)


class Mark:
    """A pipe that a program writes to."""

    def __init__(self, path):
        self.path = path
        os.mkfifo(path)
        # For writing too, so that opening does not wait.
        self.descriptor = os.open(path, os.O_RDWR)

    def wait(self):
        """What the program writes, or None if it writes nothing in time."""
        ready, _, _ = select.select([self.descriptor], [], [], LIMIT)
        return os.read(self.descriptor, 4096).decode() if ready else None

    def close(self):
        os.close(self.descriptor)


class AppImageMountTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.mount = os.path.join(self.folder, ".mount_OrvelA")
        self.image = os.path.join(self.folder, "Orvel Agent.AppImage")
        self.own = self.mark("own")
        self.browser = self.mark("browser")
        self.theirs = os.path.join(self.folder, "theirs")
        write_program(self.image, f'#!/bin/sh\nprintf %s "$1" >"{self.own.path}"\n')

    def mark(self, name):
        mark = Mark(os.path.join(self.folder, name))
        self.addCleanup(mark.close)
        return mark

    def sign_in(self, folder=None, image=None):
        """Starts a sign-in from the mount point, and ends it when the browser has opened."""
        folder = folder or self.mount
        programs = os.path.join(folder, "usr", "bin")
        os.makedirs(programs)
        shutil.copy(SCAN, programs)
        shutil.copy(CALLBACK, programs)
        shutil.copytree(RESOURCES, os.path.join(folder, "usr", "share", "orvel-agent"))
        desktop = os.path.join(self.folder, "desktop")
        write_program(os.path.join(desktop, "xdg-open"),
                      f'#!/bin/sh\necho opened >"{self.browser.path}"\n')
        environment = {**os.environ, "APPDIR": folder,
                       "PATH": desktop + os.pathsep + os.environ["PATH"]}
        environment.pop("APPIMAGE", None)
        if image:
            environment["APPIMAGE"] = image
        with open(os.path.join(self.folder, "log"), "w+", encoding="utf-8") as log:
            process = subprocess.Popen([os.path.join(programs, os.path.basename(SCAN)), "--sign-in"],
                                       stdin=subprocess.DEVNULL, stdout=log,
                                       stderr=subprocess.STDOUT, env=environment)
            has_opened = self.browser.wait() is not None
            process.terminate()
            process.wait(timeout=LIMIT)
            log.seek(0)
            self.assertTrue(has_opened, log.read())

    def sign_in_and_unmount(self):
        self.sign_in(image=self.image)
        shutil.rmtree(self.mount)

    def create_mount_again(self):
        program = os.path.join(self.mount, "usr", "bin", os.path.basename(CALLBACK))
        write_program(program, f'#!/bin/sh\ntouch "{self.theirs}"\n')
        if os.geteuid() == 0:
            for parent, _, files in os.walk(self.mount):
                for path in [parent, *(os.path.join(parent, name) for name in files)]:
                    os.chown(path, OTHER_USER, OTHER_USER)

    def test_the_program_of_another_user_is_not_started(self):
        self.sign_in_and_unmount()
        with open(ENTRY, encoding="utf-8") as file:
            entry = file.read()
        self.assertNotIn(".mount_", entry)
        self.assertIn(f"\nTryExec={self.image}\n", entry)
        self.create_mount_again()
        subprocess.run(["gio", "launch", ENTRY, URL], check=True, timeout=LIMIT)
        received = self.own.wait()
        self.assertFalse(os.path.exists(self.theirs), "the other user's program was started")
        self.assertEqual(received, URL)

    def test_an_entry_that_names_the_mount_point_is_replaced(self):
        program = os.path.join(self.mount, "usr", "bin", os.path.basename(CALLBACK))
        os.makedirs(os.path.dirname(ENTRY), exist_ok=True)
        with open(ENTRY, "w", encoding="utf-8") as file:
            file.write("[Desktop Entry]\nType=Application\nName=Orvel Agent\n"
                       f"TryExec={program}\nExec={program} %u\nNoDisplay=true\n"
                       "MimeType=x-scheme-handler/orvelagent;\n")
        self.sign_in_and_unmount()
        self.create_mount_again()
        subprocess.run(["gio", "launch", ENTRY, URL], check=True, timeout=LIMIT)
        received = self.own.wait()
        self.assertFalse(os.path.exists(self.theirs), "the other user's program was started")
        self.assertEqual(received, URL)

    def test_an_extracted_image_is_registered_as_a_folder(self):
        # Its start script sets APPDIR, but there is no file for APPIMAGE.
        folder = os.path.join(self.folder, "squashfs-root")
        self.sign_in(folder)
        program = os.path.join(folder, "usr", "bin", os.path.basename(CALLBACK))
        with open(ENTRY, encoding="utf-8") as file:
            self.assertIn(f"\nTryExec={program}\nExec={program} %u\n", file.read())
        refused = subprocess.run(["gio", "launch", ENTRY, URL], stderr=subprocess.PIPE, text=True,
                                 timeout=LIMIT)
        self.assertIn("No Orvel Agent is waiting for a sign-in.", refused.stderr)
        os.remove(program)
        write_program(program, f'#!/bin/sh\nprintf %s "$1" >"{self.own.path}"\n')
        subprocess.run(["gio", "launch", ENTRY, URL], check=True, timeout=LIMIT)
        self.assertEqual(self.own.wait(), URL)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
