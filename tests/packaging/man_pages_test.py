#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that manual pages format without warnings and give each option with its default.

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
# A default that is one number or a list of them.
HELP_DEFAULT = re.compile(r"(--[a-z-]+)[^()]*?\(default ([0-9.,]+)\)")
PAGE_DEFAULT = re.compile(r"[;,] ([0-9., and]+?)(?: seconds)? by default")


NUMBER = re.compile(r"[0-9]+(?:\.[0-9]+)?")


def page_of(program):
    return next(page for page in PAGES
                if os.path.basename(page) == os.path.basename(program) + ".1")


def entries(page):
    """The text of every option's entry, by option."""
    result = {}
    for entry in page.replace("\\-", "-").split("\n.TP\n")[1:]:
        option = OPTION.search(entry.partition("\n")[0])
        if option:
            result[option[0]] = entry
    return result


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
                with open(page_of(program), encoding="utf-8") as file:
                    described = file.read().replace("\\-", "-")
                self.assertEqual(
                    sorted(set(OPTION.findall(described)) - {"--help"}),
                    sorted(set(OPTION.findall(run(program, "--help").stdout)) - {"--help"}))

    def test_a_page_has_the_numbers_of_its_programs_defaults(self):
        compared = 0
        for program in PROGRAMS:
            with open(page_of(program), encoding="utf-8") as file:
                described = entries(file.read())
            for option, default in HELP_DEFAULT.findall(run(program, "--help").stdout):
                with self.subTest(option):
                    stated = PAGE_DEFAULT.search(described[option])
                    self.assertIsNotNone(stated, described[option])
                    self.assertEqual(NUMBER.findall(stated[1]), NUMBER.findall(default))
                    compared += 1
        self.assertGreater(compared, 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
