#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tests tools/dev/check-hardening with small programs that each lack one defence.

usage: check_hardening_test.py COMPILER CHECK-HARDENING PROGRAM…

The programs are those of the agent. They need not be hardened, but must have no rights of others.
"""

import os
import platform
import shutil
import struct
import subprocess
import sys
import unittest

from tool_testing import TreeTest, load

COMPILER, SCRIPT = sys.argv[1:3]
PROGRAMS = sys.argv[3:]

SOURCE = """
#include <stdio.h>
int main(int argc, char **argv) {
    char text[64];
    snprintf(text, sizeof text, "%s %d\\n", argv[0], argc);
    return fprintf(stdout, "%s %d\\n", text, argc) < 0;
}
"""
X86_64 = platform.machine() == "x86_64"
# The linker is named, because the tests of the segments need its options.
HARDENED = {
    "pie": ["-fPIE", "-pie"],
    "relro": ["-Wl,-z,relro"],
    "now": ["-Wl,-z,now"],
    "protector": ["-fstack-protector-strong"],
    "fortify": ["-O2", "-U_FORTIFY_SOURCE", "-D_FORTIFY_SOURCE=2"],
    "shadow": ["-fcf-protection=full", "-Wl,-z,shstk"] if X86_64 else [],
    "stack": ["-Wl,-z,noexecstack"],
    "linker": ["-fuse-ld=bfd"],
}
PF_X, PF_W = 1, 2
PT_LOAD = 1


class CheckHardeningTest(TreeTest):
    def compile(self, **changes):
        """A hardened program with these changes of its flags."""
        source = self.write("source.c", SOURCE)
        flags = [flag for part in {**HARDENED, **changes}.values() for flag in part]
        program = os.path.join(self.root, "program")
        subprocess.run([COMPILER, *flags, "-o", program, source], check=True)
        return program

    def check(self, *arguments):
        result = subprocess.run([sys.executable, "-B", SCRIPT, *arguments], capture_output=True,
                                text=True, check=False)
        self.assertEqual(result.stderr, "")
        return result.returncode, result.stdout

    def expect_only(self, problem, program):
        status, output = self.check(program)
        failed = [line for line in output.splitlines() if line.startswith("FAIL")]
        self.assertEqual(len(failed), 1, output)
        self.assertIn(problem, failed[0])
        self.assertEqual(status, 1)

    def test_a_hardened_program_is_accepted(self):
        program = self.compile()
        status, output = self.check(program)
        self.assertEqual(status, 0, output)
        self.assertEqual(output.count("\nok ") + output.startswith("ok "), 9, output)
        self.assertIn(f"ok    {program}: full RELRO\n", output)

    def test_each_missing_defence_is_named(self):
        cases = {
            "position-independent code": {"pie": ["-fno-PIE", "-no-pie"]},
            "full RELRO: no segment": {"relro": ["-Wl,-z,norelro"]},
            "full RELRO: functions are looked up late": {"now": ["-Wl,-z,lazy"]},
            "stack protector": {"protector": ["-fno-stack-protector"]},
            "fortified calls: calls without a check: fprintf": {
                "fortify": ["-O2", "-U_FORTIFY_SOURCE"]},
            "stack not executable": {"stack": ["-Wl,-z,execstack"]},
            "search path for libraries: libraries are also looked for in /opt/x": {
                "path": ["-Wl,-rpath,/opt/x"]},
            "looked for in /opt/y": {"path": ["-Wl,-rpath,/opt/y,--disable-new-dtags"]},
        }
        if X86_64:
            cases["shadow stack"] = {"shadow": ["-fcf-protection=none"]}
        for problem, changes in cases.items():
            with self.subTest(problem):
                self.expect_only(problem, self.compile(**changes))

    def test_a_segment_that_is_writable_and_executable_is_named(self):
        program = self.compile()
        with open(program, "r+b") as file:
            header = file.read(64)
            start, = struct.unpack_from("<Q", header, 32)
            size, count = struct.unpack_from("<HH", header, 54)
            for index in range(count):
                file.seek(start + index * size)
                kind, flags = struct.unpack("<II", file.read(8))
                if kind == PT_LOAD and flags & PF_W:
                    file.seek(start + index * size + 4)
                    file.write(struct.pack("<I", flags | PF_X))
        self.expect_only("no writable code: a segment is writable and executable", program)

    def test_rights_of_others_are_named(self):
        program = self.compile()
        os.chmod(program, 0o4755)
        self.expect_only("no rights of others: it runs as its owner or its group", program)
        os.chmod(program, 0o2755)
        self.expect_only("no rights of others: it runs as its owner or its group", program)
        os.chmod(program, 0o757)
        self.expect_only("no rights of others: every user may change it", program)

    def test_capabilities_are_named(self):
        program = self.compile()
        # Version 2 with CAP_NET_RAW.
        capability = struct.pack("<IIIII", 0x02000000, 1 << 13, 0, 0, 0)
        try:
            os.setxattr(program, "security.capability", capability)
        except OSError as error:
            self.skipTest(f"Only root can give capabilities: {error.strerror}.")
        self.expect_only("no rights of others: it has capabilities", program)

    def test_every_file_of_a_folder_is_checked(self):
        files = os.path.join(self.root, "files", "usr")
        os.makedirs(files)
        shutil.copy(self.compile(), files)
        entry = os.path.join(files, "entry.desktop")
        with open(entry, "w", encoding="utf-8") as file:
            file.write("[Desktop Entry]\n")
        os.symlink("/nonexistent", os.path.join(files, "link"))
        folder = os.path.join(self.root, "files")
        self.assertEqual(self.check("--files", folder)[0], 0)
        os.chmod(entry, 0o4644)
        status, output = self.check("--files", folder)
        self.assertEqual(status, 1)
        self.assertIn(f"FAIL  {entry}: no rights of others", output)
        os.remove(entry)
        shutil.copy(self.compile(stack=["-Wl,-z,execstack"]), files)
        self.assertEqual(self.check("--files", folder)[0], 1)
        os.remove(os.path.join(files, "program"))
        self.assertIn("contains no program", self.check("--files", folder)[1])

    def test_every_program_is_checked_even_after_a_problem(self):
        good = self.compile()
        status, output = self.check("/nonexistent", good, SCRIPT)
        self.assertEqual(status, 1)
        self.assertIn("FAIL  /nonexistent: could not be read", output)
        self.assertIn(f"ok    {good}: stack protector", output)
        self.assertIn(f"FAIL  {SCRIPT}: could not be read", output)

    def test_the_agents_programs_have_no_rights_of_others(self):
        self.assertTrue(PROGRAMS)
        for program in PROGRAMS:
            with self.subTest(program):
                self.assertIsNone(load(SCRIPT).extra_rights(program))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
