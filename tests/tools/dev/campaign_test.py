#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of tools/dev/campaign: its table, totals, sharing of time, and document."""

import contextlib
import io
import os
import subprocess
import sys
import threading
import unittest

from tool_testing import ROOT, TreeTest, load_tool

campaign = load_tool("campaign")


def line(name="walks", **more):
    return campaign.Line({
        "name": name, "what": "Walks", "unit": "walks", "target": 100,
        "command": ["walk", "{seed}", "{units}"], **more})


class FolderTest(TreeTest):
    def totals(self):
        return campaign.Totals(os.path.join(self.root, "totals.json"))


class TableTest(FolderTest):
    ENTRY = '[[line]]\nname = "a"\nwhat = "A"\nunit = "units"\ntarget = 5\ncommand = ["x"]\n'

    def read(self, text):
        self.write(campaign.TABLE, text)
        return campaign.read_lines(self.root)

    def test_the_table_of_the_tree_can_be_read(self):
        self.assertGreater(len(campaign.read_lines()), 0)

    def test_reads_a_line(self):
        read, = self.read(self.ENTRY)
        self.assertEqual((read.name, read.target, read.preset), ("a", 5, "sanitize"))

    def test_refuses_malformed_lines(self):
        for text in ("[[line]\n", '[[line]]\nname = "a"\n', self.ENTRY + "unknown = 1\n",
                     self.ENTRY.replace("5", '"5"'), self.ENTRY + 'first = "1"\n',
                     self.ENTRY + self.ENTRY):
            with self.subTest(text), self.assertRaises(campaign.Unusable):
                self.read(text)

    def test_a_name_that_is_in_no_line_is_refused(self):
        lines = self.read(self.ENTRY)
        self.assertEqual(campaign.chosen_lines(lines, None), lines)
        self.assertEqual(campaign.chosen_lines(lines, ["a"]), lines)
        with self.assertRaises(campaign.Unusable):
            campaign.chosen_lines(lines, ["b"])

    def test_fills_seed_and_units_in(self):
        walk = line(environment={"FIRST": "{seed}"})
        self.assertEqual(walk.arguments(7, 3), ["walk", "7", "3"])
        self.assertEqual(walk.variables(7, 3)["FIRST"], "7")
        self.assertEqual(
            walk.repetition(7),
            "FIRST=7 ORVEL_CAMPAIGN_SEED=7 ORVEL_CAMPAIGN_UNITS=1 walk 7 1")

    def test_lists_each_target_once_for_its_preset(self):
        lines = [line("a", build=["x", "y"]), line("b", build=["x"]),
                 line("c", build=["z"], preset="fuzz")]
        self.assertEqual(
            campaign.targets_by_preset(lines), {"sanitize": ["x", "y"], "fuzz": ["z"]})


class OutputTest(unittest.TestCase):
    def evaluate(self, output, status=0, is_interrupted=False, **more):
        result = campaign.evaluate(line(**more), 5, output, status, 1, is_interrupted)
        return result.units, result.next_seed, result.findings

    def test_counts_units_and_seeds(self):
        output = "campaign: seed 5 after 0 units\ncampaign: seed 6 after 8 units\n" \
                 "text\ncampaign: 2 seeds, 16 units, 0 findings\n"
        self.assertEqual(self.evaluate(output), (16, 7, []))

    def test_lists_findings(self):
        output = "campaign: seed 5 after 0 units\ncampaign: finding of seed 5: torn: x\n" \
                 "campaign: 1 seed, 1 unit, 1 finding\n"
        self.assertEqual(self.evaluate(output, 1), (1, 6, [(5, "torn: x")]))

    def test_a_failure_without_a_finding_is_one(self):
        output = "campaign: 1 seed, 1 unit, 0 findings\n"
        self.assertEqual(
            self.evaluate(output, 1), (1, 6, [(5, "the program ended with status 1")]))

    def test_a_crash_is_a_finding_of_the_seed_that_ran(self):
        output = "campaign: seed 5 after 0 units\ncampaign: seed 6 after 8 units\n"
        self.assertEqual(
            self.evaluate(output, -11), (8, 7, [(6, "the program was ended by signal 11")]))

    def test_a_crash_before_the_first_seed_is_a_finding(self):
        self.assertEqual(
            self.evaluate("", 2), (0, 6, [(5, "the program ended with status 2")]))

    def test_a_program_that_does_not_end_is_a_finding(self):
        (_, text), = self.evaluate("campaign: seed 5 after 0 units\n", None)[2]
        self.assertIn("did not end", text)

    def test_an_interruption_keeps_the_finished_seeds(self):
        output = "campaign: seed 5 after 0 units\ncampaign: seed 6 after 8 units\n"
        self.assertEqual(self.evaluate(output, -15, is_interrupted=True), (8, 6, []))
        self.assertEqual(self.evaluate("", -15, is_interrupted=True), (0, 5, []))

    def test_counts_with_a_pattern(self):
        more = {"counted": r"^Done (\d+) runs"}
        self.assertEqual(self.evaluate("Done 900 runs in 3 s\n", **more), (900, 6, []))
        self.assertEqual(
            self.evaluate("Done 900 runs in 3 s\n", 77, **more),
            (900, 6, [(5, "the program ended with status 77")]))
        self.assertEqual(self.evaluate("", -15, is_interrupted=True, **more), (0, 6, []))


