"""What the tests of the command line share: a folder of their own and lidcam, run in it.

Usage of every test: python3 NAME_test.py LIDCAM [unittest arguments]
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

# Taken from the arguments: the others are for unittest.
LIDCAM = os.path.abspath(sys.argv.pop(1))

# These tests must not use a camera that is plugged into this machine.
os.environ["LIDCAM_CAMERA"] = "sim"

# Each picture size with the raw size that the camera sends for it.
SIZES = {"640x480": "640x480", "352x288": "640x480", "320x240": "320x240",
         "176x144": "320x240", "160x120": "320x240"}


class CommandLineTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="lidcam-test-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_lidcam(self, *arguments, **options):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        return subprocess.run([LIDCAM, *arguments], capture_output=True, env=environment,
                              timeout=120, check=False, **options)

    def lidcam(self, *arguments):
        result = self.run_lidcam(*arguments)
        self.assertEqual(result.returncode, 0, result.stderr.decode(errors="replace"))
        return result.stdout.decode()

    def run_line(self, line):
        """Runs a line of a document as a person does, lidcam among the user's programs."""
        os.makedirs(self.path("bin"), exist_ok=True)
        if not os.path.exists(self.path("bin/lidcam")):
            os.symlink(LIDCAM, self.path("bin/lidcam"))
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"),
                           PATH=self.path("bin") + ":" + os.environ["PATH"])
        return subprocess.run(["bash", "-o", "pipefail", "-c", line], cwd=self.folder, env=environment,
                              capture_output=True, timeout=300, check=False)

    def assert_one_line_error(self, result, status, *words):
        text = result.stderr.decode()
        self.assertEqual(result.returncode, status, text)
        lines = text.strip().split("\n")
        self.assertEqual(len(lines), 1, text)
        self.assertTrue(lines[0].startswith("lidcam: "), text)
        for word in words:
            self.assertIn(word, lines[0])

    def assert_nothing_left(self, *kept):
        left = set(os.listdir(self.folder)) - {"home"} - set(kept)
        self.assertEqual(left, set())
