"""The commands that documents show as ```sh work as they stand, in their order and with one LIDCAM_HOME."""

import os
import re
import shutil
import unittest

from command_line import CommandLineTest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../../..")

# Programs of other packages, without which a line can't be run here.
OTHERS = ("tshark", "editcap", "gnuplot", "ffplay", "ffmpeg", "xz")

# Recordings are compressed here as quickly as xz can: how small they get is not tested.
os.environ["XZ_OPT"] = "-0"


def lines_of(document):
    with open(os.path.join(ROOT, document), encoding="utf-8") as file:
        blocks = re.findall(r"^```sh\n(.*?)^```", file.read(), re.MULTILINE | re.DOTALL)
    return [line for block in blocks for line in block.split("\n") if line]


def is_for_here(line):
    """Whether the line needs no screen, no installation and no program that this machine lacks, and ends by itself.

    What lidcam doctor answers is the machine's.
    """
    if re.match(r"(cd|scripts/|cmake|sudo|lidcam view|lidcam doctor)", line) or "ffplay" in line:
        return False
    return not any(re.search(rf"\b{name}\b", line) and not shutil.which(name) for name in OTHERS)


class DocumentsTest(CommandLineTest):
    def assert_works(self, document, least):
        lines = [line for line in lines_of(document) if is_for_here(line)]
        self.assertGreaterEqual(len(lines), least)
        for line in lines:
            result = self.run_line(line)
            expected = 1 if "# ends with 1" in line else 0
            self.assertEqual(result.returncode, expected,
                             f"{document}: {line}\n{result.stderr.decode()[-500:]}")

    def test_the_recipes_of_the_cookbook(self):
        self.assert_works("docs/cookbook.md", 9)

    def test_the_first_commands_of_the_readme(self):
        self.assert_works("README.md", 2)

    def test_recording_and_replaying(self):
        self.assert_works("docs/recording.md", 7)

    def test_faults(self):
        with open(os.path.join(ROOT, "docs/faults.md"), encoding="utf-8") as file:
            script = re.search(r"^```\n(# A stream.*?)^```", file.read(), re.MULTILINE | re.DOTALL)[1]
        with open(self.path("faults.txt"), "w", encoding="utf-8") as file:
            file.write(script)
        self.assert_works("docs/faults.md", 5)

    def test_troubleshooting(self):
        self.assert_works("docs/troubleshooting.md", 14)


if __name__ == "__main__":
    unittest.main(verbosity=1)
