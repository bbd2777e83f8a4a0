#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of tools/dev/mutants: its tables, its copy of the tree, and its choice of tests."""

import contextlib
import io
import os
import sys
import tempfile
import unittest

from tool_testing import TreeTest, load_tool

mutants = load_tool("mutants")

FAULT = '[[fault]]\nfile = "core/Text.cpp"\nwhat = "the limit is one more"\n'


class TableTest(TreeTest):
    def problems(self, table, source="int limit = 5;\n"):
        self.write("core/Text.cpp", source)
        self.write("tools/dev/mutants.d/core.toml", table)
        return mutants.read_tables(self.root, ["core"])[1]

    def assert_problem(self, expected, table, **options):
        problems = self.problems(table, **options)
        self.assertEqual(len(problems), 1, problems)
        self.assertIn(expected, problems[0])

    def test_a_text_that_occurs_once_fits(self):
        self.assertEqual(self.problems(FAULT + 'old = "5"\nnew = "6"\n'), [])

    def test_a_text_that_does_not_occur_is_a_problem(self):
        self.assert_problem("occurs 0 times", FAULT + 'old = "7"\nnew = "6"\n')

    def test_a_text_that_occurs_twice_is_a_problem(self):
        self.assert_problem(
            "occurs 2 times", FAULT + 'old = "5"\nnew = "6"\n', source="int a = 5, b = 5;\n")

    def test_a_file_that_does_not_exist_is_a_problem(self):
        table = FAULT.replace("Text", "Missing") + 'old = "5"\nnew = "6"\n'
        self.assert_problem("no such file", table)

    def test_a_file_of_another_folder_is_a_problem(self):
        table = FAULT.replace("core/", "platform/") + 'old = "5"\nnew = "6"\n'
        self.assert_problem("not in core/", table)

    def test_equal_texts_are_a_problem(self):
        self.assert_problem("the same", FAULT + 'old = "5"\nnew = "5"\n')

    def test_a_missing_key_is_a_problem(self):
        self.assert_problem('"new" is missing', FAULT + 'old = "5"\n')

    def test_an_unknown_key_is_a_problem(self):
        self.assert_problem('"equal" is unknown', FAULT + 'old = "5"\nnew = "6"\nequal = "x"\n')

    def test_a_description_that_occurs_twice_is_a_problem(self):
        fault = FAULT + 'old = "5"\nnew = "6"\n'
        self.assert_problem("not the only one", fault + fault)

    def test_malformed_toml_is_a_problem(self):
        self.assert_problem("core.toml", "[[fault]\n")

    def test_a_missing_table_is_a_problem(self):
        _, problems = mutants.read_tables(self.root, ["core"])
        self.assertEqual(len(problems), 1)


class CopyTest(TreeTest):
    def setUp(self):
        super().setUp()
        copy = tempfile.TemporaryDirectory()
        self.addCleanup(copy.cleanup)
        self.copy = copy.name

    def test_copies_files_and_their_modes_but_no_builds(self):
        os.chmod(self.write("test", "#!/bin/sh\n"), 0o755)
        self.write("core/Text.cpp", "one")
        self.write("build/core/Text.o", "object")
        mutants.update_copy(self.root, self.copy)
        self.assertEqual(sorted(mutants.files_of(self.copy)), ["core/Text.cpp", "test"])
        self.assertFalse(os.path.exists(os.path.join(self.copy, "build")))
        self.assertTrue(os.access(os.path.join(self.copy, "test"), os.X_OK))

    def test_takes_a_fault_left_by_an_interrupted_run_back(self):
        self.write("core/Text.cpp", "right")
        mutants.update_copy(self.root, self.copy)
        there = os.path.join(self.copy, "core/Text.cpp")
        with open(there, "w", encoding="utf-8") as file:
            file.write("wrong")
        mutants.update_copy(self.root, self.copy)
        with open(there, encoding="utf-8") as file:
            self.assertEqual(file.read(), "right")

    def test_touches_no_file_that_is_the_same(self):
        self.write("core/Text.cpp", "same")
        mutants.update_copy(self.root, self.copy)
        there = os.path.join(self.copy, "core/Text.cpp")
        os.utime(there, (1, 1))
        mutants.update_copy(self.root, self.copy)
        self.assertEqual(os.stat(there).st_mtime, 1)

    def test_removes_what_the_tree_no_longer_has(self):
        old = self.write("core/Old.cpp", "old")
        mutants.update_copy(self.root, self.copy)
        os.remove(old)
        mutants.update_copy(self.root, self.copy)
        self.assertEqual(list(mutants.files_of(self.copy)), [])


