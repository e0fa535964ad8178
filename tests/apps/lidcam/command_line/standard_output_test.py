"""What is printed gets there, or the command fails."""

import os
import re
import subprocess
import unittest

from command_line import CommandLineTest, LIDCAM


class StandardOutputTest(CommandLineTest):
    def commands(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "3", "-o", capture)
        log = self.path("frames.csv")
        self.lidcam("stream", "--fast", "--frames", "3", "--log", log)
        sets = self.path("home/simulated-root/system32/drivers/S001.set")
        picture = self.path("picture.png")
        return (("--help",), ("list",), ("list", "--json", capture), ("formats",),
                ("formats", "--json"), ("stream", "--fast", "--frames", "2", "--json"),
                ("stream", "--fast", "--frames", "2", "-o", "-"),
                ("stream", "--fast", "--frames", "2", "--log", "-"),
                ("still", "--fast", "--settle", "0", "--json", "-o", picture),
                ("plot", log, "-o", "-"),
                ("record", "--fast", "--frames", "2", "--json", "-o", capture),
                ("probe", "-o", "-"), ("replay", capture, "--json"), ("replay", capture, "-o", "-"),
                ("controls",), ("controls", "--json"), ("get",), ("get", "--json"),
                ("set", "Contrast=11"), ("set", "--json", "Contrast=12"), ("reset",), ("reset", "--json"),
                ("status",), ("status", "--json"), ("doctor",), ("doctor", "--json"),
                ("report", "-o", "-"),
                ("registers", "read", "bridge", "0x77"),
                ("registers", "write", "bridge", "0x77", "0x20"),
                ("registers", "dump", "sensor"), ("registers", "trace"), ("sets", "show", sets),
                ("sets", "check", sets), ("simulate", "--list"), ("simulate", "--seed", "1"),
                ("simulate", "--seed", "1", "--json"))

    def run_into(self, arguments, **options):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        return subprocess.run([LIDCAM, *arguments], stderr=subprocess.PIPE, env=environment,
                              timeout=120, check=False, **options)

    def assert_told(self, arguments, result):
        with self.subTest(" ".join(arguments)):
            error = result.stderr.decode()
            self.assertEqual(result.returncode, 1, error)
            self.assertIn("lidcam: standard output can't be written: ", error.split("\n")[-2])

    def test_every_command_is_tried(self):
        tried = {arguments[0] for arguments in self.commands()}
        listed = self.lidcam("--help").split("Subcommands:\n")[1].split("\n\n")[0]
        names = set(re.findall(r"^  (\w+) ", listed, re.MULTILINE))
        silent = {"serve", "share", "view"}  # have nothing for standard output, and end on a signal only
        self.assertEqual(tried - {"--help"}, names - silent)

    def test_a_full_standard_output_fails_every_command(self):
        for arguments in self.commands():
            with open("/dev/full", "wb") as full:
                self.assert_told(arguments, self.run_into(arguments, stdout=full))

    def test_a_closed_standard_output_fails_every_command(self):
        for arguments in self.commands():
            self.assert_told(arguments, self.run_into(arguments, preexec_fn=lambda: os.close(1)))

    def test_a_command_that_prints_nothing_needs_no_standard_output(self):
        result = self.run_into(("stream", "--fast", "--frames", "2", "-o", self.path("clip.yuy2")),
                               preexec_fn=lambda: os.close(1))
        self.assertEqual(result.returncode, 0, result.stderr.decode())

    def test_what_is_printed_reaches_no_file_in_the_place_of_a_closed_stream(self):
        clip = self.path("clip.yuy2")
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        result = subprocess.run([LIDCAM, "stream", "--fast", "--trace", "--frames", "2", "-o", clip],
                                env=environment, timeout=120, check=False,
                                preexec_fn=lambda: os.close(2))
        self.assertEqual(result.returncode, 0)
        self.assertEqual(os.path.getsize(clip), 2 * 614400)

    def test_a_campaign_ends_when_its_reader_goes_away(self):
        with subprocess.Popen([LIDCAM, "simulate", "--seeds", "1..100000"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            process.stdout.readline()
            process.stdout.close()
            error = process.stderr.read().decode()
            self.assertEqual(process.wait(timeout=60), 1)
        self.assertEqual(error, "lidcam: standard output can't be written: Broken pipe\n")


if __name__ == "__main__":
    unittest.main(verbosity=1)
