"""The plugin in other programs: GStreamer's own tools, and OpenCV.

Usage: python3 pipeline_test.py LIDCAM PLUGIN_FOLDER CMAKE BUILD_FOLDER [unittest arguments]
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

from sent_pictures import check_pictures, digests_of  # noqa: E402

LIDCAM = os.path.abspath(sys.argv.pop(1))
PLUGINS = os.path.abspath(sys.argv.pop(1))
CMAKE = sys.argv.pop(1)
BUILD = os.path.abspath(sys.argv.pop(1))
GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden")

# What GStreamer knows of its plugins: each test would look through all of them again.
REGISTRY = tempfile.TemporaryDirectory(prefix="lidcam-test-registry-")

SIZES = {"640x480": 614400, "352x288": 202752, "320x240": 153600, "176x144": 50688,
         "160x120": 38400}

READ_WITH_OPENCV = """
import cv2, hashlib, sys
capture = cv2.VideoCapture(sys.argv[1], cv2.CAP_GSTREAMER)
if not capture.isOpened():
    sys.exit("not opened")
for _ in range(3):
    isRead, picture = capture.read()
    if not isRead:
        sys.exit("no picture")
    print(picture.shape, hashlib.sha256(picture.tobytes()).hexdigest())
"""


class PipelineTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="lidcam-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.environment = dict(os.environ, LIDCAM_HOME=self.path("home"), LC_ALL="C.UTF-8",
                                XDG_RUNTIME_DIR=self.folder, GST_PLUGIN_PATH=PLUGINS,
                                GST_REGISTRY=os.path.join(REGISTRY.name, "registry"),
                                LIDCAM_CAMERA="sim")

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_program(self, *arguments, **options):
        return subprocess.run(arguments, capture_output=True, text=True, timeout=300, check=False,
                              env=self.environment, **options)

    def program(self, *arguments):
        result = self.run_program(*arguments)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result.stdout

    def launch(self, *pipeline):
        return self.program("gst-launch-1.0", "-q", *pipeline)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def pictures_of_the_camera(self, size, count, camera="sim"):
        self.program(LIDCAM, "stream", "--quiet", "--fast", "--camera", camera, "--size", size, "--frames",
                     str(count), "-o", self.path("camera.yuy2"))
        return self.read("camera.yuy2")

    def test_the_first_frames_of_every_size_are_those_of_lidcam_stream_byte_for_byte(self):
        # It exposes by itself: its pictures don't depend on when the driver gets to steer it.
        camera = "sim:1af0:6010,seed=3"
        for size, image_bytes in SIZES.items():
            width, height = size.split("x")
            self.launch("lidcamsrc", f"camera={camera}", "num-buffers=10", "!",
                        f"video/x-raw,width={width},height={height},framerate=30/1", "!",
                        "filesink", "location=" + self.path("gstreamer.yuy2"))
            seen = digests_of(size, self.read("gstreamer.yuy2"), image_bytes)
            self.assertEqual(len(seen), 10)
            check_pictures(size, seen, digests_of(size, self.pictures_of_the_camera(size, 120, camera), image_bytes))

    def test_another_seed_gives_other_pictures(self):
        self.launch("lidcamsrc", "camera=sim:1af0:0511,seed=3", "num-buffers=2", "!",
                    "video/x-raw,width=160", "!", "filesink", "location=" + self.path("gstreamer.yuy2"))
        self.assertNotEqual(self.read("gstreamer.yuy2"),
                            self.pictures_of_the_camera("160x120", 2, "sim:1af0:0511,seed=4"))

    def test_a_recording_is_played_to_its_end(self):
        self.program(LIDCAM, "record", "--quiet", "--fast", "--camera", "sim", "--size", "160x120",
                     "--frames", "12", "-o", self.path("bus.pcap"))
        self.program(LIDCAM, "replay", "--quiet", self.path("bus.pcap"), "--size", "160x120", "-o",
                     self.path("replayed.yuy2"))
        self.launch("lidcamsrc", "camera=capture:" + self.path("bus.pcap"), "!",
                    "video/x-raw,width=160", "!", "filesink", "location=" + self.path("played.yuy2"))
        self.assertGreaterEqual(len(self.read("played.yuy2")), 11 * SIZES["160x120"])
        self.assertEqual(self.read("replayed.yuy2")[:len(self.read("played.yuy2"))],
                         self.read("played.yuy2"))

    def test_what_gst_inspect_says_is_complete(self):
        text = self.program("gst-inspect-1.0", "--no-colors", "lidcamsrc")
        # What differs from build to build.
        text = re.sub(r"^(  (?:Filename|Version|Source release date) +).*$", r"\1...", text,
                      flags=re.M)
        with open(os.path.join(GOLDEN, "gst-inspect.txt"), encoding="utf-8") as golden:
            self.assertEqual(text, golden.read())

    def test_the_installed_plugin_is_found_and_runs_with_the_installed_library(self):
        self.program(CMAKE, "--install", BUILD, "--prefix", self.path("prefix"))
        (plugin,) = pathlib.Path(self.path("prefix")).rglob("gstreamer-1.0/libgstlidcam.so")
        self.environment["GST_PLUGIN_PATH"] = str(plugin.parent)
        self.environment["GST_REGISTRY"] = self.path("registry")
        text = self.program("gst-inspect-1.0", "--no-colors", "lidcamsrc")
        self.assertIn(f"Filename                 {plugin}\n", text)
        libraries = self.program("ldd", str(plugin))
        (library,) = re.findall(r"liblidcam\.so\.0 => (\S+)", libraries)
        self.assertTrue(os.path.samefile(os.path.dirname(library), plugin.parent.parent), library)
        self.launch("lidcamsrc", "camera=sim", "num-buffers=1", "!", "fakesink")

    def test_the_device_monitor_lists_the_simulated_cameras(self):
        text = self.program("gst-device-monitor-1.0", "Video/Source:video/x-raw")
        listed = self.program(LIDCAM, "list")
        for identity in ("1af0:0511", "1af0:6010", "1af0:6011"):
            self.assertIn("sim:" + identity, listed)
            self.assertRegex(text, rf"device\.path = sim:{identity}\n")
            self.assertRegex(text, rf"gst-launch-1\.0 lidcamsrc camera=[\"']?sim:{identity}")
        self.assertIn("class : Video/Source", text)
        self.assertIn("lidcam.kind = simulated", text)
        self.assertIn("video/x-raw, format=YUY2, width=640, height=480", text)

    def monitor(self):
        return self.program("gst-device-monitor-1.0", "Video/Source:video/x-raw")

    def test_a_camera_that_lidcam_share_shares_is_not_listed_a_second_time(self):
        os.makedirs(self.path("lidcam"))
        with open(self.path("lidcam/1af0-6010-seed1.share"), "w", encoding="utf-8") as lock:
            lock.write(f"process {os.getpid()} through PipeWire\n")
        text = self.monitor()
        self.assertNotIn("device.path = sim:1af0:6010", text)
        self.assertIn("device.path = sim:1af0:0511", text)
        os.remove(self.path("lidcam/1af0-6010-seed1.share"))
        self.assertIn("device.path = sim:1af0:6010", self.monitor())

    def test_a_camera_that_cannot_be_streamed_is_not_listed(self):
        text = self.monitor()
        self.assertNotIn("1b17:6100", text)
        self.assertIn("1b17:6101", text)

    def test_errors_name_the_camera_and_the_reason(self):
        result = self.run_program("gst-launch-1.0", "lidcamsrc", "camera=usb:250-9", "!", "fakesink")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("usb:250-9", result.stderr)

        first = subprocess.Popen(["gst-launch-1.0", "lidcamsrc", "camera=sim", "!", "fdsink"],
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                 env=self.environment)
        self.addCleanup(first.wait)
        self.addCleanup(first.stdout.close)
        self.addCleanup(first.kill)
        first.stdout.read(614400)
        result = self.run_program("gst-launch-1.0", "lidcamsrc", "camera=sim", "!", "fakesink")
        self.assertNotEqual(result.returncode, 0)
        self.assertRegex(result.stderr, r"gst-launch|process \d+")
        self.assertIn(str(first.pid), result.stderr)

    def test_a_control_set_by_another_process_is_notified_as_a_property(self):
        process = subprocess.Popen(
            ["gst-launch-1.0", "-v", "lidcamsrc", "camera=sim", "!", "video/x-raw,width=160", "!",
             "filesink", "location=" + self.path("pictures.yuy2")],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=self.environment)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        lines = iter(process.stdout)
        self.assertTrue(any("caps = " in line for line in lines))
        self.program(LIDCAM, "set", "--camera", "sim", "Contrast=14")
        self.assertTrue(any(re.search(r"lidcamsrc\d+: contrast = 14$", line) for line in lines))

    def test_ctrl_c_ends_a_stream_in_order(self):
        process = subprocess.Popen(["gst-launch-1.0", "-e", "lidcamsrc", "camera=sim", "!", "fdsink"],
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                   env=self.environment)
        self.addCleanup(process.stdout.close)
        process.stdout.read(614400)
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=120)
        self.assertEqual(process.returncode, 0)

    def test_an_unplugged_camera_is_told_and_its_return_continues_the_stream(self):
        # Far behind the bring-up, which an unplugged camera ends with an error.
        result = self.run_program(
            "gst-launch-1.0", "-m", "lidcamsrc", "camera=sim", "faults=at 4s unplug",
            "num-buffers=150", "!", "video/x-raw,width=160", "!", "filesink",
            "location=" + self.path("gstreamer.yuy2"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("continues when it is plugged in again", result.stdout + result.stderr)
        self.assertIn("lidcam-replugged", result.stdout)
        self.assertEqual(len(self.read("gstreamer.yuy2")), 150 * SIZES["160x120"])

    def test_a_property_of_a_control_changes_the_picture(self):
        def first_picture(*properties):
            self.launch("lidcamsrc", "camera=sim", *properties, "num-buffers=1", "!",
                        "video/x-raw,width=160", "!", "filesink",
                        "location=" + self.path("picture.yuy2"))
            return self.read("picture.yuy2")

        colourless = first_picture("color-enable=false")
        self.assertEqual(set(colourless[1::2]), {128})
        self.assertGreater(len(set(first_picture()[1::2])), 10)

    def test_opencv_reads_the_camera(self):
        # The package is for the system's own Python.
        python = "/usr/bin/python3"
        if self.run_program(python, "-c", "import cv2").returncode != 0:
            self.skipTest("python3-opencv is not installed")
        lines = self.program(
            python, "-c", READ_WITH_OPENCV,
            "lidcamsrc camera=sim ! video/x-raw,width=320,height=240 ! videoconvert ! "
            "video/x-raw,format=BGR ! appsink").splitlines()
        self.assertEqual(len(lines), 3)
        for line in lines:
            self.assertTrue(line.startswith("(240, 320, 3) "), line)
        self.assertGreater(len(set(lines)), 1)


if __name__ == "__main__":
    unittest.main(verbosity=1)
