"""The roles of a command's files, and leftover files beside them."""

import os
import signal
import subprocess
import unittest

from command_line import CommandLineTest, LIDCAM


class OverwritingTest(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "2", "-o", self.capture)
        self.lidcam("stream", "--fast", "--frames", "1", "-o", self.path("scene.png"))
        self.scene = self.path("scene-0001.png")
        self.script = self.path("faults.txt")
        with open(self.script, "w", encoding="ascii") as file:
            file.write("at 1s lose 5\n")
        self.log = self.path("frames.csv")
        self.lidcam("stream", "--fast", "--frames", "3", "--log", self.log)
        self.source = self.path("S001.txt")
        with open(self.source, "w", encoding="utf-8") as file:
            file.write(self.lidcam("sets", "show", self.path(
                "home/simulated-root/system32/drivers/S001.set")))
        self.lidcam("set", "Contrast=12")
        self.settings = self.path("home/registry.reg")

    def refusals(self):
        """Commands by the input that their output would overwrite; {} takes the output's name."""
        fast = ("stream", "--fast", "--frames", "2")
        camera = ("--camera", f"capture:{self.capture}")
        return (
            (self.capture, (*fast, *camera, "--log", "{}")),
            (self.capture, ("still", *camera, "--settle", "0", "-o", "{}.yuy2")),
            (self.capture, ("replay", self.capture, "-o", "{}.y4m")),
            (self.capture, ("record", *camera, "-o", "{}")),
            (self.scene, (*fast, "--camera", f"sim,scene={self.scene}", "--log", "{}")),
            (self.scene, ("still", "--fast", "--camera", f"sim,scene={self.scene}", "-o", "{}.png")),
            (self.script, (*fast, "--faults", self.script, "--log", "{}")),
            (self.script, ("record", "--fast", "--faults", self.script, "-o", "{}")),
            (self.log, ("plot", self.log, "-o", "{}")),
            (self.source, ("sets", "compile", self.source, "-o", "{}")),
            (self.settings, (*fast, "--log", "{}")),
        )

    def assert_refused(self, input_name, arguments):
        with open(input_name, "rb") as file:
            before = file.read()
        result = self.run_lidcam(*arguments)
        with self.subTest(" ".join(arguments)):
            self.assert_one_line_error(result, 2, "would overwrite the ", input_name)
        with open(input_name, "rb") as file:
            self.assertEqual(file.read() == before, True)

    def test_an_input_is_not_overwritten_whatever_name_it_has_as_an_output(self):
        for link in (os.symlink, os.link):
            for number, (name, arguments) in enumerate(self.refusals()):
                other = self.path(f"{link.__name__}{number}")
                names = [word.format(other) for word in arguments]
                link(name, names[-1])
                self.assert_refused(name, names)
                os.remove(names[-1])

    def test_an_input_is_not_overwritten_by_its_own_name(self):
        for name, arguments in self.refusals():
            if arguments[-1] == "{}":
                self.assert_refused(name, [word.format(name) for word in arguments])

    def test_the_source_of_a_set_is_not_overwritten_by_the_name_that_goes_without_saying(self):
        os.rename(self.source, self.path("S001.set"))
        self.assert_refused(self.path("S001.set"), ("sets", "compile", self.path("S001.set")))

    def test_a_numbered_picture_does_not_overwrite_the_scene(self):
        self.assert_refused(self.scene, ("stream", "--fast", "--frames", "2", "--camera",
                                         f"sim,scene={self.scene}", "-o", self.path("scene.png")))

    def test_an_input_is_not_overwritten_through_standard_output(self):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        size = os.path.getsize(self.capture)
        with open(self.capture, "ab") as appended:
            result = subprocess.run([LIDCAM, "replay", self.capture, "-o", "-"], stdout=appended,
                                    stderr=subprocess.PIPE, env=environment, check=False)
        self.assert_one_line_error(result, 2, "standard output", "capture", self.capture)
        self.assertEqual(os.path.getsize(self.capture), size)

    def test_two_outputs_are_two_files(self):
        clip = self.path("clip.yuy2")
        for other in (clip, os.path.join(self.folder, ".", "clip.yuy2"), self.path("link.csv")):
            if other.endswith("csv"):
                os.symlink("clip.yuy2", other)
            result = self.run_lidcam("stream", "--fast", "--frames", "2", "-o", clip, "--log", other)
            self.assert_one_line_error(result, 2, "-o", "--log", "are one file", clip)
            self.assertFalse(os.path.exists(clip))

    def test_a_device_may_stand_for_several(self):
        self.lidcam("stream", "-q", "--fast", "--frames", "2", "-o", "/dev/null", "--log",
                    "/dev/null")


class LeftPartsTest(CommandLineTest):
    def kill(self, *arguments):
        """Kills lidcam while it writes and returns the name of the leftover file."""
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        before = set(os.listdir(self.folder))
        with subprocess.Popen([LIDCAM, *arguments, "--trace"], stderr=subprocess.PIPE,
                              env=environment) as process:
            frames = 0
            for line in process.stderr:
                frames += line.startswith(b"pin frame picture=")
                if frames == 3:
                    break
            process.send_signal(signal.SIGKILL)
            process.stderr.read()
        left = [name for name in set(os.listdir(self.folder)) - before if ".part" in name]
        self.assertEqual(len(left), 1)
        return self.path(left[0])

    def assert_found(self, part, *arguments):
        error = self.run_lidcam(*arguments).stderr.decode()
        first = error.split("\n")[0]
        self.assertTrue(first.startswith(f"lidcam: '{part}' was left by a lidcam that was killed"),
                        error)
        self.assertIn(f" {os.path.getsize(part)} bytes ", first)
        self.assertTrue(os.path.exists(part), "it is the user's")

    def test_what_a_killed_stream_has_left_is_found(self):
        clip = self.path("clip.yuy2")
        part = self.kill("stream", "--fast", "-o", clip)
        self.assertGreater(os.path.getsize(part), 0)
        self.assert_found(part, "stream", "-q", "--fast", "--frames", "1", "-o", clip)
        self.assertNotIn("killed", self.run_lidcam("stream", "--fast", "--frames", "1", "-o",
                                                   self.path("other.yuy2")).stderr.decode())

    def test_what_a_killed_recording_has_left_is_found(self):
        capture = self.path("bus.pcap")
        part = self.kill("record", "--fast", "-o", capture)
        self.assert_found(part, "record", "-q", "--fast", "--frames", "1", "-o", capture)

    def test_what_is_still_being_written_is_not_left(self):
        clip = self.path("clip.yuy2")
        environment = dict(os.environ, LIDCAM_HOME=self.path("other-home"))
        with subprocess.Popen([LIDCAM, "stream", "--trace", "-o", clip], stderr=subprocess.PIPE,
                              env=environment) as process:
            process.stderr.readline()
            result = self.run_lidcam("stream", "-q", "--fast", "--frames", "1", "-o", clip)
            self.assertEqual((result.returncode, result.stderr), (0, b""))
            process.send_signal(signal.SIGINT)
            process.stderr.read()


if __name__ == "__main__":
    unittest.main(verbosity=1)
