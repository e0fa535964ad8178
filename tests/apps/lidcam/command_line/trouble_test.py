"""Streams that are cut short: the frames so far are kept, and the output is reported as incomplete."""

import json
import os
import resource
import signal
import subprocess
import time
import unittest

from command_line import CommandLineTest, LIDCAM

PICTURE = 614400


class TroubleTest(CommandLineTest):
    def start(self, *arguments, **options):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        return subprocess.Popen([LIDCAM, *arguments], stderr=subprocess.PIPE, env=environment,
                                **options)

    def frames_in(self, name):
        size = os.path.getsize(self.path(name))
        self.assertEqual(size % PICTURE, 0, "only whole frames")
        return size // PICTURE

    def assert_cut_short(self, error, frames, *words):
        """A summary that counts the frames, and a last line with the reason for the early end."""
        lines = error.strip().split("\n")
        self.assertIn(f": {frames} frame", lines[0], error)
        self.assertTrue(lines[-1].startswith("lidcam: "), error)
        for word in words:
            self.assertIn(word, lines[-1])

    def wait_for_frame(self, process, count):
        """Reads the trace up to a frame; the rest is read, too, so that the pipe doesn't block."""
        for line in process.stderr:
            count -= line.startswith(b"pin frame picture=")
            if count == 0:
                return

    def untraced(self, process):
        """What is left on standard error, without the trace."""
        heads = ("lidcam: ", "1af0:0511 ", "processor time: ", "written to ", "faults on the bus: ")
        lines = process.stderr.read().decode().split("\n")
        return "\n".join(line for line in lines if line.startswith(heads))

    def test_a_camera_that_falls_silent_leaves_its_frames(self):
        result = self.run_lidcam("stream", "--fast", "--duration", "30s", "--faults",
                                 "at 1s fail 3", "-o", self.path("clip.yuy2"), "--log",
                                 self.path("frames.csv"))
        self.assertEqual(result.returncode, 1)
        self.assert_cut_short(result.stderr.decode(), 26, "no whole frame for 5 s after frame 26")
        self.assertEqual(self.frames_in("clip.yuy2"), 26)
        with open(self.path("frames.csv"), encoding="ascii") as log:
            self.assertEqual(len(log.readlines()), 27)
        self.assert_nothing_left("clip.yuy2", "frames.csv")

    def test_a_recording_of_a_camera_that_falls_silent_replays(self):
        capture = self.path("bus.pcap")
        result = self.run_lidcam("record", "--fast", "--faults", "at 1s fail 3", "-o", capture)
        self.assertEqual(result.returncode, 1)
        self.assert_cut_short(result.stderr.decode(), 26, "no whole frame for 5 s after frame 26")
        # The replay waits for the camera as a stream does.
        answer = json.loads(self.run_lidcam("replay", capture, "--json").stdout)
        self.assertEqual(answer["frames"]["good"], 26)

    def test_the_json_tells_of_the_trouble(self):
        result = self.run_lidcam("stream", "--fast", "--faults", "at 1s fail 3", "--json", "-o",
                                 self.path("clip.yuy2"))
        answer = json.loads(result.stdout)
        self.assertEqual((answer["frames"]["delivered"], answer["written"]), (26, 26))
        self.assertEqual(answer["troubles"],
                         ["the camera sent no whole frame for 5 s after frame 26"])

    def test_a_request_to_end_keeps_the_frames_and_fails(self):
        for ask, word in ((signal.SIGTERM, "ended by SIGTERM after frame "),
                          (signal.SIGHUP, "ended by SIGHUP after frame ")):
            for fast in ((), ("--fast",)):
                with self.start("stream", *fast, "--trace", "-o", self.path("clip.yuy2")) as process:
                    self.wait_for_frame(process, 3)
                    process.send_signal(ask)
                    error = self.untraced(process)
                    self.assertEqual(process.wait(timeout=60), 1, error)
                frames = self.frames_in("clip.yuy2")
                self.assertGreater(frames, 0)
                self.assert_cut_short(error, frames, f"{word}{frames}")
                self.assert_nothing_left("clip.yuy2")

    def test_a_recording_that_is_asked_to_end_replays(self):
        capture = self.path("bus.pcap")
        with self.start("record", "--fast", "--trace", "-o", capture) as process:
            self.wait_for_frame(process, 5)
            process.send_signal(signal.SIGHUP)
            error = self.untraced(process)
            self.assertEqual(process.wait(timeout=60), 1)
        self.assertIn("ended by SIGHUP after frame ", error)
        self.assertGreater(json.loads(self.lidcam("replay", capture, "--json"))["frames"]["good"], 0)

    def test_an_interrupt_ahead_of_the_end_that_was_asked_for_fails(self):
        with self.start("stream", "--fast", "--trace", "--duration", "1000s") as process:
            self.wait_for_frame(process, 3)
            process.send_signal(signal.SIGINT)
            error = self.untraced(process)
            self.assertEqual(process.wait(timeout=60), 1)
        self.assertIn("lidcam: interrupted after frame ", error)

    def test_an_interrupt_ends_a_stream_without_an_end_as_it_should_be(self):
        with self.start("stream", "--fast", "--trace") as process:
            self.wait_for_frame(process, 3)
            process.send_signal(signal.SIGINT)
            error = self.untraced(process)
            self.assertEqual(process.wait(timeout=60), 0, error)

    def test_a_hangup_that_is_ignored_stays_ignored(self):
        with self.start("stream", "--fast", "--trace", "--frames", "60", preexec_fn=lambda: signal
                        .signal(signal.SIGHUP, signal.SIG_IGN)) as process:
            self.wait_for_frame(process, 3)
            process.send_signal(signal.SIGHUP)
            self.assertIn(": 60 frames delivered", self.untraced(process))
            self.assertEqual(process.wait(timeout=60), 0)

    # As timeout sends it: to the program, and to its process group.
    def test_a_request_that_comes_twice_at_once_is_one(self):
        with self.start("stream", "--trace", "-o", self.path("clip.yuy2")) as process:
            self.wait_for_frame(process, 3)
            for _ in range(2):
                process.send_signal(signal.SIGTERM)
            error = self.untraced(process)
            self.assertEqual(process.wait(timeout=60), 1, error)
        self.assertIn("ended by SIGTERM", error)

    def test_a_second_request_ends_the_program_at_once(self):
        # The bring-up takes this long and can't be cut short.
        with self.start("stream", "--faults", "control 3 late 100s") as process:
            time.sleep(1)
            process.send_signal(signal.SIGTERM)
            time.sleep(1)
            self.assertIsNone(process.poll())
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(timeout=60), -signal.SIGINT)
            process.stderr.read()

    def test_a_reader_that_takes_nothing_holds_no_request_to_end_up(self):
        with self.start("stream", "--fast", "-o", "-", stdout=subprocess.PIPE) as process:
            time.sleep(2)
            self.assertIsNone(process.poll())
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(timeout=60), 1)
            self.assertIn("standard output is not read: interrupted",
                          process.stderr.read().decode())
            process.stdout.close()

    def test_a_full_disk_keeps_the_whole_frames(self):
        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (2_000_000, 2_000_000))

        with open(self.path("clip.yuy2"), "w", encoding="ascii") as before:
            before.write("of before")
        result = self.run_lidcam("stream", "--fast", "--frames", "10", "-o", self.path("clip.yuy2"),
                                 preexec_fn=limit_files)
        self.assertEqual(result.returncode, 1)
        self.assert_cut_short(result.stderr.decode(), 4, self.path("clip.yuy2"), "File too large")
        self.assertIn("clip.yuy2: 3 frames\n", result.stderr.decode())
        self.assertEqual(self.frames_in("clip.yuy2"), 3)
        self.assert_nothing_left("clip.yuy2")

    def test_a_full_disk_keeps_a_y4m_that_other_programs_read(self):
        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (2_000_000, 2_000_000))

        result = self.run_lidcam("stream", "-q", "--fast", "--frames", "10", "-o",
                                 self.path("clip.y4m"), preexec_fn=limit_files)
        self.assert_one_line_error(result, 1, "File too large")
        with open(self.path("clip.y4m"), "rb") as clip:
            header, rest = clip.read().split(b"\n", 1)
        self.assertTrue(header.startswith(b"YUV4MPEG2 "))
        self.assertEqual(len(rest), 3 * (len(b"FRAME\n") + PICTURE))

    def test_a_full_disk_keeps_a_recording_that_replays(self):
        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (5_000_000, 5_000_000))

        capture = self.path("bus.pcap")
        result = self.run_lidcam("record", "--fast", "--frames", "30", "-o", capture,
                                 preexec_fn=limit_files)
        self.assertEqual(result.returncode, 1)
        error = result.stderr.decode()
        self.assertIn("can't write the capture: File too large", error.strip().split("\n")[-1])
        self.assertIn(f"written to {capture}\n", error)
        self.assertGreater(json.loads(self.lidcam("replay", capture, "--json"))["frames"]["good"], 2)
        self.assert_nothing_left("bus.pcap")

    def test_a_log_without_room_keeps_its_rows_and_the_frames(self):
        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (8_000, 8_000))

        result = self.run_lidcam("stream", "-q", "--fast", "--frames", "300", "--log",
                                 self.path("frames.csv"), preexec_fn=limit_files)
        self.assert_one_line_error(result, 1, self.path("frames.csv"), "File too large")
        with open(self.path("frames.csv"), encoding="ascii") as log:
            rows = log.read().split("\n")
        self.assertEqual(rows.pop(), "", "only whole rows")
        self.assertGreater(len(rows), 2)

    def test_a_reader_that_goes_away_leaves_summary_and_log(self):
        with self.start("stream", "--fast", "-o", "-", "--log", self.path("frames.csv"),
                        stdout=subprocess.PIPE) as process:
            process.stdout.read(1000)
            process.stdout.close()
            error = process.stderr.read().decode()
            self.assertEqual(process.wait(timeout=60), 1)
        lines = error.strip().split("\n")
        self.assertEqual(len(lines), 2, error)
        self.assertIn(" delivered; ", lines[0])
        self.assertEqual(lines[1], "lidcam: standard output can't be written: Broken pipe")
        with open(self.path("frames.csv"), encoding="ascii") as log:
            self.assertGreater(len(log.readlines()), 1)


if __name__ == "__main__":
    unittest.main(verbosity=1)
