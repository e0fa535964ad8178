"""The command line end to end, over the simulated camera.

Usage: command_line_test.py LIDCAM [unittest arguments]
"""

import json
import os
import resource
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import unittest

LIDCAM = ""


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
        self.assertEqual(result.returncode, 0, result.stderr.decode())
        return result.stdout.decode()

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


class StreamTest(CommandLineTest):
    def test_a_png_series_has_as_many_pictures_as_frames_were_asked_for(self):
        self.lidcam("stream", "--fast", "--frames", "3", "-o", self.path("card.png"))
        names = sorted(name for name in os.listdir(self.folder) if name.endswith(".png"))
        self.assertEqual(names, ["card-0001.png", "card-0002.png", "card-0003.png"])
        with open(self.path(names[0]), "rb") as file:
            header = file.read(24)
        self.assertEqual(header[:8], b"\x89PNG\r\n\x1a\n")
        self.assertEqual(struct.unpack(">II", header[16:24]), (640, 480))

    def test_raw_output_is_whole_yuy2_pictures(self):
        for size, count in (("640x480", 614400), ("320x240", 153600), ("160x120", 38400)):
            file = self.path("frames.yuy2")
            self.lidcam("stream", "--fast", "--size", size, "--frames", "2", "-o", file)
            self.assertEqual(os.path.getsize(file), 2 * count, size)

    def test_equal_seeds_give_equal_bytes(self):
        def frames(seed):
            file = self.path("frames.yuy2")
            self.lidcam("stream", "--fast", "--camera", f"sim,seed={seed}", "--frames", "3", "-o",
                        file)
            with open(file, "rb") as stream:
                return stream.read()

        self.assertEqual(frames(7), frames(7))

    def test_standard_output_carries_y4m_and_nothing_else(self):
        result = self.run_lidcam("stream", "--fast", "--frames", "2", "-o", "-")
        self.assertEqual(result.returncode, 0)
        header, rest = result.stdout.split(b"\n", 1)
        self.assertTrue(header.startswith(b"YUV4MPEG2 W640 H480 "), header)
        self.assertEqual(len(rest), 2 * (len(b"FRAME\n") + 614400))

    def test_a_reader_that_goes_away_ends_the_stream_with_an_error(self):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        with subprocess.Popen([LIDCAM, "stream", "--fast", "-o", "-"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, env=environment) as process:
            process.stdout.read(1000)
            process.stdout.close()
            error = process.stderr.read().decode()
            self.assertEqual(process.wait(timeout=60), 1)
        self.assertIn("standard output can't be written: Broken pipe", error)

    def test_an_interrupt_ends_in_order_and_keeps_the_frames(self):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        file = self.path("clip.y4m")
        with subprocess.Popen([LIDCAM, "stream", "-o", file], stderr=subprocess.PIPE,
                              env=environment) as process:
            try:
                process.wait(timeout=1.5)
            except subprocess.TimeoutExpired:
                pass
            process.send_signal(signal.SIGINT)
            summary = process.stderr.read().decode()
            self.assertEqual(process.wait(timeout=60), 0, summary)
        self.assertIn("frames good", summary)
        self.assertGreater(os.path.getsize(file), 614400)

    def test_the_summary_in_json_counts_frames(self):
        answer = json.loads(self.lidcam("stream", "--fast", "--frames", "4", "--json"))
        self.assertEqual(answer["identity"], "1af0:0511")
        self.assertEqual(answer["sensor"], "VGA0708")
        self.assertEqual(answer["size"], "640x480")
        self.assertEqual(answer["frames"]["good"], 4)
        self.assertEqual(answer["frames"]["bad"], 0)

    def test_the_trace_names_register_accesses_and_frame_ends(self):
        result = self.run_lidcam("stream", "--fast", "--frames", "1", "--trace")
        lines = result.stderr.decode().split("\n")
        self.assertIn("bus  read  sensor FF02 -> 15", lines)
        self.assertTrue(any(line.startswith("frame end bytes=614466 expected=614466 good")
                            for line in lines))

    def test_every_identity_and_sensor_streams(self):
        cameras = json.loads(self.lidcam("list", "--json"))
        self.assertEqual(len(cameras), 7)
        for camera in cameras:
            for sensor in camera["sensors"]:
                # The first has no frame size. The second is taken for another sensor: 0x1B17:0x6111
                # tells only two of its four apart.
                if (camera["identity"], sensor) in (("1b17:6100", "Reserved3"),
                                                    ("1b17:6111", "VGA7648")):
                    continue
                answer = json.loads(self.lidcam("stream", "--fast", "--frames", "2", "--json",
                                                "--camera", f"{camera['camera']},sensor={sensor}"))
                self.assertEqual(answer["frames"]["good"], 2, camera)

    def test_ffprobe_reads_the_y4m(self):
        if shutil.which("ffprobe") is None:
            self.skipTest("no ffprobe here")
        file = self.path("clip.y4m")
        self.lidcam("stream", "--fast", "--frames", "5", "-o", file)
        probe = subprocess.run(
            ["ffprobe", "-v", "error", "-count_frames", "-show_entries",
             "stream=width,height,pix_fmt,nb_read_frames", "-of", "csv=p=0", file],
            capture_output=True, text=True, check=True)
        self.assertEqual(probe.stdout.strip(), "640,480,yuv422p,5")
        self.assertEqual(probe.stderr, "")


class CaptureTest(CommandLineTest):
    def record(self, *arguments):
        file = self.path("bus.pcap")
        self.lidcam("record", "--fast", "-o", file, *arguments)
        return file

    def test_a_replay_gives_the_frames_of_the_live_run_byte_for_byte(self):
        for camera, size in (("sim", "640x480"), ("sim:1af0:6010,sensor=VGA7648", "320x240"),
                             ("sim:1af0:6011", "160x120")):
            live = self.path("live.yuy2")
            replayed = self.path("replayed.yuy2")
            self.lidcam("stream", "--fast", "--duration", "2s", "--camera", camera, "--size", size,
                        "-o", live)
            capture = self.record("--duration", "2s", "--camera", camera, "--size", size)
            self.lidcam("replay", capture, "-o", replayed)
            with open(live, "rb") as one, open(replayed, "rb") as other:
                frames = one.read()
                self.assertGreater(len(frames), 0)
                self.assertEqual(frames == other.read(), True, camera)

    def test_tshark_decodes_a_recording_without_a_malformed_packet(self):
        if shutil.which("tshark") is None:
            self.skipTest("no tshark here")
        capture = self.record("--duration", "300ms")
        decoded = subprocess.run(["tshark", "-r", capture, "-T", "fields", "-e", "usb.transfer_type"],
                                 capture_output=True, text=True, check=True)
        self.assertEqual(set(decoded.stdout.split()), {"0x00", "0x02"})
        malformed = subprocess.run(["tshark", "-r", capture, "-Y", "_ws.malformed"],
                                   capture_output=True, text=True, check=True)
        self.assertEqual(malformed.stdout, "")

    def test_a_capture_is_a_camera_to_stream_from(self):
        capture = self.record("--frames", "3")
        answer = json.loads(self.lidcam("stream", "--json", "--camera", f"capture:{capture}"))
        self.assertEqual(answer["frames"]["good"], 3)

    def test_a_list_with_a_missing_capture_prints_the_error_alone(self):
        missing = self.path("missing.pcap")
        result = self.run_lidcam("list", missing)
        self.assert_one_line_error(result, 1, missing)
        self.assertEqual(result.stdout, b"")

    def test_a_capture_without_the_camera_is_told(self):
        foreign = self.path("bus.pcap")
        whole = self.record("--frames", "1")
        with open(whole, "rb") as source:
            content = source.read()
        # Another vendor in the device descriptor, no register requests: a device of somebody else.
        content = content.replace(bytes.fromhex("f01a1105"), bytes.fromhex("34121105"))
        with open(foreign, "wb") as file:
            file.write(content)
        self.assert_one_line_error(self.run_lidcam("replay", foreign), 1, foreign)

    def test_list_shows_the_devices_of_a_capture(self):
        capture = self.record("--frames", "1")
        rows = json.loads(self.lidcam("list", "--json", capture))
        self.assertEqual(rows[-1]["identity"], "1af0:0511")

    def test_captures_that_are_none_are_told_apart(self):
        empty = self.path("empty.pcap")
        open(empty, "wb").close()
        text = self.path("text.pcap")
        with open(text, "w", encoding="ascii") as file:
            file.write("this is no capture\n" * 10)
        foreign = self.path("foreign.pcap")
        with open(foreign, "wb") as file:
            file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
        whole = self.record("--frames", "1")
        cut = self.path("cut.pcap")
        with open(whole, "rb") as source, open(cut, "wb") as file:
            file.write(source.read(100_001))
        for name in (self.path("missing.pcap"), empty, text, foreign, cut):
            self.assert_one_line_error(
                self.run_lidcam("replay", name, "-o", self.path("out.y4m")), 1, name)
        self.assert_nothing_left("empty.pcap", "text.pcap", "foreign.pcap", "cut.pcap", "bus.pcap")


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
                self.run_lidcam(command, "--fast", "--frames", "30", "-o", "/dev/full"), 1,
                "/dev/full", "No space left on device")

    def test_a_full_disk_leaves_nothing_under_the_name(self):
        def limit_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (8_000, 8_000))

        for command, name in (("stream", "clip.y4m"), ("stream", "clip.yuy2"),
                              ("stream", "card.png"), ("record", "bus.pcap")):
            file = self.path(name)
            result = self.run_lidcam(command, "--fast", "--frames", "10", "-o", file,
                                     preexec_fn=limit_files)
            self.assert_one_line_error(result, 1, file[:-4], "File too large")
            self.assert_nothing_left()

    def test_a_failed_stream_keeps_the_file_of_before(self):
        file = self.path("clip.y4m")
        with open(file, "w", encoding="ascii") as before:
            before.write("precious")

        def limit_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (1_000_000, 1_000_000))

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


