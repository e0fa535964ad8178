"""Formats, the list of cameras, and the help of every command."""

import json
import unittest

from command_line import CommandLineTest, SIZES

SMALL_RATES = [1000000, 833333, 666666, 555555, 500000, 400000, 333333]
LARGE_RATES = [1666666, 1000000, 833333, 666666]

COMMANDS = ("list", "formats", "stream", "still", "record", "replay", "controls", "get", "set",
            "registers", "registers read", "registers write", "registers dump", "registers trace",
            "sets", "sets compile", "sets show", "sets check", "plot", "simulate")


class FormatsTest(CommandLineTest):
    def test_each_format_is_told_as_the_pin_offers_it(self):
        rows = json.loads(self.lidcam("formats", "--json"))
        self.assertEqual([row["size"] for row in rows], list(SIZES))
        for row in rows:
            picture = row["width"] * row["height"] * 2
            self.assertEqual(row["size"], "{width}x{height}".format(**row))
            self.assertEqual(row["subtype"], "YUY2")
            self.assertEqual(row["bytes"], picture)
            self.assertEqual(row["minimumBitsPerSecond"], picture * 8)
            self.assertEqual(row["maximumBitsPerSecond"], picture * 8 * 100)
            self.assertEqual((row["minimumFramesPerSecond"], row["maximumFramesPerSecond"]),
                             (1, 100))
            self.assertEqual(row["frameIntervals"],
                             LARGE_RATES if row["width"] >= 640 else SMALL_RATES)
            for rate, interval in zip(row["frameRates"], row["frameIntervals"]):
                self.assertAlmostEqual(rate * interval, 1e7, places=3)

    def test_the_table_has_a_row_for_each_format(self):
        lines = self.lidcam("formats").strip().split("\n")
        self.assertEqual(len(lines), 1 + len(SIZES))
        self.assertEqual(lines[1].split(), ["640x480", "YUY2", "614400", "4915200", "491520000", "1",
                                            "to", "100", "6", "10", "12", "15"])

    def test_every_identity_offers_its_formats(self):
        for camera in json.loads(self.lidcam("list", "--json")):
            rows = json.loads(self.lidcam("formats", "--json", "--camera", camera["camera"]))
            self.assertEqual([row["size"] for row in rows], list(SIZES), camera)

    def test_a_recorded_camera_offers_them_too(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "3", "-o", capture)
        self.assertEqual(self.lidcam("formats", "--camera", f"capture:{capture}"),
                         self.lidcam("formats"))

    def test_what_cannot_be_streamed_is_told(self):
        for camera, words in (("sim:1b17:6100", "frame size is not known"),
                              ("sim:1b17:6111,sensor=VGA7648", "taken for the sensor OV7660")):
            self.assertIn("this camera can't be streamed: it", self.lidcam(
                "formats", "--camera", camera))
            rows = json.loads(self.lidcam("formats", "--json", "--camera", camera))
            self.assertEqual(len(rows[0]["notes"]), 1)
            self.assertIn(words, rows[0]["notes"][0])

    def test_lines_that_are_missing_or_cut_off_are_told(self):
        for camera, words in (("sim:1b17:6110", "sends 476 of 480 lines"),
                              ("sim:1af0:6011", "512 lines for a picture of 480")):
            self.assertIn(words, self.lidcam("formats", "--camera", camera))
            result = self.run_lidcam("stream", "--fast", "--frames", "1", "--camera", camera)
            self.assertIn(words, result.stderr.decode())
            result = self.run_lidcam("still", "--fast", "--camera", camera, "-o", self.path("a.png"))
            self.assertIn(words, result.stderr.decode())
            answer = json.loads(self.lidcam("stream", "--fast", "--frames", "1", "--json", "--camera",
                                            camera))
            self.assertIn(words, answer["note"])
        self.assertNotIn("note", json.loads(self.lidcam("stream", "--fast", "--frames", "1", "--json")))

    # The note describes the actual picture.
    def test_the_strip_below_the_last_line_is_green(self):
        file = self.path("frames.yuy2")
        self.lidcam("stream", "--fast", "--frames", "1", "--camera", "sim:1b17:6110", "-o", file)
        with open(file, "rb") as stream:
            picture = stream.read()
        line = 640 * 2
        self.assertEqual(picture[476 * line + 2:], bytes(4 * line - 2))  # behind the closing bytes
        self.assertNotIn(bytes(100), picture[:476 * line])

    def test_a_camera_that_there_is_not_is_named(self):
        self.assert_one_line_error(self.run_lidcam("formats", "--camera", "webcam"), 2, "webcam",
                                   "sim", "capture:FILE")
        missing = self.path("missing.pcap")
        self.assert_one_line_error(self.run_lidcam("formats", "--camera", f"capture:{missing}"), 1,
                                   missing)


class ListTest(CommandLineTest):
    def test_the_list_says_which_camera_is_meant_where_none_is_named(self):
        rows = json.loads(self.lidcam("list", "--json"))
        self.assertEqual([row["camera"] for row in rows if row["default"]], ["sim:1af0:0511"])
        lines = [line for line in self.lidcam("list").split("\n") if "default" in line]
        self.assertEqual(len(lines), 1)
        self.assertIn("sim:1af0:0511", lines[0])

    def test_the_list_says_which_sensors_cannot_be_streamed(self):
        table = self.lidcam("list")
        for camera in json.loads(self.lidcam("list", "--json")):
            for sensor in camera["sensors"]:
                obstacle = camera["cannotStream"].get(sensor)
                result = self.run_lidcam("stream", "--fast", "-q", "--frames", "1", "--camera",
                                         f"{camera['camera']},sensor={sensor}")
                self.assertEqual(result.returncode, 1 if obstacle else 0, (camera, sensor))
                if obstacle:
                    self.assertIn(f"{sensor} (can't be streamed: {obstacle})", table)


class HelpTest(CommandLineTest):
    def test_every_command_has_an_example(self):
        for command in COMMANDS:
            text = self.lidcam(*command.split(), "--help")
            self.assertIn("Example", text, command)
            self.assertIn(f"lidcam {command}", text, command)


if __name__ == "__main__":
    unittest.main(verbosity=1)
