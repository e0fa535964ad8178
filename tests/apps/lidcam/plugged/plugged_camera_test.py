"""The command line with cameras that are plugged in, over a stand-in for libusb.

Usage: python3 plugged_camera_test.py LIDCAM_OVER_STAND_IN COMMAND_LINE_FOLDER [unittest arguments]

Without unittest arguments several tests run at once, each in a process of its own: these cameras keep real time,
and nearly all of the tests' time is waiting for their frames.
"""

import concurrent.futures
import csv
import json
import os
import re
import shutil
import subprocess
import sys
import unittest

PROGRAM_AND_FOLDER = sys.argv[1:3]
TESTS_AT_ONCE = 4

sys.path.insert(0, sys.argv.pop(2))
import command_line  # noqa: E402

CAMERA = "plug 1-2.3 sim:1af0:0511"


class PluggedCameraTest(command_line.CommandLineTest):
    def setUp(self):
        super().setUp()
        self.addCleanup(os.environ.pop, "LIDCAM_SYSTEM_ROOT", None)
        os.environ["LIDCAM_CAMERA"] = "sim"
        os.environ.pop("LIDCAM_SYSTEM_ROOT", None)
        self.lidcam("get", "Brightness")
        # The set files of the simulated cameras, for these that are plugged in.
        os.environ["LIDCAM_SYSTEM_ROOT"] = self.path("home/simulated-root")

    def machine(self, *words):
        """What is plugged in from here on; no camera is named."""
        os.environ["LIDCAM_STAND_IN"] = ";".join(words)
        os.environ.pop("LIDCAM_CAMERA", None)

    def lines(self, *arguments, status=0):
        result = self.run_lidcam(*arguments)
        text = result.stderr.decode()
        self.assertEqual(result.returncode, status, text)
        return text

    def test_a_plugged_camera_is_used_where_none_is_named_and_told(self):
        self.machine(CAMERA)
        result = self.run_lidcam("get", "Brightness")
        self.assertEqual(result.stdout, b"Brightness=20\n")
        self.assertEqual(result.stderr.decode(),
                         "lidcam: camera usb:1-2.3:1af0:0511 is plugged in\n")

    def test_without_one_the_simulated_camera_is_used_and_told(self):
        self.machine()
        self.assertEqual(self.lines("get", "Brightness"),
                         "lidcam: no camera is plugged in: this is the simulated one\n")

    def test_nothing_is_told_where_a_program_reads_or_quiet_is_asked_for(self):
        self.machine(CAMERA)
        self.assertEqual(self.lines("get", "--json"), "")
        self.assertEqual(self.lines("get", "--quiet"), "")

    def test_a_camera_that_the_environment_names_is_used(self):
        self.machine(CAMERA)
        os.environ["LIDCAM_CAMERA"] = "sim:1af0:6010"
        rows = json.loads(self.lidcam("stream", "--fast", "--frames", "1", "--json"))
        self.assertEqual(rows["identity"], "1af0:6010")

    def test_fast_and_light_mean_the_simulated_camera(self):
        self.machine(CAMERA)
        self.lidcam("stream", "--fast", "--frames", "1", "--light", "100lx@0s")
        self.assert_one_line_error(
            self.run_lidcam("stream", "--fast", "--frames", "1", "--camera", "usb"), 2,
            "usb", "keeps its own time")

    def test_a_camera_is_named_by_port_and_identity(self):
        self.machine(CAMERA, "plug 2-1 sim:1af0:6010", "foreign 1-4")
        for name in ("usb:2-1", "usb:1af0:6010", "usb:2-1:1af0:6010"):
            text = self.lidcam("stream", "--frames", "1", "--json", "--camera", name)
            self.assertEqual(json.loads(text)["identity"], "1af0:6010")
        for name, status, words in (
                ("usb", 2, ("fits several", "usb:1-2.3:1af0:0511", "usb:2-1:1af0:6010")),
                ("usb:9-9", 1, ("'usb:9-9' is not plugged in", "plugged in: usb:1-2.3")),
                ("usb:1-4", 1, ("usb:1-4:046d:0825 is another device",)),
                ("usb:x", 2, ("usb:1-2.3", "usb:1af0:0511"))):
            self.assert_one_line_error(self.run_lidcam("get", "--camera", name), status, *words)

    def test_the_list_tells_port_identity_speed_and_room(self):
        self.machine(CAMERA, "foreign 1-4")
        text = self.lidcam("list")
        self.assertIn("usb:1-2.3:1af0:0511  480 Mbit/s, free", text)
        self.assertNotIn("046d", text)
        row = json.loads(self.lidcam("list", "--json"))[0]
        self.assertEqual((row["kind"], row["port"], row["default"]), ("usb", "1-2.3", True))
        self.assertEqual(row["bytesPerMicroframeLeft"], 6000)

    def test_frames_of_every_size_come(self):
        self.machine(CAMERA)
        for size in command_line.SIZES:
            result = json.loads(self.lidcam("stream", "--size", size, "--frames", "5", "--json",
                                            "-o", self.path("clip.y4m")))
            self.assertEqual(result["frames"]["delivered"], 5)
            self.assertEqual(result["rawSize"], command_line.SIZES[size])

    def test_a_still_registers_and_a_recording_are_taken(self):
        self.machine(CAMERA)
        self.lines("still", "--settle", "2", "-o", self.path("still.png"))
        self.assertTrue(os.path.getsize(self.path("still.png")) > 1000)
        self.assertEqual(self.lidcam("registers", "write", "bridge", "0x77", "0x20"),
                         "bridge FF77 = 20\n")
        self.assertIn("bus  write", self.lidcam("registers", "trace", "--size", "320x240"))
        self.lines("record", "--frames", "5", "-o", self.path("bus.pcap"))
        replayed = self.lines("replay", self.path("bus.pcap"), "-o", self.path("clip.y4m"))
        self.assertRegex(replayed, r"[0-9]+ frames delivered")

    def test_settings_persist_over_runs(self):
        self.machine(CAMERA)
        self.lidcam("set", "Contrast=12")
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=12\n")

    def test_a_set_file_that_is_not_there_is_told(self):
        self.machine(CAMERA)
        del os.environ["LIDCAM_SYSTEM_ROOT"]
        self.assertIn("system-root/system32/drivers/S001.set' can't be read",
                      self.lines("get", "Contrast"))

    def test_faults_meet_a_plugged_camera(self):
        self.machine(CAMERA)
        text = self.lines("stream", "--frames", "20", "--faults", "at 300ms unplug", status=1)
        self.assertIn("unplugged", text)

    def test_a_missing_permission_is_told_with_the_command_that_helps(self):
        self.machine("forbid", CAMERA)
        result = self.run_lidcam("get", "--quiet")
        self.assert_one_line_error(result, 1, "usb:1-2.3:1af0:0511", "/dev/bus/usb/001/004", "sudo ")

    def test_a_camera_in_use_is_told(self):
        self.machine("occupy", CAMERA)
        self.assert_one_line_error(self.run_lidcam("get", "--quiet"), 1, "in use by")

    def test_a_bus_without_room_gives_a_narrower_setting_and_says_so(self):
        self.machine("refuse 7", "refuse 6", CAMERA)
        text = self.lines("stream", "--frames", "2", "--size", "320x240")
        self.assertIn("no room for alternate setting 7 with 3072 bytes", text)
        self.assertIn("nothing else is on bus 1", text)
        self.assertRegex(text, "alternate setting [1-5] with [0-9]+ bytes a microframe has room")

    def test_an_unplugged_camera_ends_the_stream_with_its_frames(self):
        self.machine(CAMERA, "at 1500 unplug 1")
        text = self.lines("stream", "--duration", "60s", status=1)
        self.assertRegex(text, "the camera was unplugged after frame [0-9]+")

    def test_an_unplugged_camera_ends_a_recording_which_keeps_what_came(self):
        self.machine(CAMERA, "at 1500 unplug 1")
        text = self.lines("record", "--duration", "60s", "-o", self.path("bus.pcap"), status=1)
        told = re.search("the camera was unplugged after frame ([0-9]+)", text)
        self.assertIsNotNone(told, text)
        self.machine()
        replayed = self.lines("replay", self.path("bus.pcap"), "-o", self.path("clip.yuy2"))
        self.assertIn("1af0:0511 VGA0708", replayed)
        self.assertGreaterEqual(os.path.getsize(self.path("clip.yuy2")), int(told[1]) * 640 * 480 * 2)

    def test_an_unplugged_camera_ends_a_still_which_leaves_no_file(self):
        self.machine(CAMERA, "at 1500 unplug 1")
        self.assert_one_line_error(
            self.run_lidcam("still", "--settle", "1000", "-q", "-o", self.path("still.png")), 1,
            "the camera was unplugged: no still was taken")
        self.assert_nothing_left()

    def test_with_wait_the_stream_goes_on_when_the_camera_is_back(self):
        self.machine(CAMERA, "at 1500 unplug 1", "at 2500 " + CAMERA)
        result = self.run_lidcam("stream", "--wait", "--frames", "60", "-o", self.path("clip.yuy2"))
        text = result.stderr.decode()
        self.assertEqual(result.returncode, 0, text)
        self.assertIn("was unplugged after frame", text)
        self.assertIn("camera usb:1-2.3:1af0:0511 is back: the stream goes on", text)
        self.assertIn("60 frames delivered", text)
        self.assertEqual(os.path.getsize(self.path("clip.yuy2")), 60 * 640 * 480 * 2)

    def test_film_and_log_go_on_in_one_time_when_the_camera_is_back(self):
        self.machine(CAMERA, "at 1500 unplug 1", "at 2500 " + CAMERA)
        result = self.run_lidcam("stream", "--wait", "-q", "--frames", "60", "-o", self.path("clip.mkv"), "--log",
                                 self.path("log.csv"))
        text = result.stderr.decode()
        if "built without" in text:
            self.skipTest("built without films")
        self.assertEqual(result.returncode, 0, text)
        with open(self.path("log.csv"), newline="", encoding="ascii") as rows:
            logged = [float(row["time_s"]) for row in csv.DictReader(rows)]
        self.assertEqual(len(logged), 60)
        self.assertEqual(logged, sorted(logged))
        # The second in which there was no camera.
        self.assertGreater(max(after - before for before, after in zip(logged, logged[1:])), 0.9)
        if shutil.which("ffprobe"):
            probed = subprocess.run(
                ["ffprobe", "-v", "error", "-show_entries", "frame=pts_time", "-of", "json", self.path("clip.mkv")],
                capture_output=True, check=True, timeout=60)
            times = [float(frame["pts_time"]) for frame in json.loads(probed.stdout)["frames"]]
            self.assertEqual(len(times), 60)
            for film, log in zip(times, logged):
                self.assertAlmostEqual(film, log, delta=0.002)
        if shutil.which("gnuplot"):
            self.lidcam("plot", self.path("log.csv"), "-o", self.path("loop.svg"))
            self.assertGreater(os.path.getsize(self.path("loop.svg")), 1000)

    def test_with_wait_a_camera_that_leaves_before_its_first_frame_is_waited_for(self):
        self.machine(CAMERA, "at 0 unplug 1", "at 1000 " + CAMERA)
        text = self.lines("stream", "--wait", "--frames", "5")
        self.assertIn("1af0:0511 VGA0708 640x480 (raw 640x480): 5 frames delivered", text)

    def test_a_camera_that_comes_back_elsewhere_is_the_same_unless_its_port_is_named(self):
        self.machine(CAMERA, "at 1500 unplug 1", "at 2500 plug 2-1 sim:1af0:0511")
        text = self.lines("stream", "--wait", "--frames", "60")
        self.assertIn("camera usb:2-1:1af0:0511 is back", text)

    def test_a_camera_with_another_number_is_the_same_after_a_reset(self):
        self.machine(CAMERA, "at 1500 unplug 1", "at 1500 " + CAMERA)
        text = self.lines("stream", "--frames", "60")
        self.assertIn("is back: the stream goes on", text)

    def test_a_stream_goes_on_when_the_machine_has_slept(self):
        self.machine(CAMERA, "at 1500 sleep 1")
        text = self.lines("stream", "--frames", "60", "-o", self.path("clip.yuy2"))
        self.assertIn("is back: the stream goes on", text)
        self.assertEqual(os.path.getsize(self.path("clip.yuy2")), 60 * 640 * 480 * 2)

    def test_a_probe_tells_all_there_is(self):
        for words, names in (((CAMERA,), ()), ((), ("--camera", "sim"))):
            self.machine(*words)
            self.lines("probe", *names, "-o", self.path("unit.txt"))
            with open(self.path("unit.txt"), encoding="utf-8") as file:
                text = file.read()
            self.assertIn("12 01 00 02 ff 00 00 40 f0 1a 11 05", text)
            self.assertIn("interface 0 setting 7: endpoint 82, 3072 bytes a microframe", text)
            self.assertIn("sensor VGA0708", text)
            self.assertIn("bus  read  sensor FF02 -> 15", text)
            for setting in range(1, 8):
                self.assertRegex(text, f"setting {setting}, +[0-9]+ bytes: +[0-9]+ packets a second")
            for size in command_line.SIZES:
                self.assertRegex(text, f"  {size} .*: [0-9]+ frames delivered")
            self.assertNotIn("FAILED", text)

    def test_a_probe_tells_what_fails_in_its_place_and_goes_on(self):
        self.machine("refuse 7", "fail 5", CAMERA)
        result = self.run_lidcam("probe", "-o", self.path("unit.txt"))
        self.assertEqual(result.returncode, 1)
        self.assertIn("setting 5", result.stderr.decode())
        with open(self.path("unit.txt"), encoding="utf-8") as file:
            text = file.read()
        self.assertIn("setting 7: refused, no bandwidth", text)
        self.assertIn("setting 5: refused, stalled", text)
        self.assertIn("640x480 (raw 320x240): ", text)

    def test_what_cant_be_meant_is_wrong_use(self):
        self.machine(CAMERA)
        self.assert_one_line_error(self.run_lidcam("get", "--camera", ""), 2, "''", "usb")


def run_alone(test):
    """Exit status and output of one test."""
    done = subprocess.run([sys.executable, "-B", __file__, *PROGRAM_AND_FOLDER, f"PluggedCameraTest.{test}"],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode, done.stdout


def run_at_once():
    tests = unittest.defaultTestLoader.getTestCaseNames(PluggedCameraTest)
    with concurrent.futures.ThreadPoolExecutor(TESTS_AT_ONCE) as pool:
        results = list(pool.map(run_alone, tests))
    for status, output in results:
        if status != 0:
            print(output)
    print(f"{len(results)} tests, {sum(status != 0 for status, _ in results)} failed")
    return any(status != 0 for status, _ in results) or not results


if __name__ == "__main__":
    if len(sys.argv) == 1:
        sys.exit(run_at_once())
    unittest.main(argv=[sys.argv[0], *sys.argv[1:]])