class RunnerTest(FolderTest):
    def run_program(self, program, **more):
        with_units = line(command=[sys.executable, "-u", "-c", program])
        return campaign.Runner(self.root, **more).run(with_units, 3, 2)

    def test_passes_seed_and_units(self):
        result = self.run_program(
            "import os\nprint('campaign: 1 seed,', os.environ['ORVEL_CAMPAIGN_UNITS'] + "
            "os.environ['ORVEL_CAMPAIGN_SEED'], 'units, 0 findings')")
        self.assertEqual((result.units, result.findings), (23, []))

    def test_a_program_that_does_not_end_is_ended(self):
        result = self.run_program("import signal; signal.pause()", limit=0.2)
        self.assertIn("did not end", result.findings[0][1])

    def test_a_program_that_runs_nothing_is_a_finding(self):
        result = self.run_program("print('campaign: 0 seeds, 0 units, 0 findings')")
        self.assertEqual(result.findings, [(3, "the program ran no unit")])

    def test_keeps_the_output_only_with_a_finding(self):
        self.run_program("print('campaign: 1 seed, 1 unit, 0 findings')")
        self.assertEqual(os.listdir(os.path.join(self.root, campaign.LOGS)), [])
        self.run_program("exit(4)")
        self.assertEqual(os.listdir(os.path.join(self.root, campaign.LOGS)), ["walks-3.log"])

    def test_removes_the_temporary_files(self):
        path = os.path.join(self.root, "where")
        self.run_program(f"import os\nopen({path!r}, 'w').write(os.environ['TMPDIR'])\n"
                         "open(os.environ['TMPDIR'] + '/left', 'w')")
        with open(path, encoding="utf-8") as file:
            self.assertFalse(os.path.exists(file.read()))

    def test_stopping_ends_the_program_and_keeps_what_it_did(self):
        runner = campaign.Runner(self.root)
        program = ("import os, signal\nprint('campaign: seed 3 after 0 units')\n"
                   "print('campaign: seed 4 after 9 units')\n"
                   "open('ready', 'w').close(); os.rename('ready', 'is-ready'); signal.pause()")
        results = []
        thread = threading.Thread(target=lambda: results.append(runner.run(
            line(command=[sys.executable, "-u", "-c", program]), 3, 20)))
        thread.start()
        while not os.path.exists(os.path.join(self.root, "is-ready")):
            thread.join(0.02)
        runner.stop()
        thread.join()
        self.assertEqual(
            (results[0].units, results[0].next_seed, results[0].findings), (9, 4, []))
        self.assertTrue(runner.run(line(), 1, 1).is_interrupted)


class FakeRunner:
    """Runs units in no time: each takes `seconds` on the clock."""

    def __init__(self, seconds, findings=()):
        self.now = 0
        self.chunks = []
        self._seconds = seconds
        self._findings = dict(findings)

    def clock(self):
        return self.now

    def run(self, chosen, seed, units):
        self.chunks.append((chosen.name, seed, units))
        seconds = self._seconds[chosen.name] * units
        self.now += seconds
        findings = [(number, self._findings[number]) for number in range(seed, seed + units)
                    if number in self._findings]
        return campaign.Result(units, seed + units, findings, seconds)

    def stop(self):
        pass