class SuiteTest(TreeTest):
    def test_finds_the_suites_of_all_kinds_of_cases(self):
        self.write("tests/core/TextTest.cpp", "TEST(TextTest, A) {}\nTEST_F(DateTest, B) {}\n")
        self.write("tests/core/messages/PortTest.cpp",
                   "TEST_P(PortTest, A) {}\nTYPED_TEST(KindTest, B) {}\n")
        self.write("tests/service/OtherTest.cpp", "TEST(OtherTest, A) {}\n")
        self.assertEqual(
            set(mutants.suites_in(self.root, "tests/core")),
            {"TextTest", "DateTest", "PortTest", "KindTest"})

    def test_the_tests_of_the_fault_s_file_come_first(self):
        self.write("tests/core/SomeTest.cpp", "TEST(SomeTest, A) {}\n")
        self.write("tests/core/TextTest.cpp", "TEST(TextTest, A) {}\n")
        self.write("tests/core/UserTest.cpp", '#include "core/Text.h"\nTEST(UserTest, A) {}\n')
        headers = mutants.suites_in(self.root, "tests/core")
        tests = [("core_tests", ["SomeTest", "UserTest", "TextTest"])]
        self.assertEqual(
            mutants.nearest_first(tests, headers, "core/Text.cpp"),
            [("core_tests", ["TextTest"]), ("core_tests", ["UserTest"]),
             ("core_tests", ["SomeTest"])])

    def test_reads_the_time_of_the_longest_test(self):
        output = ("[       OK ] TextTest.Trims (12 ms)\n[  SKIPPED ] TextTest.Cuts (1500 ms)\n"
                  "[----------] 2 tests from TextTest (9000 ms total)\n")
        self.assertEqual(mutants.longest_test(output), 1.5)
        self.assertEqual(mutants.longest_test(""), 0)

    def test_reads_the_list_of_a_program(self):
        output = ("TextTest.\n  Trims\nEach/PortTest.\n  Opens/0  # GetParam() = 1\n"
                  "KindTest/0.  # TypeParam = int\n  Grows\n")
        suites = mutants.listed_suites(output)
        self.assertEqual(suites, ["TextTest", "Each/PortTest", "KindTest/0"])
        self.assertEqual(
            [mutants.plain_name(suite) for suite in suites], ["TextTest", "PortTest", "KindTest"])


def fault(what="the limit is one more", **more):
    entry = {"file": "core/Text.cpp", "what": what, "old": "5", "new": "6", **more}
    return mutants.Fault("core", entry)


class JudgementTest(TreeTest):
    """The judgement of a fault, with scripted results of building and testing."""

    def judge(self, build, suites):
        worker = object.__new__(mutants.Worker)
        worker.tree = self.root
        worker.tests = {"core": [("core_tests", ["DateTest", "TextTest"])]}
        worker.headers = {"core": {"DateTest": set(), "TextTest": set()}}
        worker.longest = {"core": 1}
        self.planted = []
        self.run = []

        def build_folder(_):
            with open(os.path.join(self.root, "core/Text.cpp"), encoding="utf-8") as file:
                self.planted.append(file.read())
            return build

        def run_suites(_, program, names, limit):
            self.run.append(names)
            return suites[names[0]]

        worker.build = build_folder
        worker.run_suites = run_suites
        path = self.write("core/Text.cpp", "int limit = 5;\n")
        result, _ = worker.judge(fault())
        with open(path, encoding="utf-8") as file:
            self.assertEqual(file.read(), "int limit = 5;\n")
        self.assertEqual(self.planted, ["int limit = 6;\n"])
        return result

    def test_a_fault_that_no_test_notices_survives(self):
        passed = (0, "")
        self.assertEqual(
            self.judge((0, ""), {"TextTest": passed, "DateTest": passed}), "survived")
        self.assertEqual(self.run, [["TextTest"], ["DateTest"]])

    def test_the_first_failure_kills_a_fault(self):
        self.assertEqual(self.judge((0, ""), {"TextTest": (1, "")}), "killed")
        self.assertEqual(self.run, [["TextTest"]])

    def test_a_hang_kills_a_fault(self):
        self.assertEqual(self.judge((0, ""), {"TextTest": (None, "")}), "killed")

    def test_a_crash_kills_a_fault(self):
        self.assertEqual(self.judge((0, ""), {"TextTest": (-6, "")}), "killed")

    def test_a_fault_that_does_not_compile_is_not_killed(self):
        self.assertEqual(self.judge((1, "Text.cpp:5: error: no"), {}), "not compiled")


