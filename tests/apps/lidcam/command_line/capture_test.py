"""Recordings: made, listed, replayed and streamed from."""

import gzip
import json
import lzma
import os
import re
import shutil
import struct
import subprocess
import unittest

from command_line import CommandLineTest, LIDCAM


def records(content):
    """Header and bytes of each record of a pcap file, and the file's header."""
    at = 24
    found = []
    while at < len(content):
        length = struct.unpack_from("<I", content, at + 8)[0]
        found.append((content[at:at + 16], content[at + 16:at + 16 + length]))
        at += 16 + length
    return content[:24], found


def cut_records(content, snap_length):
    """The file as written by a capture program that limits each record to this length."""
    result, found = records(content)
    for head, data in found:
        kept = data[:snap_length]
        result += head[:8] + struct.pack("<I", len(kept)) + head[12:] + kept
    return result


def without_requests(content, requests, count=-1):
    """The file without the first `count` control requests, or all, whose setup packets begin so."""
    result, found = records(content)
    open_ids = set()
    for head, data in found:
        is_control = data[9] == 2
        is_setup = is_control and data[8:9] == b"S" and data[14] == 0
        if is_setup and data[40:48].startswith(requests) and count != 0:
            open_ids.add(data[:8])
            count -= 1
        elif is_control and not is_setup and data[:8] in open_ids:
            open_ids.discard(data[:8])
        else:
            result += head + data
    return result


