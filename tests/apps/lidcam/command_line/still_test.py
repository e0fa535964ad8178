"""Still pictures."""

import fcntl
import json
import os
import resource
import shutil
import signal
import struct
import unittest

from command_line import CommandLineTest, SIZES


def exif_of(jpeg):
    """The values of a JPEG's Exif block by their tags, as bytes."""
    tiff = jpeg[12:]
    values = {}

    def read(offset):
        for entry in range(struct.unpack_from("<H", tiff, offset)[0]):
            at = offset + 2 + 12 * entry
            tag, kind, count = struct.unpack_from("<HHI", tiff, at)
            size = {1: 1, 2: 1, 3: 2, 4: 4, 5: 8, 7: 1}[kind] * count
            place = at + 8 if size <= 4 else struct.unpack_from("<I", tiff, at + 8)[0]
            values[tag] = tiff[place:place + size]

    read(struct.unpack_from("<I", tiff, 4)[0])
    read(struct.unpack("<I", values[0x8769])[0])
    return values


class StillTest(CommandLineTest):
    def still_file(self):
        return self.path("home/simulated-root/system32/drivers/SnapFile.dat")

    def test_a_still_is_a_picture_of_the_raw_size_with_its_marks(self):
        for raw, index, size_bytes in (("640x480", 3, 614400), ("320x240", 2, 153600),
                                       ("160x120", 1, 38400)):
            picture = self.path("picture.png")
            answer = json.loads(self.lidcam("still", "--fast", "--settle", "2", "--raw-size", raw,
                                            "--value", "0x12345", "--json", "-o", picture))
            width, height = map(int, raw.split("x"))
            self.assertEqual(answer, {
                "identity": "1af0:0511", "sensor": "VGA0708", "width": width, "height": height,
                "sizeIndex": index, "value": 0x2345, "bytes": size_bytes,
                "file": self.still_file(), "output": picture})
            with open(picture, "rb") as file:
                self.assertEqual(struct.unpack(">II", file.read(24)[16:24]), (width, height))
            with open(self.still_file(), "rb") as file:
                content = file.read()
            self.assertEqual(len(content), size_bytes)
            self.assertEqual(content[-4:], bytes((index, 0, 0x45, 0x23)))

    def test_a_still_of_a_resampled_stream_has_the_raw_size(self):
        answer = json.loads(self.lidcam("still", "--fast", "--settle", "0", "--size", "352x288",
                                        "--json", "-o", self.path("picture.png")))
        self.assertEqual((answer["width"], answer["height"]), (640, 480))

    def test_a_jpeg_says_when_and_how_it_was_taken(self):
        picture = self.path("picture.jpg")
        self.lidcam("still", "--fast", "-o", picture, "--light", "1lx@0s", "--settle", "60",
                    "--raw-size", "320x240")
        with open(picture, "rb") as file:
            jpeg = file.read()
        self.assertEqual(jpeg[:4], b"\xFF\xD8\xFF\xE1")
        exif = exif_of(jpeg)
        self.assertEqual(exif[0x0110], b"1af0:0511 VGA0708\0")  # model
        self.assertRegex(exif[0x9003], rb"^20\d\d:\d\d:\d\d \d\d:\d\d:\d\d\0$")
        # In the dark the exposure has reached its end: 20 periods of 1/100 s.
        self.assertEqual(struct.unpack("<II", exif[0x829A]), (20, 100))
        self.assertRegex(exif[0x9286], rb"^ASCII\0\0\0luma=\d+ coarse_gain=\d fine_gain=\d+$")

    def test_a_jpeg_of_a_camera_that_exposes_by_itself_has_no_exposure(self):
        picture = self.path("picture.jpg")
        self.lidcam("still", "--fast", "--settle", "2", "-o", picture, "--camera", "sim:1af0:6010")
        with open(picture, "rb") as file:
            self.assertNotIn(0x829A, exif_of(file.read()))

    def test_raw_output_is_the_drivers_file(self):
        picture = self.path("picture.yuy2")
        self.lidcam("still", "--fast", "--settle", "0", "-o", picture)
        with open(picture, "rb") as one, open(self.still_file(), "rb") as other:
            self.assertEqual(one.read() == other.read(), True)

    def test_a_still_shows_the_frame_after_the_settling(self):
        def still(settle):
            picture = self.path("picture.yuy2")
            self.lidcam("still", "--fast", "--settle", settle, "-o", picture)
            with open(picture, "rb") as file:
                return file.read()[:-4]

        frames = self.path("frames.yuy2")
        self.lidcam("stream", "--fast", "--frames", "4", "-o", frames)
        with open(frames, "rb") as file:
            stream = [file.read(614400)[:-4] for _ in range(4)]
        self.assertEqual(still("0") == stream[0], True)
        self.assertEqual(still("3") == stream[3], True)

    def test_a_folder_in_the_files_place_is_told(self):
        os.makedirs(self.still_file())
        self.assert_one_line_error(
            self.run_lidcam("still", "--fast", "-o", self.path("picture.png")), 1,
            self.still_file(), "it is a folder")
        self.assert_nothing_left()

    def test_a_full_disk_is_told_and_keeps_the_picture_of_before(self):
        picture = self.path("picture.png")
        self.lidcam("still", "--fast", "--settle", "0", "-o", picture)
        with open(picture, "rb") as file:
            before = file.read()

        def limit_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (100_000, 100_000))

        result = self.run_lidcam("still", "--fast", "--settle", "0", "-o", picture,
                                 preexec_fn=limit_files)
        self.assert_one_line_error(result, 1, self.still_file(), "disk is full", "free some space")
        with open(picture, "rb") as file:
            self.assertEqual(file.read() == before, True)
        self.assert_nothing_left("picture.png")

    def test_a_capture_gives_a_still_while_it_lasts(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "4", "-o", capture)
        picture = self.path("picture.png")
        self.lidcam("still", "--camera", f"capture:{capture}", "--settle", "2", "-o", picture)
        self.assertTrue(os.path.getsize(picture) > 1000)
        self.assert_one_line_error(
            self.run_lidcam("still", "--camera", f"capture:{capture}", "-o", picture), 1,
            "after 4 frames", "--settle")

    def test_a_capture_of_any_size_gives_stills_and_streams_of_its_own_raw_size(self):
        capture = self.path("bus.pcap")
        for recorded, raw in (("640x480", "640x480"), ("176x144", "320x240"),
                              ("640x480", "160x120")):
            self.lidcam("record", "--fast", "--size", recorded, "--raw-size", raw, "--frames", "3",
                        "-o", capture)
            shutil.rmtree(self.path("home"))
            for size in SIZES:
                answer = json.loads(self.lidcam(
                    "still", "--camera", f"capture:{capture}", "--size", size, "--settle", "1",
                    "--json", "-o", self.path("picture.png")))
                self.assertEqual("{width}x{height}".format(**answer), raw)
                answer = json.loads(self.lidcam("stream", "--camera", f"capture:{capture}",
                                                "--size", size, "--json"))
                self.assertEqual((answer["size"], answer["rawSize"]), (size, raw))
                self.assertEqual(answer["frames"]["good"], 3)
            self.assertFalse(os.path.exists(self.path("home/registry.reg")),
                             "a recorded camera has no settings to keep")
        for command in (("still", "-o", self.path("picture.png")), ("stream",)):
            self.assert_one_line_error(
                self.run_lidcam(*command, "--camera", f"capture:{capture}", "--raw-size",
                                "320x240"), 1, "320x240", "160x120")

    def test_a_recorded_camera_leaves_the_settings_of_the_user_alone(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "3", "-o", capture)
        self.lidcam("set", "Brightness=40")
        with open(self.path("home/registry.reg"), "rb") as file:
            before = file.read()
        self.lidcam("still", "--camera", f"capture:{capture}", "--settle", "1", "-o",
                    self.path("picture.png"))
        self.lidcam("stream", "--camera", f"capture:{capture}")
        with open(self.path("home/registry.reg"), "rb") as file:
            self.assertEqual(file.read(), before)

    def test_two_stills_at_once_do_not_mix(self):
        picture = self.path("picture.png")
        self.lidcam("still", "--fast", "--settle", "0", "-o", picture)
        os.remove(picture)
        with open(self.path("home/still.lock"), "a", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            self.assert_one_line_error(
                self.run_lidcam("still", "--fast", "--settle", "0", "-o", picture), 1,
                "still.lock", "another lidcam", "wait")
            self.assertTrue(os.path.exists(self.still_file()), "the other one's still is left alone")
        self.assert_nothing_left()
        self.lidcam("still", "--fast", "--settle", "0", "-o", picture)

    def test_the_help_tells_of_the_marks_in_the_picture(self):
        text = " ".join(self.lidcam("still", "--help").split())
        self.assertIn("marks, in a PNG too", text)

    def test_the_trace_tells_of_the_still(self):
        result = self.run_lidcam("still", "--fast", "--settle", "0", "--value", "7", "--trace",
                                 "-o", self.path("picture.png"))
        lines = result.stderr.decode().split("\n")
        self.assertEqual([line for line in lines if line.startswith("still ")],
                         ["still 640x480 index=3 value=7 status=00000000"])

    def test_wrong_use_is_named(self):
        picture = self.path("picture.png")
        for arguments, words in (
                (("-o", "picture.gif"), ("picture.gif", ".png")),
                (("-o", "picture.y4m"), ("picture.y4m", ".png")),
                (("-o", "-"), ("'-'", ".png")),
                (("-o", picture, "--value", "big"), ("big", "4294967295")),
                (("-o", picture, "--size", "800x600"), ("800x600", "640x480"))):
            self.assert_one_line_error(self.run_lidcam("still", "--fast", *arguments), 2, *words)
        self.assertEqual(self.run_lidcam("still").returncode, 2)
        self.assert_one_line_error(
            self.run_lidcam("still", "--fast", "--settle", "0", "-o", self.path("no/picture.png")),
            1, self.path("no/picture.png"), "No such file or directory")


if __name__ == "__main__":
    unittest.main(verbosity=1)