class ControlsTest(CommandLineTest):
    def test_a_control_can_change_while_the_stream_runs(self):
        def brightest(*arguments):
            file = self.path("frames.yuy2")
            self.lidcam("stream", "--fast", "--frames", "4", "-o", file, *arguments)
            with open(file, "rb") as stream:
                return max(stream.read()[-614400::2])

        before = brightest()
        self.assertLess(brightest("--set", "Brightness=-100"), before)
        self.assertEqual(self.lidcam("get", "Brightness"), "Brightness=-100\n")

    def test_what_is_set_is_there_tomorrow(self):
        self.lidcam("set", "Contrast=12", "mirror=1", "Brightness=-30")
        self.assertEqual(self.lidcam("get", "Contrast", "Mirror", "Brightness"),
                         "Contrast=12\nMirror=1\nBrightness=-30\n")

    def test_identities_keep_settings_of_their_own(self):
        self.lidcam("set", "Contrast=12")
        self.assertEqual(self.lidcam("get", "--camera", "sim:1af0:6010", "Contrast"), "Contrast=10\n")

    def test_defaults_stand_before_anything_is_set(self):
        values = json.loads(self.lidcam("get", "--json"))
        self.assertEqual(values, {
            "Brightness": 20, "Contrast": 10, "Saturation": 120, "Sharpness": 3, "Gamma": 11,
            "ColorEnable": 1, "BackLight": 0, "AutoExposure": 1, "Exposure": 1, "Mirror": 0,
            "Vertical": 0, "Flicker": 1, "Effect": 0, "LDMode": 0, "LED": 4})

    def test_brightness_reaches_the_register_at_once(self):
        self.lidcam("set", "Brightness=40")
        rows = json.loads(self.lidcam("controls", "--json"))
        self.assertEqual(rows[0]["reports"], "bridge FF77=28")

    def test_a_mistake_in_one_assignment_changes_nothing(self):
        result = self.run_lidcam("set", "Contrast=12", "Gamma=21")
        self.assert_one_line_error(result, 2, "Gamma", "21", "1 to 20")
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=10\n")
        self.assert_one_line_error(self.run_lidcam("set", "Sepia=1"), 2, "Sepia", "Saturation")
        self.assert_one_line_error(self.run_lidcam("set", "Contrast"), 2, "Contrast", "NAME=VALUE")

    def test_each_control_row_has_range_default_and_value(self):
        rows = json.loads(self.lidcam("controls", "--json"))
        for row in rows:
            self.assertLessEqual(row["minimum"], row["default"])
            self.assertLessEqual(row["default"], row["maximum"])
            self.assertEqual(row["value"], row["default"], row["name"])
        self.assertEqual(len(rows), 15)


