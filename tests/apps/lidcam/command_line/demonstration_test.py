"""The demonstration in docs/command-line.md works as described, in its order and with one LIDCAM_HOME."""

import csv
import os
import re
import unittest

from command_line import CommandLineTest

DOCUMENT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../../../docs/command-line.md")


def commands():
    """The lines of the block after the table of commands, with their comments."""
    with open(DOCUMENT, encoding="utf-8") as file:
        text = file.read()
    block = text.split("Every command has `--help`")[1].split("```sh\n")[1].split("```")[0]
    return [line for line in block.split("\n") if line]


def shortened(line):
    """Streams in real time need not go on for as long as a person looks at them."""
    return line if "--fast" in line else re.sub(r"--duration \d+s", "--duration 1s", line)


class DemonstrationTest(CommandLineTest):
    def test_every_line_does_its_work_behind_those_before_it(self):
        lines = [shortened(line) for line in commands()]
        self.assertGreater(len(lines), 8)
        for line in lines:
            if "ffplay" in line:  # needs a screen
                continue
            result = self.run_line(line)
            expected = 1 if "# ends with 1" in line else 0
            self.assertEqual(result.returncode, expected, line + "\n" + result.stderr.decode()[-500:])
        self.assertEqual(self.lidcam("get", "Contrast", "Mirror", "AutoExposure"),
                         "Contrast=12\nMirror=1\nAutoExposure=1\n")

    def test_the_exposure_follows_the_light_behind_a_stream_that_was_exposed_by_hand(self):
        lines = commands()
        by_hand = next(i for i, line in enumerate(lines) if "--set Exposure" in line)
        logged = next(i for i, line in enumerate(lines) if "--log" in line)
        self.assertLess(by_hand, logged)
        for line in (lines[by_hand], lines[logged]):
            self.assertEqual(self.run_line(shortened(line)).returncode, 0, line)
        with open(self.path("frames.csv"), encoding="ascii") as file:
            rows = list(csv.DictReader(file))
        self.assertGreater(len({row["index"] for row in rows}), 5)
        self.assertIn("LowLight", {row["light_state"] for row in rows})
        self.assertEqual(rows[-1]["light_state"], "Normal")


if __name__ == "__main__":
    unittest.main(verbosity=1)
