"""Streams of the simulated camera, end to end."""

import json
import os
import shutil
import signal
import struct
import subprocess
import unittest

from command_line import CommandLineTest, LIDCAM, SIZES


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

    def test_a_set_file_of_the_users_own_changes_the_picture_of_a_simulated_camera(self):
        def frames(**more):
            file = self.path("frames.yuy2")
            environment = dict(os.environ, LIDCAM_HOME=self.path("home"), **more)
            subprocess.run([LIDCAM, "stream", "--fast", "-q", "--frames", "2", "-o", file],
                           env=environment, timeout=120, check=True)
            with open(file, "rb") as stream:
                return stream.read()

        def own_tree(change):
            name = "system32/drivers/S001.set"
            source = self.lidcam("sets", "show", self.path("home/simulated-root/" + name))
            self.assertIn("sensor FF5D = 9C", source)  # the gain
            with open(self.path("S001.txt"), "w", encoding="utf-8") as file:
                file.write(source.replace("sensor FF5D = 9C", "sensor FF5D = " + change))
            tree = self.path("tree" + change)
            os.makedirs(os.path.dirname(os.path.join(tree, name)))
            self.lidcam("sets", "compile", self.path("S001.txt"), "-o", os.path.join(tree, name))
            return tree

        built_in = frames()
        self.assertEqual(frames(LIDCAM_SYSTEM_ROOT=own_tree("9C")), built_in)
        self.assertNotEqual(frames(LIDCAM_SYSTEM_ROOT=own_tree("40")), built_in)

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
        self.assertIn(" frames delivered", summary)
        self.assertIn("ms a frame", summary)
        self.assertGreater(os.path.getsize(file), 614400)

    def test_an_interrupt_saves_the_settings_and_stops_the_stream_in_order(self):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        with subprocess.Popen([LIDCAM, "stream", "--set", "Contrast=13", "--save", "--trace"],
                              stderr=subprocess.PIPE, env=environment) as process:
            lines = []
            for line in process.stderr:
                lines.append(line.decode().rstrip("\n"))
                # The trace is ahead of the application, which has at least the frames before the third.
                if sum(line.startswith("pin frame picture=") for line in lines) == 3:
                    process.send_signal(signal.SIGINT)
                    break
            lines += process.stderr.read().decode().split("\n")
            self.assertEqual(process.wait(timeout=60), 0, lines[-5:])
        order = [lines.index(line) for line in (
            "pin state 2 -> 3 status=00000000", "pin state 3 -> 2 status=00000000",
            "pin state 2 -> 1 status=00000000", "pin state 1 -> 0 status=00000000",
            "device gone reason=0", "stream hardware stop -> 00000000")]
        self.assertEqual(order, sorted(order))
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=13\n")

    def test_processor_time_is_told_of_streams_in_real_time_only(self):
        answer = json.loads(self.lidcam("stream", "--frames", "5", "--json"))
        self.assertGreater(answer["processorMillisecondsPerFrame"], 0)
        answer = json.loads(self.lidcam("stream", "--frames", "5", "--json", "--fast"))
        self.assertNotIn("processorMillisecondsPerFrame", answer)

    def test_a_camera_that_sends_five_frames_a_second_in_the_dark_loses_none(self):
        dark = ("stream", "--fast", "--duration", "10s", "--light", "1lx@0s")
        answer = json.loads(self.lidcam(*dark, "--json"))
        self.assertEqual(answer["frames"], {"delivered": 57, "good": 57, "bad": 0, "startUp": 3,
                                            "settling": 0, "lost": 0})
        # From the first at 0.136 s to the last at 9.868 s; the frames grow longer step by step.
        self.assertAlmostEqual(answer["framesPerSecond"], 56 / 9.732, 3)
        self.assertIn(": 57 frames delivered, 5.75 a second; none lost, none of a wrong size; ",
                      self.run_lidcam(*dark).stderr.decode())

    def test_frames_that_the_driver_leaves_out_as_the_light_changes_are_not_lost(self):
        result = self.run_lidcam("stream", "--fast", "--size", "160x120", "--duration", "20s",
                                 "--mains", "50Hz", "--light", "300lx@0s,1lx@4s,300lx@12s",
                                 "--trace")
        lines = result.stderr.decode().split("\n")
        changes = sum(line.startswith("light ") for line in lines) - 1  # the first is no change
        self.assertGreater(changes, 0)
        self.assertIn(f"; none lost, none of a wrong size, {2 * changes} left out at changes of light; ",
                      lines[-2])

    def test_frames_that_do_not_arrive_behind_the_first_are_lost(self):
        # The frame after a damaged one is dropped, and the damaged one consists of two.
        answer = json.loads(self.lidcam("stream", "--fast", "--duration", "3s", "--json", "--faults",
                                        "at 1s lose 5; at 2s corrupt 1"))
        self.assertEqual((answer["frames"]["bad"], answer["frames"]["lost"]), (1, 1))

    def test_a_single_frame_has_no_rate(self):
        one = ("stream", "--fast", "--frames", "1")
        self.assertIsNone(json.loads(self.lidcam(*one, "--json"))["framesPerSecond"])
        self.assertIn(": 1 frame delivered; none lost, none of a wrong size; ",
                      self.run_lidcam(*one).stderr.decode())

    def test_the_summary_in_json_counts_frames(self):
        answer = json.loads(self.lidcam("stream", "--fast", "--frames", "4", "--json"))
        self.assertEqual(answer["identity"], "1af0:0511")
        self.assertEqual(answer["sensor"], "VGA0708")
        self.assertEqual(answer["size"], "640x480")
        self.assertEqual(answer["frames"]["good"], 4)
        self.assertEqual(answer["frames"]["bad"], 0)
        self.assertEqual(answer["frames"]["delivered"], 4)

    def test_the_trace_names_register_accesses_and_frame_ends(self):
        result = self.run_lidcam("stream", "--fast", "--frames", "1", "--trace")
        lines = result.stderr.decode().split("\n")
        self.assertIn("bus  read  sensor FF02 -> 15", lines)
        self.assertTrue(any(line.startswith("frame end bytes=614466 expected=614466 good")
                            for line in lines))

    def test_the_pin_is_asked_for_a_frame_rate_that_it_offers(self):
        file = self.path("clip.y4m")
        stream = ("stream", "--fast", "--duration", "3s", "-o", file)
        answer = json.loads(self.lidcam(*stream, "--fps", "15", "--constant-rate", "--json"))
        self.assertIn("asked for 15 frames a second and keeps its own rate", answer["note"])
        # From the first frame at 0.136 s to the last at 2.968 s: 42 periods of 1/15 s.
        self.assertEqual(answer["written"], 43)
        with open(file, "rb") as film:
            self.assertIn(b" F1000000:66666 ", film.readline())
        self.assertNotIn("note", json.loads(self.lidcam(*stream, "--size", "320x240", "--fps", "30",
                                                        "--json")))
        for arguments, rates in (((), "6, 10, 12 or 15"),
                                 (("--size", "320x240"), "10, 12, 15, 18, 20, 25 or 30")):
            self.assert_one_line_error(self.run_lidcam("stream", *arguments, "--fps", "24"), 2, "'24'",
                                       "use " + rates)

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