class CaptureTest(CommandLineTest):
    def record(self, *arguments):
        file = self.path("bus.pcap")
        self.lidcam("record", "--fast", "-o", file, *arguments)
        return file

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content)
        return self.path(name)

    def assert_a_replay_gives_the_live_frames(self, *arguments, size="160x120"):
        arguments += ("--size", size)
        self.lidcam("stream", "--fast", *arguments, "-o", self.path("live.yuy2"))
        capture = self.record(*arguments)
        live = self.read("live.yuy2")
        self.assertGreater(len(live), 0)
        self.lidcam("replay", capture, "--size", size, "-o", self.path("replayed.yuy2"))
        self.assertEqual(self.read("replayed.yuy2") == live, True, arguments)
        self.lidcam("stream", "--camera", f"capture:{capture}", "--size", size, "-o",
                    self.path("streamed.yuy2"))
        self.assertEqual(self.read("streamed.yuy2") == live, True, arguments)

    def test_a_replay_gives_the_frames_of_the_live_run_byte_for_byte(self):
        for camera, size in (("sim", "640x480"), ("sim:1af0:6010,sensor=VGA7648", "320x240"),
                             ("sim:1af0:6011", "160x120")):
            for limit in (("--frames", "1"), ("--frames", "21"), ("--duration", "500ms"),
                          ("--duration", "2003ms")):
                self.assert_a_replay_gives_the_live_frames("--camera", camera, *limit, size=size)

    # A light state that is left discards a frame, and when that is depends on who exposes.
    def test_a_replay_leaves_out_what_the_exposure_control_left_out(self):
        for camera in ("sim,light=300lx@0s;1lx@1s;300lx@2s", "sim,light=1lx@0s;300lx@1s",
                       "sim,config=short"):
            self.assert_a_replay_gives_the_live_frames("--camera", camera, "--duration", "3500ms")

    def test_a_replay_goes_by_the_settings_of_the_recorded_host(self):
        camera = ("--camera", "sim,light=300lx@0s;1lx@1s;300lx@2s", "--duration", "3500ms")
        for settings in (("Flicker=0",), ("Flicker=2",), ("AutoExposure=0",), ("LDMode=1",),
                         ("Contrast=3", "Mirror=1")):
            self.lidcam("set", "Flicker=1", "AutoExposure=1", "LDMode=0", *settings)
            self.assert_a_replay_gives_the_live_frames(*camera)

    def test_a_replay_goes_by_settings_that_were_changed_for_the_recorded_stream(self):
        for setting in ("Flicker=0", "AutoExposure=0", "LDMode=1"):
            arguments = ("--camera", "sim,light=1lx@0s;300lx@1s", "--duration", "3500ms", "--size",
                         "160x120")
            shutil.rmtree(self.path("home"), ignore_errors=True)
            self.lidcam("stream", "--fast", *arguments, "--set", setting, "-o",
                        self.path("live.yuy2"))
            shutil.rmtree(self.path("home"))
            capture = self.record(*arguments, "--set", setting)
            shutil.rmtree(self.path("home"))
            self.lidcam("replay", capture, "--size", "160x120", "-o", self.path("replayed.yuy2"))
            self.assertEqual(self.read("live.yuy2") == self.read("replayed.yuy2"), True, setting)

    def test_a_recording_in_real_time_holds_the_frames_that_were_delivered_or_tells(self):
        for limit in (("--frames", "8"), ("--duration", "700ms")):
            capture = self.path("bus.pcap")
            result = self.run_lidcam("record", "-o", capture, "--json", *limit)
            self.assertEqual(result.returncode, 0, result.stderr)
            frames = json.loads(result.stdout)["frames"]["delivered"]
            told = re.search(r"a replay delivers (\d+) frame", result.stderr.decode())
            replayed = json.loads(self.lidcam("replay", capture, "--json"))["frames"]["delivered"]
            self.assertEqual(replayed, int(told[1]) if told else frames)

    def test_records_that_were_cut_are_named_with_the_remedy(self):
        whole = self.read(os.path.basename(self.record("--duration", "500ms")))
        # What one capture program keeps if nothing else is said: less than a transfer.
        cut = self.write("cut.pcap", cut_records(whole, 65535))
        result = self.run_lidcam("replay", cut)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(),
                         r"cut\.pcap: the capture program cut \d+ of \d+ records of device 1\.2 to "
                         r"65535 bytes, and \d+ bytes are missing; capture again with a snapshot "
                         r"length of 262144 \(tcpdump -s 262144, ")
        self.assertIn("bytes are missing", self.lidcam("list", cut))
        rows = json.loads(self.lidcam("list", "--json", cut))
        self.assertIn("snapshot length of 262144", rows[-1]["notes"][0])

    def test_a_capture_whose_end_is_missing_is_used_up_to_there(self):
        whole = self.read(os.path.basename(self.record("--frames", "20")))
        count = sum(len(head) + len(data) for head, data in records(whole)[1][:1250])
        cut = self.write("cut.pcap", whole[:24 + count + 5])
        self.lidcam("replay", self.path("bus.pcap"), "-o", self.path("whole.yuy2"))
        result = self.run_lidcam("replay", cut, "-o", self.path("begin.yuy2"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn(f"lidcam: {cut}: the file is cut off behind record 1250; it is used up to there",
                      result.stderr.decode())
        begin = self.read("begin.yuy2")
        self.assertGreater(len(begin), 614400)
        self.assertEqual(self.read("whole.yuy2").startswith(begin), True)
        answer = json.loads(self.lidcam("stream", "--camera", f"capture:{cut}", "--json"))
        self.assertEqual(answer["frames"]["good"] * 614400, len(begin))
        self.assertIn("cut off behind record 1250", self.lidcam("list", cut))

    def test_a_capture_that_began_after_plug_in_gives_the_same_frames(self):
        whole = self.record("--frames", "8", "--camera", "sim,light=1lx@0s;300lx@100ms")
        self.lidcam("replay", whole, "-o", self.path("whole.yuy2"))
        # What Linux's kernel does before any program sees the camera.
        later = self.write("later.pcap", without_requests(self.read("bus.pcap"), b"\x00\x09"))
        for arguments in (("replay", later), ("stream", "--camera", f"capture:{later}")):
            result = self.run_lidcam(*arguments, "-o", self.path("later.yuy2"))
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn(b"1af0:0511 VGA0708", result.stderr)
            self.assertEqual(self.read("later.yuy2") == self.read("whole.yuy2"), True, arguments)

    def test_a_capture_that_began_after_the_bring_up_gives_its_frames_and_tells(self):
        self.record("--frames", "8", "--camera", "sim:1af0:6010")
        whole = self.read("bus.pcap")
        self.lidcam("replay", self.path("bus.pcap"), "-o", self.path("whole.yuy2"))
        frames = self.read("whole.yuy2")
        vendor = (b"\x40\xa0", b"\xc0\xa1")
        for content in (without_requests(whole, vendor, 30), without_requests(whole, vendor, 400),
                        without_requests(whole, b"\x80\x06\x00\x02")):
            later = self.write("later.pcap", content)
            result = self.run_lidcam("replay", later, "-o", self.path("later.yuy2"))
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn(f"lidcam: {later}: the camera's whole bring-up is not in it: its frames are replayed",
                          result.stderr.decode())
            self.assertRegex(result.stderr.decode(), "1af0:6010 unknown sensor .* frames delivered")
            self.assertEqual(frames in self.read("later.yuy2"), True)
            self.assert_one_line_error(self.run_lidcam("stream", "--camera", f"capture:{later}"), 1, later,
                                       "whole bring-up is not in it", "lidcam replay")

    def test_compressed_captures_are_read_whatever_they_are_called(self):
        content = self.read(os.path.basename(self.record("--frames", "3")))
        plain = self.lidcam("list", "--json", self.path("bus.pcap"))
        files = [self.write("a.pcap.gz", gzip.compress(content, 1)),
                 self.write("a.pcap.xz", lzma.compress(content, preset=0)),
                 self.write("b.pcap", gzip.compress(content, 1))]
        if shutil.which("zstd") is not None:
            subprocess.run(["zstd", "-q", self.path("bus.pcap"), "-o", self.path("a.pcap.zst")],
                           check=True)
            files.append(self.path("a.pcap.zst"))
        self.lidcam("replay", self.path("bus.pcap"), "-o", self.path("plain.yuy2"))
        for file in files:
            self.assertEqual(self.lidcam("list", "--json", file),
                             plain.replace(self.path("bus.pcap"), file))
            self.lidcam("replay", file, "-o", self.path("replayed.yuy2"))
            self.assertEqual(self.read("replayed.yuy2") == self.read("plain.yuy2"), True, file)

    def test_a_compressed_capture_whose_end_is_missing_is_used_up_to_there(self):
        content = gzip.compress(self.read(os.path.basename(self.record("--frames", "20"))), 1)
        cut = self.write("cut.pcap.gz", content[:len(content) * 3 // 4])
        result = self.run_lidcam("replay", cut)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("the file is cut off behind record", result.stderr.decode())

    def test_pipes_and_standard_input_are_read(self):
        capture = self.record("--frames", "3")
        self.lidcam("replay", capture, "-o", self.path("plain.yuy2"))
        content = self.read("bus.pcap")
        for arguments in (("replay", "-"), ("stream", "--camera", "capture:-"),
                          ("replay", "/dev/stdin")):
            for given in (content, gzip.compress(content, 1)):
                result = self.run_lidcam(*arguments, "-o", self.path("replayed.yuy2"), input=given)
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertEqual(self.read("replayed.yuy2") == self.read("plain.yuy2"), True,
                                 arguments)
        self.assertIn("1af0:0511", self.run_lidcam("list", "-", input=content).stdout.decode())
        self.assert_one_line_error(self.run_lidcam("replay", "-", input=b""), 1,
                                   "standard input: the file is empty")

    def test_a_recording_goes_to_standard_output(self):
        capture = self.record("--frames", "3")
        result = self.run_lidcam("record", "--fast", "--frames", "3", "-o", "-")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout == self.read("bus.pcap"), True)
        self.assertEqual(os.path.exists("-"), False)
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        with subprocess.Popen([LIDCAM, "record", "--fast", "-q", "--frames", "3", "-o", "-"],
                              stdout=subprocess.PIPE, env=environment) as recording:
            result = self.run_lidcam("replay", "-", "--json", stdin=recording.stdout)
        self.assertEqual(json.loads(result.stdout)["frames"]["delivered"], 3)
        self.assertTrue(os.path.exists(capture))
        self.assert_one_line_error(
            self.run_lidcam("record", "--fast", "--frames", "1", "--json", "-o", "-"), 2, "--json",
            "standard output")

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
        # Another vendor in the device descriptor, no register requests: a device of another vendor.
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
        for name in (self.path("missing.pcap"), empty, text, foreign):
            self.assert_one_line_error(
                self.run_lidcam("replay", name, "-o", self.path("out.y4m")), 1, name)
        result = self.run_lidcam("replay", cut, "-o", self.path("out.y4m"))
        self.assertEqual(result.returncode, 1)
        self.assertIn("the file is cut off behind record", result.stderr.decode())
        self.assertIn("sent no isochronous data", result.stderr.decode())
        self.assert_nothing_left("empty.pcap", "text.pcap", "foreign.pcap", "cut.pcap", "bus.pcap")


if __name__ == "__main__":
    unittest.main(verbosity=1)