class CampaignTest(FolderTest):
    def run_campaign(self, lines, runner, hours=1, totals=None, version="1"):
        totals = totals or self.totals()
        run = totals.begin_run(version, "machine", "2024-03-09")
        subject = campaign.Campaign(
            lines, totals, run, runner, hours, clock=runner.clock, show=lambda text: None)
        subject.repeat_findings()
        subject.work()
        return totals

    def test_runs_each_line_to_its_target(self):
        lines = [line("a"), line("b", target=7)]
        runner = FakeRunner({"a": 1, "b": 2})
        totals = self.run_campaign(lines, runner)
        self.assertEqual((totals.units("a"), totals.units("b")), (100, 7))
        used = [seed + count for name, seed, units in runner.chunks if name == "a"
                for count in range(units)]
        self.assertEqual(used, list(range(1, 101)))

    def test_the_first_chunk_is_small_and_the_others_last_about_as_long(self):
        runner = FakeRunner({"a": 3})
        self.run_campaign([line("a", first=2)], runner)
        self.assertEqual([units for _, _, units in runner.chunks[:3]], [2, 10, 10])

    def test_shares_the_time_among_the_lines(self):
        lines = [line("a", target=10 ** 6), line("b", target=10 ** 6)]
        totals = self.run_campaign(lines, FakeRunner({"a": 1, "b": 7}))
        self.assertAlmostEqual(totals.seconds("a"), 1800, delta=60)
        self.assertAlmostEqual(totals.seconds("b"), 1800, delta=60)

    def test_ends_in_time(self):
        runner = FakeRunner({"a": 1})
        self.run_campaign([line("a", target=10 ** 6)], runner, hours=0.5)
        self.assertAlmostEqual(runner.now, 1800, delta=2)

    def test_a_further_run_adds_to_the_totals(self):
        lines = [line("a", target=10 ** 6)]
        before = self.run_campaign(lines, FakeRunner({"a": 1})).units("a")
        runner = FakeRunner({"a": 1})
        totals = self.run_campaign(lines, runner)
        self.assertEqual(runner.chunks[0][1], before + 1)
        self.assertEqual(totals.units("a"), 2 * before)
        self.assertEqual(len(totals.runs()), 1)

    def test_a_line_that_is_done_is_not_run(self):
        lines = [line("a")]
        self.run_campaign(lines, FakeRunner({"a": 1}))
        runner = FakeRunner({"a": 1})
        self.run_campaign(lines, runner)
        self.assertEqual(runner.chunks, [])

    def test_keeps_findings_with_the_command_that_repeats_them(self):
        totals = self.run_campaign([line("a")], FakeRunner({"a": 1}, {42: "torn"}))
        finding, = totals.open_findings()
        self.assertEqual((finding["line"], finding["seed"], finding["text"]), ("a", 42, "torn"))
        self.assertTrue(finding["command"].endswith("walk 42 1"))

    def test_a_line_with_many_findings_ends(self):
        runner = FakeRunner({"a": 1}, {seed: f"torn {seed}" for seed in range(1000)})
        totals = self.run_campaign([line("a", target=1000, first=1)], runner)
        self.assertLess(totals.units("a"), 100)

    def test_a_finding_that_is_fixed_is_gone_in_a_later_version(self):
        lines = [line("a")]
        self.run_campaign(lines, FakeRunner({"a": 1}, {42: "torn", 43: "late"}))
        still = FakeRunner({"a": 1}, {43: "late"})
        self.run_campaign(lines, still, version="1")
        self.assertEqual(still.chunks, [])
        totals = self.run_campaign(lines, still, version="2")
        self.assertEqual(still.chunks, [("a", 42, 1), ("a", 43, 1)])
        self.assertEqual([finding["seed"] for finding in totals.open_findings()], [43])

    def test_chunks_that_run_at_once_have_different_seeds(self):
        totals = self.totals()
        run = totals.begin_run("1", "machine", "2024-03-09")
        lines = [line("a", target=10 ** 6)]
        totals.add("a", 100, 100, 101, run)
        subject = campaign.Campaign(
            lines, totals, run, FakeRunner({}), 1, jobs=2, clock=lambda: 0)
        self.assertEqual(subject._next_chunk()[1:], (101, 30))
        self.assertEqual(subject._next_chunk()[1:], (131, 30))