class WaitTest(TreeTest):
    def run_program(self, program, limit):
        worker = object.__new__(mutants.Worker)
        worker.tree = self.root
        worker.log = os.path.join(self.root, "log")
        return worker.run([sys.executable, "-u", "-c", program], limit)

    def test_returns_status_and_output(self):
        self.assertEqual(self.run_program("print('text'); exit(3)", 60), (3, "text\n"))

    def test_ends_a_program_that_prints_nothing_more(self):
        status, output = self.run_program("print('text'); import signal; signal.pause()", 0.1)
        self.assertEqual((status, output), (None, "text\n"))


class RunTest(unittest.TestCase):
    def test_a_tree_that_cannot_be_built_ends_the_run(self):
        class Worker:
            tests = {}
            tree = "tree"

            def configure(self):
                raise mutants.Unusable("Configuring failed.")

        run = mutants.Run([fault()], show=False)
        run.work(Worker())
        self.assertEqual(str(run.failure), "Configuring failed.")

    def test_faults_of_a_folder_follow_each_other(self):
        faults = [
            mutants.Fault(folder, {"file": file, "what": str(number), "old": "a", "new": "b"})
            for number, (folder, file) in enumerate(
                [("core", "core/A.cpp"), ("scan", "OrvelAgent/scan/B.cpp"),
                 ("core", "core/C.cpp"), ("scan", "OrvelAgent/scan/B.cpp"),
                 ("core", "core/C.cpp")])]
        run = mutants.Run(faults, show=False)
        groups = [run.groups.get_nowait() for _ in range(run.groups.qsize())]
        self.assertEqual(
            [[planted.what for planted in group] for group in groups],
            [["2", "4"], ["0"], ["1", "3"]])


class ResultTest(unittest.TestCase):
    def result(self, *results):
        faults = [planted for planted, _ in results]
        run = mutants.Run(faults, show=False)
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            for planted, result in results:
                run.record(planted, result, "", 0)
            status = run.print_result()
        return status, output.getvalue()

    def test_succeeds_if_all_faults_are_killed_or_equivalent(self):
        status, output = self.result(
            (fault(), "killed"), (fault("it is copied", equivalent="only slower"), "survived"))
        self.assertEqual(status, 0)
        self.assertEqual(output, "2 planted, 1 killed, 1 equivalent, 0 survived\n")

    def test_fails_if_a_fault_survives(self):
        status, output = self.result((fault(), "survived"))
        self.assertEqual(status, 1)
        self.assertIn("survived: core/Text.cpp: the limit is one more\n", output)
        self.assertIn("1 planted, 0 killed, 0 equivalent, 1 survived\n", output)

    def test_fails_if_a_fault_does_not_compile(self):
        status, output = self.result((fault(), "not compiled"))
        self.assertEqual(status, 1)
        self.assertIn("does not compile", output)

    def test_fails_if_an_equivalent_fault_is_killed(self):
        status, output = self.result((fault(equivalent="only slower"), "killed"))
        self.assertEqual(status, 1)
        self.assertIn("is not equivalent", output)


if __name__ == "__main__":
    sys.exit(unittest.main())
