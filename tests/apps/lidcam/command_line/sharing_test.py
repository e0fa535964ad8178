"""Several processes with one LIDCAM_HOME."""

import os
import signal
import subprocess
import time
import unittest

from command_line import CommandLineTest, LIDCAM


class SharingTest(CommandLineTest):
    def start(self, *arguments):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        return subprocess.Popen([LIDCAM, *arguments], stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, env=environment)

    def streaming(self, *arguments):
        """A stream that runs by now; it ends with end()."""
        process = self.start("stream", "--trace", *arguments)
        for line in process.stderr:
            if line.startswith(b"pin frame picture="):
                return process
        self.fail("the stream has ended")

    def end(self, process):
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 0)

    def all_done(self, processes):
        for process in processes:
            _, error = process.communicate(timeout=60)
            self.assertEqual((process.returncode, error), (0, b""))

    def test_a_camera_that_cannot_be_streamed_is_not_shared(self):
        result = self.run_lidcam("share", "--camera", "sim:1b17:6100")
        if b"built without" in result.stderr:
            self.skipTest("built without PipeWire")
        self.assert_one_line_error(result, 1, "sim:1b17:6100", "can't be streamed", "its frame size is not known")

    def test_two_values_that_are_set_at_once_are_both_stored(self):
        for value in range(1, 21):
            self.all_done([self.start("set", f"Brightness={value}"),
                           self.start("set", f"Saturation={100 + value}")])
            self.assertEqual(self.lidcam("get", "Brightness", "Saturation"),
                             f"Brightness={value}\nSaturation={100 + value}\n")

    # Neither waits for the other, and both have the settings of one identity.
    def test_cameras_of_one_identity_lose_no_value_of_each_other(self):
        for value in range(1, 11):
            self.all_done([
                self.start("set", f"Brightness={value}"),
                self.start("set", "--camera", "sim,seed=2", f"Saturation={100 + value}"),
                self.start("set", "--camera", "sim,seed=3", f"Exposure={value}")])
            self.assertEqual(
                self.lidcam("get", "Brightness", "Saturation", "Exposure", "AutoExposure"),
                f"Brightness={value}\nSaturation={100 + value}\nExposure={value}\nAutoExposure=0\n")
            os.remove(self.path("home/registry.reg"))

    def test_cameras_of_other_identities_lose_no_value_of_each_other(self):
        cameras = ("sim:1af0:0511", "sim:1af0:6010", "sim:1b17:6111")
        for value in range(1, 8):
            self.all_done([self.start("set", "--camera", camera, f"Contrast={value}")
                           for camera in cameras])
            for camera in cameras:
                self.assertEqual(self.lidcam("get", "--camera", camera, "Contrast"),
                                 f"Contrast={value}\n")

    def test_the_end_of_a_stream_undoes_nothing_that_was_set_meanwhile(self):
        stream = self.streaming("--camera", "sim,seed=2", "--set", "Gamma=5", "--save")
        self.lidcam("set", "Contrast=12")
        self.end(stream)
        self.assertEqual(self.lidcam("get", "Contrast", "Gamma"), "Contrast=12\nGamma=5\n")

    def test_a_camera_that_another_process_has_is_told_with_it(self):
        stream = self.streaming("--size", "160x120")
        for command in (("stream", "--fast", "--frames", "1"), ("set", "Contrast=3"),
                        ("still", "--fast", "-o", self.path("a.png")),
                        ("record", "--fast", "--frames", "1", "-o", self.path("a.pcap")),
                        ("registers", "write", "bridge", "0x77", "1"),
                        ("set", "--camera", "sim:1af0:0511,seed=1", "Contrast=3")):
            self.assert_one_line_error(
                self.run_lidcam(*command), 1,
                f"is in use by {stream.pid} (lidcam stream --trace --size 160x120)", "--wait")
        self.end(stream)
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=10\n")
        self.assert_nothing_left()

    def test_a_camera_that_another_process_has_can_be_read(self):
        stream = self.streaming()
        for command in (("list",), ("formats",), ("controls",), ("get",),
                        ("registers", "read", "bridge", "0x77"), ("registers", "trace")):
            self.lidcam(*command)
        self.end(stream)

    def test_other_cameras_stream_at_the_same_time(self):
        stream = self.streaming()
        for camera in ("sim,seed=2", "sim:1af0:6010"):
            self.lidcam("stream", "--fast", "--frames", "1", "--camera", camera)
        self.end(stream)

    def test_a_recording_is_for_any_number(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "3", "-o", capture)
        self.all_done([self.start("stream", "-q", "--camera", f"capture:{capture}")
                       for _ in range(4)])

    def test_wait_waits_until_the_camera_is_free(self):
        stream = self.streaming()
        waiting = self.start("set", "--wait", "Contrast=12")
        self.assertEqual(waiting.stderr.readline().decode(),
                         f"lidcam: waiting for camera 'sim', in use by {stream.pid} "
                         "(lidcam stream --trace)\n")
        self.assertIsNone(waiting.poll())
        self.end(stream)
        output, error = waiting.communicate(timeout=60)
        self.assertEqual((waiting.returncode, output, error), (0, b"Contrast=12\n", b""))

    def test_a_wait_can_be_interrupted(self):
        stream = self.streaming()
        waiting = self.start("stream", "--wait")
        waiting.stderr.readline()
        waiting.send_signal(signal.SIGINT)
        _, error = waiting.communicate(timeout=60)
        self.assertEqual(waiting.returncode, 1)
        self.assertIn(f"lidcam: interrupted while camera 'sim' was in use by {stream.pid} ",
                      error.decode())
        self.end(stream)

    def test_a_killed_process_leaves_its_camera_free(self):
        stream = self.streaming()
        stream.kill()
        stream.communicate()
        begin = time.monotonic()
        self.lidcam("set", "Contrast=12")
        self.assertLess(time.monotonic() - begin, 60)


if __name__ == "__main__":
    unittest.main(verbosity=1)
