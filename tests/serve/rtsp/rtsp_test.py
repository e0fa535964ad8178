"""The camera as an RTSP stream: foreign viewers, many of them, and passwords.

Usage: python3 rtsp_test.py LIDCAM [unittest arguments]
"""

import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from rtsp_viewer import Refused, Viewer

LIDCAM = os.path.abspath(sys.argv.pop(1))

# What GStreamer knows of its plugins: each test would look through all of them again.
REGISTRY = tempfile.TemporaryDirectory(prefix="lidcam-test-registry-")


def end(process):
    process.kill()
    process.wait()
    process.stderr.close()


class RtspTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="lidcam-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.environment = dict(os.environ, LIDCAM_HOME=self.path("home"), LIDCAM_CAMERA="sim",
                                XDG_RUNTIME_DIR=self.folder,
                                GST_REGISTRY=os.path.join(REGISTRY.name, "registry"))

    def path(self, name):
        return os.path.join(self.folder, name)

    def serve(self, *arguments, listen="127.0.0.1:0"):
        """A server; its process and where viewers find the camera."""
        server = subprocess.Popen([LIDCAM, "serve", "rtsp", "--listen", listen, *arguments],
                                  stderr=subprocess.PIPE, env=self.environment)
        self.addCleanup(end, server)
        line = server.stderr.readline().decode()
        found = re.fullmatch(r"lidcam: camera '.*' is served at (rtsp://[\d.]+:\d+/camera)\n", line)
        self.assertIsNotNone(found, line)
        return server, found[1]

    def stop(self, server):
        server.terminate()
        self.assertEqual(server.wait(60), 0)

    def view(self, address, **login):
        viewer = Viewer(address, **login)
        self.addCleanup(viewer.close)
        return viewer

    def run_program(self, *arguments):
        return subprocess.run(arguments, capture_output=True, text=True, timeout=300, check=False,
                              env=self.environment)

    def refused(self, *arguments):
        result = self.run_program(LIDCAM, "serve", "rtsp", *arguments)
        return result.returncode, result.stderr

    def password_file(self, text="secret\n"):
        with open(self.path("password"), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path("password")

    def test_ffprobe_sees_a_stream_of_each_codec(self):
        for codec in ("h264", "mjpeg"):
            server, address = self.serve("--codec", codec, "--size", "320x240")
            result = self.run_program("ffprobe", "-v", "error", "-show_entries",
                                      "stream=codec_name,width,height", "-of", "json", address)
            self.assertEqual(result.returncode, 0, result.stderr)
            (stream,) = json.loads(result.stdout)["streams"]
            self.assertEqual((stream["codec_name"], stream["width"], stream["height"]),
                             (codec, 320, 240))
            self.stop(server)

    def test_rtspsrc_receives_pictures(self):
        _, address = self.serve("--size", "160x120")
        result = self.run_program(
            "gst-launch-1.0", "-q", "rtspsrc", "location=" + address, "latency=0", "!",
            "rtph264depay", "!", "h264parse", "!", "openh264dec", "!", "video/x-raw,width=160", "!",
            "identity", "eos-after=5", "!", "filesink", "location=" + self.path("pictures.yuv"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertGreaterEqual(os.path.getsize(self.path("pictures.yuv")), 4 * 160 * 120 * 3 // 2)

    def test_fifty_viewers_get_the_same_packets_of_one_encoder(self):
        _, address = self.serve("--size", "160x120")
        viewers = [self.view(address) for _ in range(50)]
        for viewer in viewers:
            viewer.play()
        streams = [dict(viewer.packets(30)) for viewer in viewers]
        common = set.intersection(*(set(stream) for stream in streams))
        if not common:
            # The first viewers were far ahead of the last.
            last = max(min(stream) for stream in streams)
            for viewer, stream in zip(viewers, streams):
                while max(stream) < last + 30:
                    stream.update(viewer.packets(1))
            common = set.intersection(*(set(stream) for stream in streams))
        self.assertGreater(len(common), 10)
        for number in common:
            self.assertEqual(len({stream[number] for stream in streams}), 1)

    def test_a_viewer_that_does_not_read_does_not_hold_up_the_others(self):
        _, address = self.serve("--size", "640x480", "--codec", "mjpeg")
        self.view(address).play()
        other = self.view(address)
        other.play()
        # Several megabytes, more than the silent connection has room for.
        self.assertEqual(len(other.packets(6000)), 6000)

    def viewers(self):
        result = self.run_program(LIDCAM, "status", "--camera", "sim", "--json")
        self.assertEqual(result.returncode, 0, result.stderr)
        return json.loads(result.stdout).get("viewers", [])

    def await_viewers(self, count):
        for _ in range(300):
            viewers = self.viewers()
            if len(viewers) == count:
                return viewers
            time.sleep(0.1)
        self.fail(f"not {count} but {viewers}")

    def test_the_status_names_each_viewer_until_it_leaves(self):
        _, address = self.serve("--size", "160x120")
        self.assertEqual(self.viewers(), [])
        first = self.view(address)
        first.play()
        second = self.view(address)
        second.play()
        viewers = self.await_viewers(2)
        for viewer in viewers:
            self.assertRegex(viewer, r"^RTSP: 127\.0\.0\.1:\d+$")
        self.assertEqual(len(set(viewers)), 2)
        second.close()
        self.assertIn(self.await_viewers(1)[0], viewers)

    def test_the_status_names_a_viewer_of_a_camera_that_was_unplugged_meanwhile(self):
        server, address = self.serve("--size", "160x120", "--faults", "at 4s unplug")
        viewer = self.view(address)
        viewer.play()
        viewer.packets(150)
        self.assertEqual(len(self.await_viewers(1)), 1)
        self.stop(server)

    def test_the_camera_is_free_when_the_last_viewer_has_left(self):
        _, address = self.serve("--size", "160x120")
        viewer = Viewer(address)
        viewer.play()
        viewer.packets(3)
        stream = [LIDCAM, "stream", "--camera", "sim", "--size", "160x120", "--frames", "1", "-o",
                  self.path("picture.yuy2")]
        self.assertNotEqual(self.run_program(*stream).returncode, 0)
        viewer.close()
        result = self.run_program(*stream, "--wait")
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_a_viewer_who_comes_back_sees_the_camera_again(self):
        _, address = self.serve("--size", "160x120")
        for _ in range(3):
            viewer = Viewer(address)
            viewer.play()
            self.assertEqual(len(viewer.packets(5)), 5)
            viewer.close()

    def test_an_unplugged_camera_does_not_end_the_stream(self):
        server, address = self.serve("--size", "160x120", "--faults", "at 4s unplug")
        viewer = self.view(address)
        viewer.play()
        viewer.packets(180)
        server.send_signal(signal.SIGTERM)
        text = server.communicate(timeout=120)[1].decode()
        self.assertIn("continues when it is plugged in again", text)
        self.assertIn("the camera is plugged in again", text)

    def test_only_loopback_is_served_without_a_password(self):
        status, text = self.refused("--listen", "0.0.0.0:0")
        self.assertEqual(status, 2)
        self.assertRegex(text, r"lidcam: serve rtsp: 0\.0\.0\.0:\d+ can be reached by other machines: "
                               r"give --user and --password-file\n")

    def test_user_and_password_are_asked_for_where_they_are_set(self):
        arguments = ("--size", "160x120", "--user", "watcher", "--password-file",
                     self.password_file())
        for listen in ("127.0.0.1:0", "0.0.0.0:0"):
            server, address = self.serve(*arguments, listen=listen)
            address = address.replace("0.0.0.0", "127.0.0.1")
            for login in ({}, {"user": "watcher", "password": "guess"},
                          {"user": "other", "password": "secret"}):
                with self.assertRaises(Refused) as refused:
                    self.view(address, **login).play()
                self.assertEqual(refused.exception.args, (401,))
            viewer = self.view(address, user="watcher", password="secret")
            viewer.play()
            self.assertEqual(len(viewer.packets(3)), 3)
            self.stop(server)

    def test_ffprobe_logs_in(self):
        _, address = self.serve("--size", "160x120", "--user", "watcher", "--password-file",
                                self.password_file())
        login = address.replace("rtsp://", "rtsp://watcher:secret@")
        self.assertEqual(self.run_program("ffprobe", "-v", "error", login).returncode, 0)
        self.assertNotEqual(self.run_program("ffprobe", "-v", "error", address).returncode, 0)

    def test_wrong_use_is_told_before_anything_is_served(self):
        for arguments, status, words in (
                (("--camera", "sim:rubbish"), 2, "rubbish"),
                (("--camera", "usb:250-9"), 1, "usb:250-9"),
                (("--size", "1x1"), 2, "1x1"),
                (("--codec", "vp8"), 2, "vp8"),
                (("--user", "me"), 2, "--password-file"),
                (("--user", "a:b", "--password-file", self.password_file()), 2, "a:b"),
                (("--user", "me", "--password-file", self.path("none")), 1, self.path("none")),
                (("--user", "me", "--password-file", self.password_file("")), 1, "password"),
                (("--listen", "rubbish"), 2, "rubbish")):
            result = self.refused(*arguments)
            self.assertEqual(result[0], status, result)
            self.assertIn(words, result[1])

    def test_sigterm_and_ctrl_c_end_it_while_a_viewer_watches(self):
        for request in (signal.SIGTERM, signal.SIGINT):
            server, address = self.serve("--size", "160x120")
            viewer = self.view(address)
            viewer.play()
            viewer.packets(3)
            begin = time.monotonic()
            server.send_signal(request)
            self.assertEqual(server.wait(60), 0)
            # On an idle machine it may take one second.
            self.assertLess(time.monotonic() - begin, 20)


if __name__ == "__main__":
    unittest.main(verbosity=1)
