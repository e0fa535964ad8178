"""Errors are reported with their cause, and no data are lost."""

import json
import os
import resource
import signal
import subprocess
import unittest
import xml.dom.minidom

from command_line import CommandLineTest, LIDCAM


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
                (("simulate", "--guided", "0"), ("simulate: ", "--guided", "0")),
                (("simulate", "--guided", "1", "--every-step"), ("--guided", "--every-step")),
                (("stream", "--frames", "none"), ("stream: ", "--frames", "none", "no number"))):
            self.assert_one_line_error(self.run_lidcam(*arguments), 2, "--help tells more", *words)

    def test_reseedings_are_numbers_in_their_order_for_one_run(self):
        for arguments, words in (
                (("--reseed", "5:1"), ("--reseed is for one run",)),
                (("--scenario", "power", "--reseed", "9:1,5:2"), ("--reseed 9:1,5:2", "in their order")),
                (("--scenario", "power", "--reseed", "9"), ("--reseed 9:", "120:7,340:9")),
                (("--scenario", "power", "--reseed", "9:1,"), ("--reseed 9:1,:", "120:7,340:9"))):
            self.assert_one_line_error(self.run_lidcam("simulate", *arguments), 2, *words)

    def test_names_that_are_empty_and_devices_that_are_none_are_wrong_use(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "1", "-o", capture)
        for arguments, words in (
                (("replay", capture, "--device", "abc"), ("'abc'", "BUS.DEVICE", "1.5")),
                (("replay", capture, "--device", "1"), ("'1'", "BUS.DEVICE")),
                (("stream", "--camera", f"capture:{capture}", "--device", "abc"), ("'abc'",)),
                (("replay", ""), ("''", "names no file")),
                (("stream", "--camera", "capture:"), ("''", "names no file")),
                (("list", ""), ("''", "names no file")),
                (("record", "--fast", "--frames", "1", "-o", ""), ("''", "names no file")),
                (("plot", "frames.csv", "-o", ""), ("''", ".svg")),
                (("plot", "frames.csv", "-o", self.path("a.pdf")), ("a.pdf", ".svg", ".png")),
                (("stream", "--fast", "--frames", "1", "--faults", ""), ("''", "seed=N"))):
            self.assert_one_line_error(self.run_lidcam(*arguments), 2, *words)
        self.assert_nothing_left("bus.pcap")

    def test_names_that_are_no_utf_8_work_with_json(self):
        folder = os.fsencode(self.folder)
        capture = folder + b"/n\xff.pcap"
        self.lidcam("record", "--fast", "--frames", "1", "-o", capture)
        rows = json.loads(self.lidcam("list", "--json", capture))
        self.assertEqual(rows[-1]["camera"], f"capture:{self.folder}/n\\xFF.pcap")
        for command, name in (("stream", b"a\xe9.y4m"), ("still", b"b\xe9.png"),
                              ("record", b"c\xe9.pcap")):
            limit = () if command == "still" else ("--frames", "1")
            answer = json.loads(self.lidcam(command, "--fast", "--json", *limit, "-o",
                                            folder + b"/" + name))
            self.assertEqual(answer["output"],
                             self.folder + "/" + name.decode("latin-1").replace("\xe9", "\\xE9"))
            self.assertTrue(os.path.exists(folder + b"/" + name))

    def test_a_drawing_with_any_heading_is_sound(self):
        log = self.path("frames.csv")
        self.lidcam("stream", "--fast", "--frames", "3", "--log", log)
        drawing = self.lidcam("plot", log, "-o", "-", "--title", b"a\xff\x01<b")
        texts = [part.firstChild.data for part
                 in xml.dom.minidom.parseString(drawing).getElementsByTagName("tspan")]
        self.assertIn("a\\xFF <b", texts)

    def test_a_drawing_without_gnuplot_is_refused_and_names_the_package(self):
        log = self.path("frames.csv")
        self.lidcam("stream", "--fast", "--frames", "3", "--log", log)
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"), PATH="/no/such/folder")
        result = subprocess.run([LIDCAM, "plot", log, "-o", self.path("loop.svg")],
                                capture_output=True, env=environment, timeout=120, check=False)
        self.assert_one_line_error(result, 1, "gnuplot", "Debian package gnuplot-nox")
        self.assert_nothing_left("frames.csv")

    def test_a_byte_order_mark_is_no_error(self):
        def mark(name, text):
            with open(self.path(name), "w", encoding="utf-8-sig") as file:
                file.write(text)
            return self.path(name)

        log = self.path("frames.csv")
        self.lidcam("stream", "--fast", "--frames", "3", "--log", log)
        with open(log, encoding="ascii") as file:
            self.lidcam("plot", mark("marked.csv", file.read()), "-o", self.path("loop.svg"))
        self.lidcam("sets", "compile", mark("S001.txt", "[setup]\nbridge FF0A = 01\n"))
        answer = json.loads(self.lidcam("stream", "--fast", "--frames", "3", "--json", "--faults",
                                        mark("faults.txt", "at 1ms lose 4\n")))
        self.assertIn("4", answer["faults"])

    def test_binary_data_for_register_sets_give_one_line(self):
        binary = self.path("binary")
        with open(binary, "wb") as file:
            file.write(bytes(range(256)) * 8)
        for command in ("compile", "show"):
            self.assert_one_line_error(self.run_lidcam("sets", command, binary), 1, binary, "no ")
        self.assert_nothing_left("binary")

    def test_a_damaged_register_set_still_shows_what_it_has(self):
        file = self.path("S001.set")
        self.lidcam("stream", "--fast", "--frames", "1")
        with open(self.path("home/simulated-root/system32/drivers/S001.set"), "rb") as source:
            content = source.read()
        with open(file, "wb") as damaged:
            damaged.write(content[:-1])
        text = self.lidcam("sets", "show", file)
        self.assertIn("# fault at offset", text)
        self.assertIn("sensor FF5D = 9C", text)

    def test_trees_and_set_files_that_cannot_be_read_are_told(self):
        def stream(tree):
            environment = dict(os.environ, LIDCAM_HOME=self.path("home"), LIDCAM_SYSTEM_ROOT=tree)
            return subprocess.run([LIDCAM, "stream", "--fast", "-q", "--frames", "1"], env=environment,
                                  capture_output=True, timeout=120, check=False)

        missing = self.path("no/such/tree")
        self.assert_one_line_error(stream(missing), 1, "LIDCAM_SYSTEM_ROOT", missing, "no folder")
        drivers = self.path("tree/system32/drivers")
        os.makedirs(drivers)
        self.assert_one_line_error(stream(self.path("tree")), 0, f"{drivers}/S001.set",
                                   "starts without it", "no object has this name")
        os.mkfifo(f"{drivers}/S001.set")
        self.assert_one_line_error(stream(self.path("tree")), 0, f"{drivers}/S001.set", "such as a pipe")
        os.remove(f"{drivers}/S001.set")
        os.mkdir(f"{drivers}/S001.set")
        self.assert_one_line_error(stream(self.path("tree")), 0, f"{drivers}/S001.set", "a folder")

    def test_a_status_comes_with_words(self):
        for faults, words in (("control 5 stall", "C000009C (the device failed the request)"),
                              ("control 5 silent", "C00000B5 (the device did not answer in time)")):
            self.assert_one_line_error(
                self.run_lidcam("stream", "--fast", "--frames", "1", "--faults", faults), 1, words)

    # A still takes a second of the camera's time first.
    def test_an_output_is_looked_at_before_the_stream_runs(self):
        missing = self.path("no/such/folder")
        for arguments in (("still", "-o", f"{missing}/card.png"), ("still", "-o", f"{missing}/card.yuy2"),
                          ("stream", "--frames", "1", "-o", f"{missing}/card.png"),
                          ("stream", "--frames", "1", "--log", f"{missing}/frames.csv"),
                          ("record", "--frames", "1", "-o", f"{missing}/bus.pcap")):
            result = self.run_lidcam(arguments[0], "--fast", "--debug", *arguments[1:])
            lines = result.stderr.decode().strip().split("\n")
            self.assertIn(missing, lines[-1])
            self.assertEqual((result.returncode, len(lines)), (1, 1), "the driver says nothing before")
        self.assert_nothing_left()

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
