"""Recordings: made, listed, replayed and streamed from."""

import json
import shutil
import struct
import subprocess
import unittest

from command_line import CommandLineTest


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
            self.lidcam("stream", "--fast", "--frames", "56", "--camera", camera, "--size", size,
                        "-o", live)
            capture = self.record("--frames", "56", "--camera", camera, "--size", size)
            self.lidcam("replay", capture, "--size", size, "-o", replayed)
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


if __name__ == "__main__":
    unittest.main(verbosity=1)
