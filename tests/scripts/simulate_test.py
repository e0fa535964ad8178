"""scripts/simulate: ranges of seeds, their results, and other machines.

Usage: python3 simulate_test.py LIDCAM [unittest arguments]
"""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

LIDCAM = os.path.abspath(sys.argv.pop(1))
SCRIPT = pathlib.Path(__file__).resolve().parent.parent.parent / "scripts/simulate"


def line(first, last, runs, failed=0, interrupted=False):
    return json.dumps({"firstSeed": first, "lastSeed": last, "options": "--mix", "interrupted": interrupted,
                       "runs": runs, "failed": failed, "statedHangs": 1, "cutShort": 0, "frames": 10,
                       "disturbedFrames": 2, "recoveries": 3, "seconds": 1.5, "runsPerSecond": 2.0})


class SimulateTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="lidcam-test-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name, lines=None):
        path = os.path.join(self.folder, name)
        if lines is not None:
            pathlib.Path(path).write_text("\n".join(lines) + "\n", encoding="utf-8")
        return path

    def simulate(self, *arguments):
        return subprocess.run(["/usr/bin/python3", SCRIPT, *arguments], capture_output=True, text=True, timeout=600,
                              check=False)

    def test_results_of_runs_add_up_to_what_was_printed(self):
        results = self.path("results")
        played = self.simulate("50", LIDCAM, "--first", "5", "--results", results)
        self.assertEqual(played.returncode, 0, played.stderr)
        merged = self.simulate("--merge", results)
        self.assertEqual(merged.returncode, 0, merged.stderr)
        self.assertEqual(merged.stdout.split(";")[0], played.stdout.split(";")[0])
        lines = pathlib.Path(results).read_text(encoding="utf-8").splitlines()
        seeds = {(item["firstSeed"], item["lastSeed"]) for item in map(json.loads, lines)}
        self.assertEqual(min(first for first, _ in seeds), 5)
        self.assertEqual(max(last for _, last in seeds), 6)

    def test_runs_that_leave_something_out_count_apart_from_the_usual_ones(self):
        results = self.path("results")
        for option in ((), ("--swarm",)):
            self.assertEqual(self.simulate("20", LIDCAM, "--results", results, *option).returncode, 0)
        lines = map(json.loads, pathlib.Path(results).read_text(encoding="utf-8").splitlines())
        self.assertEqual({item["options"] for item in lines}, {"--scenario all --mix", "--scenario all --mix --swarm"})
        self.assertIn("80 runs, 0 failed", self.simulate("--merge", results).stdout)

    def test_range_in_two_files_counts_once_and_an_interrupted_one_not_at_all(self):
        first = self.path("first", [line(1, 9, 100), line(10, 19, 50)])
        second = self.path("second", [line(10, 19, 50), line(20, 29, 7, interrupted=True), line(30, 39, 5)])
        merged = self.simulate("--merge", first, second)
        self.assertEqual(merged.returncode, 0, merged.stderr)
        self.assertIn("155 runs, 0 failed, 3 stated hangs, 0 cut short, 30 frames whole, 6 disturbed, 9 recoveries; "
                      "3 range(s) of seeds", merged.stdout)

    def test_failed_run_is_printed_with_its_command_and_ends_with_1(self):
        failure = json.dumps({"verdict": "FAILED", "what": "a lost frame", "replay": "lidcam simulate --seed 7"})
        merged = self.simulate("--merge", self.path("one", [failure, line(1, 9, 100, failed=1)]))
        self.assertEqual(merged.returncode, 1)
        self.assertIn("FAILED a lost frame\n  replay: lidcam simulate --seed 7\n", merged.stdout)

    def test_runs_that_are_no_number_are_wrong_use(self):
        for arguments in ((), ("0",), ("some",), ("10", "--host")):
            self.assertEqual(self.simulate(*arguments).returncode, 2, arguments)

    @unittest.skipIf(shutil.which("parallel") is None, "GNU parallel is not installed: scripts/setup hosts")
    def test_hosts_play_the_same_runs_as_this_machine(self):
        hosts = self.path("hosts", ["# this machine, twice", "1/:", "2/:"])
        here = self.simulate("100", LIDCAM)
        there = self.simulate("100", LIDCAM, "--hosts", hosts)
        self.assertEqual(there.returncode, 0, there.stderr)
        self.assertEqual(there.stdout.split(";")[0], here.stdout.split(";")[0])

    @unittest.skipIf(shutil.which("parallel") is None, "GNU parallel is not installed: scripts/setup hosts")
    def test_ranges_of_a_machine_that_does_not_answer_are_named(self):
        result = self.simulate("40", LIDCAM, "--hosts", self.path("hosts", ["1/false nowhere"]))
        self.assertEqual(result.returncode, 1)
        self.assertIn("seeds 1..1 were not played to their end", result.stderr)


if __name__ == "__main__":
    unittest.main()