class TotalsTest(FolderTest):
    def test_can_be_read_again(self):
        totals = self.totals()
        run = totals.begin_run("1", "machine", "2024-03-09")
        totals.add("a", 5, 2.5, 6, run)
        totals.add_finding("a", 3, "torn", "x", run)
        totals.save()
        again = self.totals()
        self.assertEqual((again.units("a"), again.seconds("a"), again.next_seed("a")), (5, 2.5, 6))
        self.assertEqual(len(again.open_findings()), 1)
        self.assertEqual(os.listdir(self.root), ["totals.json"])

    def test_the_same_finding_is_listed_once(self):
        totals = self.totals()
        run = totals.begin_run("1", "machine", "2024-03-09")
        self.assertTrue(totals.add_finding("a", 3, "torn", "x", run))
        self.assertFalse(totals.add_finding("a", 3, "torn", "x", run))

    def test_a_damaged_file_is_refused(self):
        self.write("totals.json", "{")
        with self.assertRaises(campaign.Unusable):
            self.totals()


class DocumentTest(FolderTest):
    def part(self, units=0, finding=None, gone=None):
        totals = self.totals()
        run = totals.begin_run("abc", "a machine", "2024-03-09")
        if units:
            totals.add("walks", units, 7200, units + 1, run)
        if finding:
            totals.add_finding("walks", 3, finding, "walk 3 1", run)
        if gone:
            totals.all_findings()[0]["gone"] = gone
        return campaign.document_part([line()], totals)

    def test_a_line_that_was_not_started_says_so(self):
        self.assertIn("| walks | Walks (walks) | 0 | 100 | 0.0 h | 0 | **not started** |",
                      self.part())

    def test_a_line_that_was_not_reached_says_so(self):
        self.assertIn("| 25 | 100 | 2.0 h | 0 | **not reached** (25.0%) |", self.part(25))

    def test_a_reached_line_says_so(self):
        text = self.part(100)
        self.assertIn("| 100 | 100 | 2.0 h | 0 | reached |", text)
        self.assertIn("| 2024-03-09 | abc | a machine | walks 100 |", text)

    def test_lists_findings(self):
        text = self.part(100, "torn")
        self.assertIn("| 1 open | **findings** |", text)
        self.assertIn("open: torn", text)
        self.assertIn("`walk 3 1`", text)

    def test_lists_findings_that_are_gone(self):
        text = self.part(100, "torn", "def")
        self.assertIn("| 0, 1 gone | reached |", text)
        self.assertIn("no longer seen in def: torn", text)

    def test_replaces_only_its_part(self):
        path = self.write(
            "page.md", "a\n<!-- campaign: begin -->\nold\n<!-- campaign: end -->\nb\n")
        campaign.write_document(path, "new")
        with open(path, encoding="utf-8") as file:
            self.assertEqual(
                file.read(), "a\n<!-- campaign: begin -->\nnew\n<!-- campaign: end -->\nb\n")

    def test_a_document_without_the_marks_is_refused(self):
        with self.assertRaises(campaign.Unusable):
            campaign.write_document(self.write("page.md", "a\n"), "new")

    def test_the_document_of_the_tree_has_the_marks(self):
        with open(os.path.join(ROOT, campaign.DOCUMENT), encoding="utf-8") as file:
            self.assertEqual(file.read().count("<!-- campaign: "), 2)


