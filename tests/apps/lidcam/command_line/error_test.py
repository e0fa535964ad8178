"""What goes wrong is named, and nothing is lost."""

import resource
import unittest

from command_line import CommandLineTest


class ErrorTest(CommandLineTest):
    def test_unknown_things_are_named(self):
        for arguments, words in (
                (("--camera", "webcam"), ("webcam", "sim", "capture:FILE")),
                (("--camera", "sim:1234:5678"), ("1234:5678",)),
                (("--camera", "sim:1af0:0511,sensor=OV9999"), ("OV9999", "VGA0708")),
                (("--camera", "sim:1af0:0511,sensor=K82"), ("K82", "VGA0708")),
                (("--size", "800x600"), ("800x600", "640x480")),
                (("--size", "big"), ("big", "640x480")),
                (("--duration", "2"), ("'2'", "2s")),
                (("-o", "picture.gif"), ("picture.gif", ".png")),
                (("--frames", "0"), ("'0'", "from 1 on")),
                (("--frames", "-3"), ("'-3'", "from 1 on")),
                (("--frames", "3x"), ("'3x'", "from 1 on")),
                (("-o", ""), ("''", "ending")),
                (("--camera", "sim,mains=55Hz"), ("55Hz", "50Hz or 60Hz")),
                (("--set", "Hue=1"), ("Hue", "Saturation")),
                (("--json", "-o", "-"), ("--json", "standard output"))):
            self.assert_one_line_error(self.run_lidcam("stream", "--fast", *arguments), 2, *words)

    def test_wrong_use_ends_with_status_2(self):
        for arguments in ((), ("fly",), ("stream", "--frames", "none"), ("record",),
                          ("set",), ("registers",)):
            result = self.run_lidcam(*arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertTrue(result.stderr.startswith(b"lidcam: "), result.stderr)

    def test_what_the_command_line_takes_not_is_named_with_its_command(self):
        for arguments, words in (
                (("fly",), ("'fly'", "no command", "list, formats, stream")),
                ((), ("a command is missing", "list, formats, stream")),
                (("registers", "poke"), ("registers: ", "'poke'", "read, write, dump")),
                (("formats", "--size", "3"), ("formats: ", "option", "'--size'")),
                (("controls", "Gamma"), ("controls: ", "argument", "'Gamma'")),
                (("set",), ("set: ", "assignments", "required")),
                (("still",), ("still: ", "--output", "required")),
                (("still", "--settle", "-1"), ("still: ", "--settle", "'-1'", "from 0 on")),
                (("replay", "x", "--frames", "0"), ("replay: ", "--frames", "'0'", "from 1 on")),
                (("simulate", "--seed", "-1"), ("simulate: ", "--seed", "'-1'", "from 0 on")),
                (("simulate", "--step", "0"), ("simulate: ", "--step", "'0'", "from 1 on")),
                (("stream", "--frames", "none"), ("stream: ", "--frames", "none", "no number"))):
            self.assert_one_line_error(self.run_lidcam(*arguments), 2, "--help tells more", *words)

    def test_an_output_that_cannot_be_written_is_named_and_leaves_nothing(self):
        missing = self.path("no/such/folder/clip.y4m")
        for command in ("stream", "record"):
            self.assert_one_line_error(
                self.run_lidcam(command, "--fast", "--frames", "1", "-o", missing), 1, missing,
                "No such file or directory")
        self.assert_one_line_error(
            self.run_lidcam("stream", "--fast", "--frames", "1", "-o", self.path("no/card.png")), 1,
            self.path("no"))
        self.assert_nothing_left()

    def test_a_full_device_is_named(self):
        for command in ("stream", "record"):
            self.assert_one_line_error(
                self.run_lidcam(command, "-q", "--fast", "--frames", "30", "-o", "/dev/full"), 1,
                "/dev/full", "No space left on device")

    def test_a_disk_without_room_for_a_frame_leaves_nothing_under_the_name(self):
        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (8_000, 8_000))

        for command, name in (("stream", "clip.y4m"), ("stream", "clip.yuy2"),
                              ("stream", "card.png"), ("record", "bus.pcap")):
            file = self.path(name)
            result = self.run_lidcam(command, "-q", "--fast", "--frames", "10", "-o", file,
                                     preexec_fn=limit_files)
            self.assert_one_line_error(result, 1, file[:-4], "File too large")
            self.assert_nothing_left()

    def test_a_stream_that_failed_ahead_of_its_first_whole_frame_keeps_the_file_of_before(self):
        file = self.path("clip.y4m")
        with open(file, "w", encoding="ascii") as before:
            before.write("precious")

        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (500_000, 500_000))

        self.run_lidcam("stream", "--fast", "--frames", "10", "-o", file, preexec_fn=limit_files)
        with open(file, encoding="ascii") as after:
            self.assertEqual(after.read(), "precious")
        self.assert_nothing_left("clip.y4m")

    def test_a_sensor_taken_for_another_gives_no_good_frame_and_ends(self):
        self.assert_one_line_error(
            self.run_lidcam("stream", "--fast", "--camera", "sim:1b17:6111,sensor=VGA7648"), 1,
            "no whole frame in 5 s")

    def test_a_sensor_without_a_frame_size_is_refused(self):
        self.assert_one_line_error(
            self.run_lidcam("stream", "--fast", "--camera", "sim:1b17:6100"), 1, "Reserved3")


if __name__ == "__main__":
    unittest.main(verbosity=1)
