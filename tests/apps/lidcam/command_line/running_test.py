"""A camera that one process has open, reached by others: set, get, controls, still and status.

Usage: python3 running_test.py LIDCAM [unittest arguments]
"""

import json
import os
import signal
import socket
import stat
import subprocess
import time
import unittest

from command_line import LIDCAM, CommandLineTest


class RunningTest(CommandLineTest):
    def setUp(self):
        super().setUp()
        # A socket's path is short.
        self.runtime = self.path("run")
        os.mkdir(self.runtime)
        os.environ["XDG_RUNTIME_DIR"] = self.runtime
        self.addCleanup(os.environ.pop, "XDG_RUNTIME_DIR")

    def socket_path(self):
        return os.path.join(self.runtime, "lidcam", "1af0-0511-seed1.sock")

    def stream(self, *arguments):
        """A stream that runs and takes requests."""
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        process = subprocess.Popen([LIDCAM, "stream", "-q", *arguments], env=environment,
                                   stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.await_socket(process)
        return process

    def await_socket(self, process):
        end = time.monotonic() + 60
        while True:
            try:
                with self.connect():
                    return
            except OSError:
                self.assertIsNone(process.poll(), "the stream has ended")
                self.assertLess(time.monotonic(), end)
                time.sleep(0.02)

    def connect(self):
        connection = socket.socket(socket.AF_UNIX)
        try:
            connection.settimeout(60)
            connection.connect(self.socket_path())
        except OSError:
            connection.close()
            raise
        return connection

    def ask(self, connection, request):
        connection.sendall(json.dumps(request).encode() + b"\n")
        with connection.makefile("rb") as answers:
            return json.loads(answers.readline())

    def end(self, process):
        process.send_signal(signal.SIGINT)
        process.wait(60)

    def test_a_set_reaches_the_running_camera_and_persists(self):
        process = self.stream()
        self.assertEqual(self.lidcam("set", "Contrast=12", "Mirror=1"), "Contrast=12\nMirror=1\n")
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=12\n")
        rows = json.loads(self.lidcam("controls", "--json"))
        self.assertEqual([row["value"] for row in rows if row["name"] == "Contrast"], [12])
        self.end(process)
        self.assertEqual(self.lidcam("get", "Contrast", "Mirror"), "Contrast=12\nMirror=1\n")

    def test_a_camera_that_is_recorded_takes_requests_too(self):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        process = subprocess.Popen([LIDCAM, "record", "-q", "--size", "160x120", "-o", self.path("bus.pcap")],
                                   env=environment, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.await_socket(process)
        self.assertEqual(self.lidcam("set", "Contrast=12"), "Contrast=12\n")
        status = json.loads(self.lidcam("status", "--json"))
        self.assertTrue(status["streams"])
        self.assertIn("lidcam record", status["command"])
        while json.loads(self.lidcam("status", "--json"))["frames"] == 0:
            time.sleep(0.05)
        self.end(process)
        self.assertEqual(process.returncode, 0)
        self.assertGreater(os.path.getsize(self.path("bus.pcap")), 10000)

    def test_a_set_persists_when_the_stream_is_killed_behind_it(self):
        process = self.stream()
        self.lidcam("set", "Contrast=12")
        process.kill()
        process.wait()
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=12\n")

    def test_what_is_set_for_the_stream_alone_is_seen_and_does_not_persist(self):
        process = self.stream("--set", "Gamma=7")
        self.assertEqual(self.lidcam("get", "Gamma"), "Gamma=7\n")
        self.lidcam("set", "Contrast=12")
        self.end(process)
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=12\n")
        self.assertNotEqual(self.lidcam("get", "Gamma"), "Gamma=7\n")

    def test_manual_exposure_that_is_set_there_persists_with_the_automatic_one_off(self):
        process = self.stream()
        self.lidcam("set", "Exposure=30")
        self.end(process)
        self.assertEqual(self.lidcam("get", "Exposure", "AutoExposure"),
                         "Exposure=30\nAutoExposure=0\n")

    def test_two_setters_at_once_both_persist(self):
        process = self.stream()
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        setters = [subprocess.Popen([LIDCAM, "set", value], env=environment,
                                    stdout=subprocess.DEVNULL)
                   for value in ("Contrast=12", "Mirror=1", "Gamma=7", "Sharpness=1")]
        for setter in setters:
            self.assertEqual(setter.wait(60), 0)
        self.end(process)
        self.assertEqual(self.lidcam("get", "Contrast", "Mirror", "Gamma", "Sharpness"),
                         "Contrast=12\nMirror=1\nGamma=7\nSharpness=1\n")

    def test_errors_are_those_of_a_camera_that_is_free(self):
        self.stream()
        self.assert_one_line_error(self.run_lidcam("set", "Contrst=12"), 2, "Contrst", "unknown")
        self.assert_one_line_error(self.run_lidcam("set", "Contrast=900"), 2, "900")
        result = self.run_lidcam("set", "WhiteBalance=1")
        self.assert_one_line_error(result, 1, "WhiteBalance stays")
        self.assert_one_line_error(self.run_lidcam("stream", "--frames", "1"), 1, "is in use by")

    def test_a_still_is_taken_of_the_running_stream(self):
        self.stream()
        self.lidcam("still", "--value", "0x1234", "-o", self.path("still.yuy2"))
        with open(self.path("still.yuy2"), "rb") as file:
            picture = file.read()
        self.assertEqual(len(picture), 640 * 480 * 2)
        self.assertEqual(picture[-4:], bytes([3, 0, 0x34, 0x12]))
        self.lidcam("still", "-o", self.path("still.png"))
        self.assertTrue(os.path.exists(self.path("still.png")))

    def test_the_status_names_the_process_and_its_stream(self):
        self.assertEqual(self.lidcam("status"), "sim: not open\n")
        process = self.stream("--size", "320x240")
        status = json.loads(self.lidcam("status", "--json"))
        self.assertEqual(status["process"], process.pid)
        self.assertEqual(status["command"], "lidcam stream -q --size 320x240")
        self.assertEqual(status["size"], "320x240")
        self.assertTrue(status["streams"])
        self.assertIn(f"open in {process.pid} (lidcam stream -q --size 320x240)",
                      self.lidcam("status"))
        self.end(process)
        self.assertEqual(self.lidcam("status"), "sim: not open\n")

    def test_only_the_user_may_open_the_socket(self):
        process = self.stream()
        folder = os.path.dirname(self.socket_path())
        self.assertEqual(stat.S_IMODE(os.stat(folder).st_mode), 0o700)
        self.assertEqual(stat.S_IMODE(os.stat(self.socket_path()).st_mode), 0o600)
        self.end(process)
        self.assertFalse(os.path.exists(self.socket_path()))

    def test_the_socket_of_a_killed_process_is_harmless(self):
        process = self.stream()
        process.kill()
        process.wait()
        self.assertTrue(os.path.exists(self.socket_path()))
        self.assertEqual(self.lidcam("set", "Contrast=12"), "Contrast=12\n")
        self.assertEqual(self.lidcam("status"), "sim: not open\n")
        self.stream()
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=12\n")

    def test_rubbish_ends_that_connection_only(self):
        process = self.stream()
        with self.connect() as kept:
            for rubbish in (b"\n", b"{}\n", b"[1]\n", b"\xff\xfe\n", b'{"do":1}\n', b"x" * 70000):
                with self.connect() as connection:
                    try:
                        connection.sendall(rubbish)
                        self.assertEqual(connection.recv(100), b"", rubbish[:20])
                    except (BrokenPipeError, ConnectionResetError):
                        pass
            for request in ({"do": "dance"}, {"do": "set"}, {"do": "set", "set": 3},
                            {"do": "get", "names": ["Nothing"]}, {"do": "still", "value": "x"}):
                self.assertTrue(self.ask(kept, request)["isUsage"], request)
            self.assertEqual(self.ask(kept, {"do": "get", "names": ["Contrast"]}),
                             {"values": [["Contrast", 10]]})
        self.assertIsNone(process.poll())

    def test_a_client_that_reads_nothing_holds_up_the_others_for_a_short_time_only(self):
        self.stream()
        with self.connect() as silent:
            silent.sendall(b'{"do":"controls"}\n' * 1000)
            self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=10\n")

    def test_a_fast_stream_gives_the_same_frames_with_and_without_the_socket(self):
        self.lidcam("stream", "--fast", "--frames", "20", "-o", self.path("with.yuy2"))
        del os.environ["XDG_RUNTIME_DIR"]
        try:
            self.lidcam("stream", "--fast", "--frames", "20", "-o", self.path("without.yuy2"))
        finally:
            os.environ["XDG_RUNTIME_DIR"] = self.runtime
        with open(self.path("with.yuy2"), "rb") as one, open(self.path("without.yuy2"), "rb") as two:
            self.assertEqual(one.read(), two.read())

    def test_without_a_runtime_folder_the_camera_is_in_use_as_before(self):
        del os.environ["XDG_RUNTIME_DIR"]
        try:
            environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
            process = subprocess.Popen([LIDCAM, "stream", "-q"], env=environment)
            self.addCleanup(process.wait)
            self.addCleanup(process.kill)
            while "open in" not in self.lidcam("status"):
                time.sleep(0.05)
            self.assert_one_line_error(self.run_lidcam("set", "Contrast=12"), 1, "is in use by")
            self.assertIn("which takes no requests", self.lidcam("status"))
        finally:
            os.environ["XDG_RUNTIME_DIR"] = self.runtime


if __name__ == "__main__":
    unittest.main(verbosity=1)
