#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of tools/dev/fuzz: its table, and what it reads from the output of other programs."""

import os
import tempfile
import unittest
import unittest.mock

from tool_testing import TreeTest, load_tool

fuzz = load_tool("fuzz")

ROW = '[Name]\nlongest = 64\nfiles = ["core/Name.cpp"]\n'
ENDED = """#2\tINITED cov: 5 ft: 6 corp: 1/1b
#1024\tpulse  cov: 9 ft: 12 corp: 4/9b
Done 4711 runs in 2 second(s)
stat::number_of_executed_units: 4711
stat::average_exec_per_sec:     2355
"""
CRASHED = """#2\tINITED cov: 5 ft: 6 corp: 1/1b
#512\tNEW    cov: 9 ft: 12 corp: 4/9b
==1== ERROR: libFuzzer: deadly signal
artifact_prefix='/x/'; Test unit written to /x/Name-crash-12ab
"""


def summary(count, covered):
    return {"count": count, "covered": covered}


class TargetsTest(TreeTest):
    def setUp(self):
        super().setUp()
        self.write("fuzz/targets.toml", ROW)
        self.write("fuzz/CMakeLists.txt", "orvel_add_fuzzer(Name LIBRARIES x)\n")
        self.write("fuzz/Name.cpp", "")
        self.write("fuzz/corpus/Name/seed", "")
        self.write("core/Name.cpp", "")

    def problems(self):
        return list(fuzz.problems(self.root))

    def test_a_table_that_fits_has_no_problem(self):
        self.assertEqual(self.problems(), [])

    def test_a_target_without_a_row_is_a_problem(self):
        self.write("fuzz/CMakeLists.txt", "orvel_add_fuzzer(Name)\n  orvel_add_fuzzer(Other)\n")
        self.assertEqual(self.problems(), ["Other: missing in fuzz/targets.toml"])

    def test_a_row_without_a_target_is_a_problem(self):
        self.write("fuzz/CMakeLists.txt", "")
        self.assertEqual(self.problems(), ["Name: missing in fuzz/CMakeLists.txt"])

    def test_a_missing_file_is_a_problem(self):
        os.remove(os.path.join(self.root, "core/Name.cpp"))
        self.assertEqual(self.problems(), ["Name: there is no file core/Name.cpp"])

    def test_a_missing_corpus_is_a_problem(self):
        os.remove(os.path.join(self.root, "fuzz/corpus/Name/seed"))
        self.assertEqual(self.problems(), ["Name: there is no corpus"])


class OutputTest(unittest.TestCase):
    def test_the_executions_are_those_of_the_statistics(self):
        self.assertEqual(fuzz.executions_in(ENDED), 4711)

    def test_without_statistics_the_last_line_counts(self):
        self.assertEqual(fuzz.executions_in(CRASHED), 512)
        self.assertEqual(fuzz.executions_in(""), 0)

    def test_findings_are_the_written_inputs(self):
        self.assertEqual(fuzz.artifacts_in(CRASHED), ["/x/Name-crash-12ab"])
        self.assertEqual(fuzz.artifacts_in(ENDED), [])

    def test_executions_add_up_over_runs(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "executions.json")
            fuzz.add_executions(path, {"A": fuzz.Result(5, 1, []), "B": fuzz.Result(1, 1, [])})
            sums = fuzz.add_executions(path, {"A": fuzz.Result(7, 1, [])})
            self.assertEqual(sums, {"A": 12, "B": 1})

    def test_a_number_of_runs_is_a_limit_of_one_target(self):
        target = fuzz.Target("Name", 64, [])
        with tempfile.TemporaryDirectory() as folder:
            words = fuzz.command(target, "-runs=5", 7, folder)
        self.assertIn("-runs=5", words)
        self.assertIn("-seed=7", words)
        with self.assertRaisesRegex(SystemExit, "one target"), \
                unittest.mock.patch("sys.argv", ["fuzz", "--runs", "5"]):
            fuzz.main()

    def test_coverage_is_that_of_the_targets_own_files(self):
        export = {"data": [{"files": [
            {"filename": "/tree/core/Name.cpp",
             "summary": {"lines": summary(8, 6), "branches": summary(0, 0)}},
            {"filename": "/tree/core/Other.cpp",
             "summary": {"lines": summary(100, 1), "branches": summary(2, 1)}}]}]}
        sums = fuzz.coverage_of(["core/Name.cpp"], export)
        self.assertEqual(fuzz.percentage(sums, "lines"), "75.0 %")
        self.assertEqual(fuzz.percentage(sums, "branches"), "-")


if __name__ == "__main__":
    unittest.main()