class MachineTest(FolderTest):
    def test_describes_the_machine(self):
        self.assertRegex(campaign.machine(), r"\d+ hardware threads, .*memory, ")

    def test_a_tree_without_a_repository_has_no_version(self):
        self.assertEqual(campaign.version(self.root), "unknown")

    def test_changed_files_are_mentioned_except_those_that_a_run_writes(self):
        def git(*arguments):
            subprocess.run(
                ["git", "-C", self.root, "-c", "user.name=t", "-c", "user.email=t@example.org",
                 *arguments], check=True, stdout=subprocess.DEVNULL)
        self.write("file", "1")
        self.write(campaign.TOTALS, "1")
        git("init", "--quiet")
        git("add", ".")
        git("commit", "--quiet", "--message", "first")
        self.write(campaign.TOTALS, "2")
        self.assertRegex(campaign.version(self.root), r"^[0-9a-f]{12}$")
        self.write("file", "2")
        self.assertRegex(campaign.version(self.root), r"^[0-9a-f]{12} with changes$")


class CommandLineTest(unittest.TestCase):
    def main(self, *arguments):
        output = io.StringIO()
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(output):
            try:
                status = campaign.main(arguments)
            except SystemExit as end:
                status = end.code
        return status, output.getvalue()

    def test_prints_help(self):
        status, output = self.main("--help")
        self.assertEqual(status, 0)
        self.assertIn("HOURS", output)

    def test_refuses_wrong_arguments(self):
        for arguments in (["0"], ["-1"], ["x"], ["--line", "missing"], ["--unknown"]):
            with self.subTest(arguments):
                self.assertEqual(self.main(*arguments)[0], 2)

    def test_lists_the_lines(self):
        status, output = self.main("--list")
        self.assertEqual(status, 0)
        self.assertIn("walks", output)

    def test_prints_the_targets(self):
        status, output = self.main("--targets", "--line", "walks")
        self.assertEqual((status, output), (0, "sanitize e2e_tests\n"))


class WholeRunTest(FolderTest):
    """The real program in a tree with one line."""

    def run_tree(self, program, *arguments):
        self.write("program.py", program)
        self.write(campaign.TABLE, (
            '[[line]]\nname = "a"\nwhat = "A"\nunit = "units"\ntarget = 5\n'
            f'command = ["{sys.executable}", "program.py"]\n'))
        self.write(campaign.DOCUMENT, "<!-- campaign: begin -->\n<!-- campaign: end -->\n")
        with open(os.path.join(ROOT, "tools", "dev", "campaign"), encoding="utf-8") as file:
            copy = self.write("tools/dev/campaign", file.read())
        return subprocess.run(
            [sys.executable, copy, *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            text=True)

    def document(self):
        with open(os.path.join(self.root, campaign.DOCUMENT), encoding="utf-8") as file:
            return file.read()

    WELL = ("import os\nunits = os.environ['ORVEL_CAMPAIGN_UNITS']\n"
            "print(f'campaign: {units} seeds, {units} units, 0 findings')\n")

    def test_reaches_the_target_and_writes_the_document(self):
        ended = self.run_tree(self.WELL, "0.1")
        self.assertEqual(ended.returncode, 0, ended.stdout)
        self.assertIn("| 5 | 5 | ", self.document())
        self.assertIn("reached", self.document())

    def test_a_finding_makes_the_status_1(self):
        ended = self.run_tree(
            "print('campaign: finding of seed 1: torn\\ncampaign: 5 seeds, 5 units, 1 finding')",
            "0.1")
        self.assertEqual(ended.returncode, 1, ended.stdout)
        self.assertIn("a, seed 1: torn", ended.stdout)
        self.assertIn("**findings**", self.document())

    def test_an_interruption_keeps_what_was_done(self):
        program = ("import os, signal\n"
                   "print('campaign: seed 1 after 0 units', flush=True)\n"
                   "print('campaign: seed 2 after 3 units', flush=True)\n"
                   "os.kill(os.getppid(), signal.SIGINT)\nsignal.pause()\n")
        ended = self.run_tree(program, "0.1", "--jobs", "1")
        self.assertEqual(ended.returncode, 130, ended.stdout)
        self.assertIn("Interrupted", ended.stdout)
        self.assertIn("| 3 | 5 | ", self.document())
        ended = self.run_tree(self.WELL, "0.1")
        self.assertEqual(ended.returncode, 0, ended.stdout)
        self.assertIn("| 5 | 5 | ", self.document())


if __name__ == "__main__":
    sys.exit(unittest.main())
