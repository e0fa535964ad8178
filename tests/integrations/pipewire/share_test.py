"""The camera shared through PipeWire, seen by other programs.

Usage: python3 share_test.py LIDCAM [unittest arguments]
"""

import json
import os
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

import desktop  # noqa: E402
import sent_pictures  # noqa: E402

desktop.move_to_own_bus()
LIDCAM = os.path.abspath(sys.argv.pop(1))

SIZES = ((640, 480), (352, 288), (320, 240), (176, 144), (160, 120))
# It exposes by itself: its pictures don't depend on when the driver gets to steer it.
CAMERA = "sim:1af0:6010"
REFERENCE = 300


class ShareTest(unittest.TestCase):
    def setUp(self):
        self.desk = desktop.Desktop(LIDCAM)
        self.addCleanup(self.desk.close)
        self.desk.start()

    def assert_pictures(self, path, size, count):
        """The file has that many pictures: the camera's, byte for byte and in order."""
        seen = desktop.digests(path, size)
        self.assertEqual(len(seen), count)
        sent_pictures.check_pictures(path.name, seen, self.desk.camera_pictures(CAMERA, size, REFERENCE))

    def look(self, size, count, name):
        output = self.desk.path(name)
        return output, self.desk.run_beside(*self.desk.pipeline(size, count, output))

    def test_the_camera_is_a_video_source_with_five_formats_and_the_same_name_each_time(self):
        names = []
        for _ in range(2):
            share = self.desk.share("--camera", CAMERA)
            properties = self.desk.node()["props"]
            self.assertEqual(properties["media.class"], "Video/Source")
            self.assertEqual(properties["media.role"], "Camera")
            self.assertIn("1af0:6010", properties["node.description"])
            self.assertEqual(self.desk.sizes(), list(SIZES))
            names.append(properties["node.name"])
            self.assertEqual(share.end(), 0)
            desktop.wait_for(lambda: not self.desk.node(), "the node to go")
        self.assertEqual(names[0], names[1])

    def test_gstreamer_lists_the_camera_with_its_sizes(self):
        self.desk.share("--camera", CAMERA)
        said = self.desk.run("gst-device-monitor-1.0", "Video/Source", check=False).stdout
        self.assertIn("node.name = lidcam.", said)
        for width, height in SIZES:
            self.assertIn(f"width={width}, height={height}", said)

    def test_the_pictures_of_every_size_are_the_cameras_byte_for_byte(self):
        self.desk.share("--camera", CAMERA)
        for size in SIZES:
            output, looker = self.look(size, 10, f"pictures-{size[0]}x{size[1]}")
            self.assertEqual(looker.wait(), 0, looker.said())
            self.assert_pictures(output, size, 10)

    def test_programs_that_know_only_v4l2_read_it_by_pw_v4l2(self):
        self.desk.share("--camera", CAMERA)
        output = self.desk.path("pictures")

        def is_closed():
            return "not open" in self.desk.lidcam("status", "--camera", CAMERA, check=False).stdout

        size = (320, 240)
        for _ in range(3):
            # Pictures of a second stream of one opening are at other times than those of the first.
            desktop.wait_for(is_closed, "the camera's end")
            # There every node is /dev/video0, and this machine's own devices are not seen.
            self.desk.run("pw-v4l2", "ffmpeg", "-v", "error", "-f", "v4l2", "-input_format", "yuyv422",
                          "-video_size", "320x240", "-i", "/dev/video0", "-frames:v", "10",
                          "-fps_mode", "passthrough", "-f", "rawvideo", "-y", str(output))
            seen = desktop.digests(output, size)
            self.assertEqual(len(seen), 10)
            # pw-v4l2 starts the camera, pauses it and starts it again: its buffers may be of either start.
            sent = self.desk.camera_pictures(CAMERA, size, REFERENCE)
            self.assertLess(len([picture for picture in seen if picture not in sent]), 5)

    def test_it_runs_while_somebody_looks(self):
        share = self.desk.share("--camera", CAMERA)
        self.assertNotIn("camera on", share.said())
        for turn in (1, 2):
            _, looker = self.look((160, 120), 5, "pictures")
            share.wait_until_it_says("camera on, 160x120", turn)
            self.assertEqual(looker.wait(), 0, looker.said())
            share.wait_until_it_says("camera off", turn)

    def test_status_names_who_looks_and_through_which_way(self):
        share = self.desk.share("--camera", CAMERA)
        _, looker = self.look((160, 120), 100000, "pictures")
        share.wait_until_it_says("camera on")

        def viewers():
            said = self.desk.lidcam("status", "--camera", CAMERA, "--json", check=False).stdout
            return json.loads(said).get("viewers") if said else None

        self.assertEqual(desktop.wait_for(viewers, "a viewer"), [f"PipeWire: gst-launch-1.0 ({looker.number()})"])

    def test_a_camera_that_is_shared_is_not_shared_a_second_time(self):
        share = self.desk.share("--camera", CAMERA)
        second = self.desk.lidcam("share", "--camera", CAMERA, check=False)
        self.assertEqual(second.returncode, 1)
        self.assertIn(f"is shared already, by process {share.number()} through PipeWire", second.stderr)

    def test_several_look_at_once_and_the_first_ones_size_holds(self):
        share = self.desk.share("--camera", CAMERA)
        first_output, first = self.look((320, 240), 100, "first")
        share.wait_until_it_says("camera on, 320x240")
        desktop.wait_for(lambda: self.desk.sizes() == [(320, 240)], "a single size")
        second_output, second = self.look((320, 240), 10, "second")
        self.assertEqual(second.wait(), 0, second.said())
        _, other = self.look((160, 120), 10, "other")
        self.assertNotEqual(other.wait(), 0)
        self.assertIn("not-negotiated", other.said())
        self.assertEqual(first.wait(), 0, first.said())
        self.assert_pictures(first_output, (320, 240), 100)
        self.assert_pictures(second_output, (320, 240), 10)
        self.assertEqual(share.said().count("camera on"), 1)
        desktop.wait_for(lambda: self.desk.sizes() == list(SIZES), "all sizes again")
        output, third = self.look((160, 120), 10, "third")
        self.assertEqual(third.wait(), 0, third.said())
        self.assert_pictures(output, (160, 120), 10)

    def test_controls_are_properties_that_can_be_set_and_read_back(self):
        self.desk.lidcam("set", "--camera", CAMERA, "Contrast=10")
        self.desk.share("--camera", CAMERA)
        node = str(self.desk.node()["id"])
        described = {each["name"]: each for each in self.desk.node()["params"]["PropInfo"]}
        listed = json.loads(self.desk.lidcam("controls", "--camera", CAMERA, "--json").stdout)
        self.assertEqual(sorted(described), sorted(each["name"] for each in listed))
        self.assertEqual(described["Brightness"]["type"],
                         {"default": 0, "min": -100, "max": 100, "step": 1})
        self.assertEqual(self.desk.control("contrast"), 10)
        self.desk.run("pw-cli", "set-param", node, "Props", "{ contrast: 13 }")
        desktop.wait_for(lambda: self.desk.control("contrast") == 13, "the new contrast")
        # A value that the camera doesn't take is answered with the one that holds.
        self.desk.run("pw-cli", "set-param", node, "Props", "{ contrast: 99, saturation: 100 }")
        desktop.wait_for(lambda: self.desk.control("saturation") == 100, "the new saturation")
        self.assertEqual(self.desk.control("contrast"), 13)
        desktop.wait_for(lambda: "Contrast=13" in self.desk.lidcam("get", "--camera", CAMERA, "Contrast").stdout,
                         "a contrast that persists")

    def test_an_unplugged_camera_is_shown_as_such_and_does_not_end_the_service(self):
        share = self.desk.share("--camera", CAMERA, "--faults", "at 4s unplug")
        output, looker = self.look((160, 120), 150, "pictures")
        self.assertEqual(looker.wait(), 0, looker.said())
        seen = [desktop.is_notice(picture) for picture in desktop.pictures(output, (160, 120))]
        self.assertFalse(seen[0])
        self.assertIn(True, seen)
        # The simulated camera is plugged in again some seconds later.
        self.assertIn(False, seen[seen.index(True):])
        self.assertIn("unplugged", share.said())
        self.assertTrue(share.is_running())
        self.assertEqual(share.end(), 0)

    def test_sigterm_ends_it_while_somebody_looks(self):
        share = self.desk.share("--camera", CAMERA)
        self.look((160, 120), 100000, "pictures")
        share.wait_until_it_says("camera on")
        self.assertEqual(share.end(), 0)
        desktop.wait_for(lambda: not self.desk.node(), "the node to go")

    def test_it_fails_with_a_reason_when_pipewire_ends(self):
        share = self.desk.share("--camera", CAMERA)
        self.desk.pipewire.end()
        self.assertEqual(share.wait(), 1)
        self.assertIn("lidcam: PipeWire has ended", share.said())


