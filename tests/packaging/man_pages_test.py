#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that manual pages format without warnings and document every option of their program.

usage: man_pages_test.py PAGE… -- PROGRAM…
"""

import os
import re
import subprocess
import sys
import unittest

divider = sys.argv.index("--")
PAGES = sys.argv[1:divider]
PROGRAMS = sys.argv[divider + 1:]

OPTION = re.compile(r"(?<![\w-])--[a-z][a-z-]+")


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True)


class ManPagesTest(unittest.TestCase):
    def test_a_page_formats_without_warnings(self):
        for page in PAGES:
            with self.subTest(page):
                self.assertEqual(run("groff", "-man", "-Tutf8", "-ww", "-z", page).stderr, "")

    def test_every_program_has_a_page(self):
        names = [os.path.basename(program) + ".1" for program in PROGRAMS]
        self.assertEqual(sorted(names), sorted(os.path.basename(page) for page in PAGES))

    def test_a_page_has_the_options_of_its_program(self):
        for program in PROGRAMS:
            with self.subTest(program):
                page = next(page for page in PAGES
                            if os.path.basename(page) == os.path.basename(program) + ".1")
                with open(page, encoding="utf-8") as file:
                    described = file.read().replace("\\-", "-")
                self.assertEqual(
                    sorted(set(OPTION.findall(described)) - {"--help"}),
                    sorted(set(OPTION.findall(run(program, "--help").stdout)) - {"--help"}))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
