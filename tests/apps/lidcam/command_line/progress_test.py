"""The line at the foot of a terminal."""

import fcntl
import os
import pty
import re
import struct
import subprocess
import termios
import unittest

from command_line import CommandLineTest, LIDCAM


class ProgressTest(CommandLineTest):
    def lines_shown(self, columns, *arguments):
        """What a terminal of this width gets, each time the line is written anew."""
        terminal, other_end = pty.openpty()
        fcntl.ioctl(other_end, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        with subprocess.Popen([LIDCAM, "stream", "--duration", "1s", *arguments],
                              stderr=other_end, env=environment) as process:
            os.close(other_end)
            text = b""
            try:
                while piece := os.read(terminal, 4096):
                    text += piece
            except OSError:  # how a terminal tells that the other end is closed
                pass
            os.close(terminal)
            self.assertEqual(process.wait(timeout=60), 0)
        lines = [line.removesuffix("\x1b[K") for line in text.decode().split("\r")]
        return [line for line in lines if re.match(r"\d+ f", line)]

    def test_the_line_is_shorter_than_the_terminal_is_wide(self):
        for columns in (100, 80, 40, 20, 5):
            lines = self.lines_shown(columns)
            self.assertTrue(lines)
            for line in lines:
                self.assertLess(len(line), columns, line)

    def test_a_terminal_that_tells_no_width_is_taken_for_a_usual_one(self):
        for line in self.lines_shown(0):
            self.assertLess(len(line), 80, line)

    def test_exposure_is_manual_where_it_was_set(self):
        self.assertIn("exposure auto", self.lines_shown(100)[-1])
        lines = self.lines_shown(100, "--set", "Exposure=30")
        self.assertIn("exposure manual", lines[-1])


if __name__ == "__main__":
    unittest.main(verbosity=1)