class RegistersTest(CommandLineTest):
    def test_both_forms_of_an_address_name_the_same_register(self):
        self.assertEqual(self.lidcam("registers", "read", "bridge", "0x77"), "bridge FF77 = 14\n")
        self.assertEqual(self.lidcam("registers", "read", "bridge", "0xFF77"), "bridge FF77 = 14\n")

    def test_a_write_is_read_back(self):
        self.assertEqual(self.lidcam("registers", "write", "bridge", "0x77", "0x21"),
                         "bridge FF77 = 21\n")

    def test_addresses_that_are_none_are_refused(self):
        for address in ("0x1234", "0xFFFF", "0xFF", "seven"):
            self.assert_one_line_error(self.run_lidcam("registers", "read", "bridge", address), 2,
                                       address)

    def test_the_dump_has_sixteen_rows(self):
        self.assertEqual(len(self.lidcam("registers", "dump", "sensor").strip().split("\n")), 17)

    def test_the_trace_of_a_bring_up_begins_with_the_mode_register(self):
        lines = self.lidcam("registers", "trace").split("\n")
        self.assertTrue(lines[0].startswith("bus  read  bridge FF0A -> "))
        self.assertIn("sensor type 9", lines)


if __name__ == "__main__":
    LIDCAM = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=1)