class WithoutPipeWireTest(unittest.TestCase):
    def setUp(self):
        self.desk = desktop.Desktop(LIDCAM)
        self.addCleanup(self.desk.close)

    def share(self, *arguments, camera=CAMERA):
        return self.desk.lidcam("share", "--camera", camera, *arguments, check=False)

    def test_it_says_that_pipewire_is_missing(self):
        ended = self.share()
        self.assertEqual(ended.returncode, 1)
        self.assertIn("lidcam: PipeWire cannot be reached", ended.stderr)

    def test_a_v4l2_device_that_is_missing_is_told_with_the_command_that_makes_it(self):
        ended = self.share("--v4l2", "/dev/video987")
        self.assertEqual(ended.returncode, 1)
        self.assertIn("lidcam: there is no device '/dev/video987': 'sudo modprobe v4l2loopback exclusive_caps=1",
                      ended.stderr)

    def test_wrong_use_is_told(self):
        for ended, reason in ((self.share("--size", "320x240"), "--size belongs to --v4l2"),
                              (self.share("--v4l2", "/dev/video987", "--size", "1x1"), "1x1"),
                              (self.share(camera="usbb"), "usbb")):
            self.assertEqual(ended.returncode, 2, ended.stderr)
            self.assertIn(reason, ended.stderr)


unittest.main(argv=[sys.argv[0], *sys.argv[1:]])
