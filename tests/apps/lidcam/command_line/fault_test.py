"""Streams over a bus on which things go wrong, end to end."""

import json
import os
import unittest

from command_line import CommandLineTest

PICTURE = 614400


class FaultTest(CommandLineTest):
    def stream(self, faults, *arguments):
        return self.run_lidcam("stream", "--fast", "--duration", "3s", "--faults", faults, "-o",
                               self.path("frames.yuy2"), *arguments)

    def frames_kept(self):
        size = os.path.getsize(self.path("frames.yuy2"))
        self.assertEqual(size % PICTURE, 0)
        return size // PICTURE

    def test_lost_packets_make_one_bad_frame_and_the_stream_goes_on(self):
        result = self.stream("at 1s lose 5", "--json")
        self.assertEqual(result.returncode, 0, result.stderr)
        answer = json.loads(result.stdout)
        self.assertEqual(answer["faults"], "stream: 5 lose")
        self.assertEqual(answer["frames"]["bad"], 1)
        self.assertGreater(answer["frames"]["good"], 80)

    def test_a_packet_of_a_frame_is_lost_and_a_frame_that_pauses_is_whole(self):
        result = self.stream("frame 20 packet 5 lose 2; frame 40 packet 9 pause 2ms", "--json",
                             "--trace")
        self.assertEqual(result.returncode, 0, result.stderr)
        answer = json.loads(result.stdout)
        self.assertEqual(answer["faults"], "frame: 2 lose, 1 pause")
        self.assertEqual(answer["frames"]["bad"], 1)
        self.assertIn("bus  fault frame 40 packet 9 pause 2ms", result.stderr.decode())

    def test_faults_of_frames_are_refused_where_frames_cannot_be_told_apart(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "3", "-o", capture)
        result = self.stream("at 1s lose; frame 20 packet 5 lose", "--camera", "capture:" + capture)
        self.assert_one_line_error(result, 2, "'frame 20 packet 5 lose' needs a simulated camera",
                                   "at TIME")

    def test_an_unplugged_camera_is_told_and_its_frames_are_kept(self):
        result = self.stream("at 1s unplug", "--quiet")
        self.assert_one_line_error(result, 1, "the camera was unplugged after frame 26")
        self.assertEqual(self.frames_kept(), 26)

    def test_a_camera_unplugged_in_real_time_keeps_its_frames(self):
        result = self.run_lidcam("stream", "--duration", "3s", "--quiet", "--faults",
                                 "at 1500ms unplug", "-o", self.path("frames.yuy2"))
        self.assert_one_line_error(result, 1, "the camera was unplugged after frame ")
        # How many there are by then is the machine's: a busy one loses some.
        told = int(result.stderr.decode().strip().split(" ")[-1])
        self.assertGreater(told, 0)
        self.assertEqual(self.frames_kept(), told)

    def test_a_camera_unplugged_before_its_first_frame_leaves_nothing(self):
        result = self.stream("at 10ms unplug", "--quiet")
        self.assert_one_line_error(result, 1, "unplugged before its first frame")
        self.assert_nothing_left()

    def test_a_camera_unplugged_while_it_comes_up_is_told(self):
        result = self.stream("control 50 unplug", "--quiet")
        self.assert_one_line_error(result, 1, "did not come up", "unplugged")
        self.assert_nothing_left()

    def test_an_unplugged_recording_is_kept_and_replays(self):
        capture = self.path("bus.pcap")
        result = self.run_lidcam("record", "--fast", "--duration", "3s", "--quiet", "--faults",
                                 "at 1s unplug", "-o", capture)
        self.assert_one_line_error(result, 1, "the camera was unplugged after frame 26")
        answer = json.loads(self.lidcam("replay", capture, "--json"))
        self.assertEqual(answer["frames"]["good"], 26)

    def test_a_narrow_bus_gives_a_smaller_raw_picture(self):
        result = self.stream("setting 7 refuse", "--json")
        self.assertEqual(json.loads(result.stdout)["rawSize"], "320x240")

    # A circle of transfers that breaks is started again on the interface's first pipe, which carries
    # no picture.
    def test_a_failed_read_ends_in_silence_that_is_told_and_the_frames_are_kept(self):
        result = self.stream("at 1s fail", "--quiet")
        self.assert_one_line_error(result, 1, "no whole frame for 5 s after frame 26")
        self.assertEqual(self.frames_kept(), 26)

    def test_an_answer_that_is_later_than_the_host_waits_costs_no_frame(self):
        result = self.stream("control 400 late 6s", "--json")
        answer = json.loads(result.stdout)
        self.assertEqual(answer["faults"], "control: 1 late")
        self.assertGreater(answer["frames"]["good"], 80)

    def test_the_trace_shows_the_fault_and_the_stream_states(self):
        result = self.stream("at 1s silence 400ms", "--trace", "--quiet")
        lines = result.stderr.decode().split("\n")
        for line in ("stream hardware start -> 00000000", "stream acquire -> 00000000",
                     "stream run -> 00000000", "bus  fault at 1001125us silence 400ms",
                     "stream pause -> 00000000", "stream release -> 00000000",
                     "stream hardware stop -> 00000000"):
            self.assertIn(line, lines)

    def test_equal_seeds_give_equal_bytes_and_equal_traces(self):
        def run():
            result = self.stream("seed=3,packets", "--trace", "--quiet")
            data = b""
            if os.path.exists(self.path("frames.yuy2")):
                with open(self.path("frames.yuy2"), "rb") as file:
                    data = file.read()
            return result.returncode, result.stderr, data

        first = run()
        self.assertEqual(run(), first)
        self.assertIn(b"bus  fault", first[1])

    def test_a_script_can_stand_in_a_file(self):
        with open(self.path("faults.txt"), "w", encoding="ascii") as file:
            file.write("# five packets\nat 1s lose 5\n")
        result = self.stream(self.path("faults.txt"), "--json")
        self.assertEqual(json.loads(result.stdout)["faults"], "stream: 5 lose")

    def test_a_script_that_cannot_be_read_is_refused_with_what_would_be_right(self):
        result = self.stream("at 1s explode")
        self.assert_one_line_error(result, 2, "'explode'", "lose", "unplug")

    def test_a_still_of_an_unplugged_camera_is_refused(self):
        result = self.run_lidcam("still", "--fast", "--faults", "at 300ms unplug", "-o",
                                 self.path("still.png"))
        self.assert_one_line_error(result, 1, "unplugged: no still was taken")


if __name__ == "__main__":
    unittest.main()