class SizesTest(CommandLineTest):
    def test_every_size_is_delivered_and_told_with_its_raw_size(self):
        for size, raw in SIZES.items():
            width, height = map(int, size.split("x"))
            file = self.path(f"{size}.y4m")
            answer = json.loads(self.lidcam("stream", "--fast", "--size", size, "--frames", "2",
                                            "--json", "-o", file))
            self.assertEqual((answer["size"], answer["rawSize"]), (size, raw))
            self.assertEqual(answer["frames"]["good"], 2)
            with open(file, "rb") as stream:
                header, rest = stream.read().split(b"\n", 1)
            self.assertTrue(header.startswith(f"YUV4MPEG2 W{width} H{height} ".encode()), header)
            self.assertEqual(len(rest), 2 * (len(b"FRAME\n") + 2 * width * height))

    def test_a_picture_has_the_delivered_size(self):
        self.lidcam("stream", "--fast", "--size", "176x144", "--frames", "1", "-o",
                    self.path("card.png"))
        with open(self.path("card-0001.png"), "rb") as file:
            self.assertEqual(struct.unpack(">II", file.read(24)[16:24]), (176, 144))

    def test_the_summary_tells_both_sizes(self):
        result = self.run_lidcam("stream", "--fast", "--size", "352x288", "--frames", "1")
        self.assertIn("352x288 (raw 640x480)", result.stderr.decode())

    def test_the_short_configuration_serves_every_size(self):
        for size in SIZES:
            answer = json.loads(self.lidcam("stream", "--fast", "--frames", "1", "--json", "--size",
                                            size, "--camera", "sim,config=short"))
            self.assertEqual((answer["size"], answer["rawSize"]), (size, "160x120"))
            self.assertEqual(answer["frames"]["good"], 1)

    def test_a_raw_size_can_be_asked_for(self):
        answer = json.loads(self.lidcam("stream", "--fast", "--frames", "1", "--json",
                                        "--raw-size", "160x120"))
        self.assertEqual((answer["size"], answer["rawSize"]), ("640x480", "160x120"))

    def test_sizes_that_there_are_not_are_listed_or_explained(self):
        for arguments, status, words in (
                (("--size", "720x576"), 2,
                 ("720x576", "640x480, 352x288, 320x240, 176x144 or 160x120")),
                (("--raw-size", "352x288"), 2, ("352x288", "640x480, 320x240 or 160x120")),
                (("--raw-size", "640x480", "--size", "320x240"), 1, ("640x480", "320x240")),
                (("--raw-size", "320x240", "--camera", "sim,config=short"), 1,
                 ("320x240", "160x120 only"))):
            self.assert_one_line_error(self.run_lidcam("stream", "--fast", *arguments), status,
                                       *words)

    def test_a_recording_replays_in_any_size_from_its_own(self):
        capture = self.path("bus.pcap")
        for recorded, raw in (("176x144", "320x240"), ("640x480", "640x480")):
            self.lidcam("record", "--fast", "--size", recorded, "--frames", "3", "-o", capture)
            answer = json.loads(self.lidcam("replay", capture, "--json"))
            self.assertEqual((answer["size"], answer["rawSize"]), (raw, raw))
            live = self.path("live.yuy2")
            self.lidcam("stream", "--fast", "--size", recorded, "--frames", "3", "-o", live)
            for size in SIZES:
                replayed = self.path("replayed.yuy2")
                answer = json.loads(self.lidcam("replay", capture, "--size", size, "--json", "-o",
                                                replayed))
                self.assertEqual((answer["size"], answer["rawSize"]), (size, raw))
                self.assertEqual(answer["frames"]["good"], 3)
                if size == recorded:
                    with open(live, "rb") as one, open(replayed, "rb") as other:
                        self.assertEqual(one.read() == other.read(), True, recorded)


if __name__ == "__main__":
    unittest.main(verbosity=1)
