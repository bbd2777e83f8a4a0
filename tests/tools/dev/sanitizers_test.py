#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of tools/dev/check-threads and tools/dev/check-memory, with programs that only pretend."""

import contextlib
import importlib.machinery
import importlib.util
import io
import os
import tempfile
import tomllib
import unittest
import unittest.mock

ROOT = os.path.dirname(
    os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))


def load(name):
    loader = importlib.machinery.SourceFileLoader(
        name.replace("-", "_"), os.path.join(ROOT, "tools/dev", name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


threads = load("check-threads")
memory = load("check-memory")

PASSED = "echo '[==========] 3 tests from 1 test suite ran. (1 ms total)'\n"
# Writes a report where TSAN_OPTIONS says.
REPORT = """for option in $TSAN_OPTIONS; do
    case $option in log_path=*) log=${option#log_path=} ;; esac
done
printf '==================\\nWARNING: data race\\n%s\\nSUMMARY: data race x.cpp:7\\n\
==================\\n' >"$log.first"
"""


class ProgramsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def program(self, name, commands):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n" + commands)
        os.chmod(path, 0o700)
        return path


class ThreadsTest(ProgramsTest):
    SUITES = '''if [ "$1" = --gtest_list_tests ]; then
    printf 'Running main() from x.cpp\\nFirst.\\n  One\\nSecond/0.  # of int\\n  One\\n'
    exit
fi
'''

    def run_part(self, commands):
        self.program("some_tests", self.SUITES + commands)
        with contextlib.redirect_stdout(io.StringIO()):
            return threads.run_part(self.folder, ("some_tests", 1, 2, []), "*")

    def test_counts_the_cases_of_its_part(self):
        self.assertEqual(
            self.run_part(f'case $1 in --gtest_filter=Second/0.*-*) {PASSED.strip()};; esac'),
            (3, []))

    def test_equal_reports_of_several_processes_are_one_finding(self):
        self.assertEqual(
            self.run_part(REPORT + REPORT.replace("first", "second") + PASSED + "exit 66"),
            (3, ["some_tests: data race x.cpp:7"]))

    def test_a_report_of_a_program_that_was_started_is_a_finding_too(self):
        self.assertEqual(
            self.run_part(REPORT + PASSED), (3, ["some_tests: data race x.cpp:7"]))

    def test_a_failed_case_is_a_finding(self):
        self.assertEqual(
            self.run_part(f"echo '[  FAILED  ] ATest.Fails (1 ms)'\n{PASSED}exit 1"),
            (3, ["some_tests: ATest.Fails failed"]))

    def test_a_crash_is_a_finding(self):
        self.assertEqual(
            self.run_part("kill -SEGV $$"), (0, ["some_tests: Second/0. ended with status -11"]))

    def test_a_program_that_does_not_end_is_a_finding(self):
        with unittest.mock.patch.object(threads, "LIMIT", 0.2):
            self.assertEqual(
                self.run_part("exec sleep 100"),
                (0, ["some_tests: Second/0. did not end within 0.2 seconds"]))

    def test_the_line_of_the_campaign_builds_all_programs_and_runs_all_parts(self):
        with open(os.path.join(ROOT, "tools/dev/campaign.toml"), "rb") as file:
            line, = (each for each in tomllib.load(file)["line"] if each["name"] == "threads")
        self.assertEqual(
            sorted(line["build"]), sorted(name for name, *_ in threads.PROGRAMS))
        self.assertEqual(line["target"] % len(threads.parts(threads.PROGRAMS)), 0)


class Service:
    url = "https://127.0.0.1:1"
    authority = "authority.pem"
    token_file = "token"


class MemoryTest(ProgramsTest):
    # Writes its report where --log-file says.
    LOG = 'for argument; do case $argument in --log-file=*) log=${argument#*=} ;; esac; done\n'

    def scan(self, commands):
        self.program("valgrind", self.LOG + commands)
        path = self.folder + os.pathsep + os.environ["PATH"]
        with unittest.mock.patch.dict(os.environ, PATH=path), \
                contextlib.redirect_stdout(io.StringIO()):
            return memory.scan(self.folder, self.folder, Service)

    def test_returns_the_number_of_sent_records(self):
        self.assertEqual(self.scan(""": >"$log"; echo '{"uploaded": 7}'"""), 7)

    def test_a_report_is_a_finding_with_its_kind_and_our_function(self):
        with self.assertRaisesRegex(
                memory.Finding, "^valgrind: Invalid read of size 4 by 0x2: tavrin::read"):
            self.scan("printf '==7== Invalid read of size 4\\n==7==    at 0x1: memcpy\\n"
                      "==7==    by 0x2: tavrin::read (Read.cpp:7)\\n' >\"$log\"\nexit 99")

    def test_a_failed_scan_is_a_finding(self):
        with self.assertRaisesRegex(memory.Finding, "status 3: no network"):
            self.scan(': >"$log"; echo no network >&2; exit 3')


if __name__ == "__main__":
    unittest.main()
