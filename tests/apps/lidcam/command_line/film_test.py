"""Films: what ffmpeg's tools read from each kind of file."""

import csv
import json
import os
import shutil
import signal
import subprocess
import unittest

from command_line import CommandLineTest, LIDCAM

FRAME = 640 * 480 * 2
DARK = ("--light", "1lx@0s")


def probe(file, *entries):
    """ffprobe's view of a file, all its frames read."""
    result = subprocess.run(
        ["ffprobe", "-v", "error", "-count_frames", "-show_entries", ":".join(entries), "-of",
         "json", file], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise AssertionError(result.stderr)
    return json.loads(result.stdout)


def stream_of(file):
    return probe(file, "stream=codec_name,width,height,pix_fmt,nb_read_frames,r_frame_rate")[
        "streams"][0]


def times_of(file):
    """Times of the frames in seconds."""
    frames = probe(file, "frame=pts_time")["frames"]
    return [float(frame["pts_time"]) for frame in frames]


def pictures_of(file, form="yuyv422"):
    """All pictures of a film as ffmpeg decodes them."""
    return subprocess.run(
        ["ffmpeg", "-v", "error", "-i", file, "-fps_mode", "passthrough", "-f", "rawvideo",
         "-pix_fmt", form, "-"], capture_output=True, check=True).stdout


class FilmTest(CommandLineTest):
    def setUp(self):
        super().setUp()
        if shutil.which("ffprobe") is None:
            self.skipTest("no ffprobe here")

    def stream(self, name, *arguments):
        """Streams into a file, with a log beside it.
        @return its path, and the times of the log"""
        file, log = self.path(name), self.path("frames.csv")
        self.lidcam("stream", "-q", "--fast", "-o", file, "--log", log, *arguments)
        with open(log, newline="", encoding="ascii") as rows:
            return file, [float(row["time_s"]) for row in csv.DictReader(rows)]

    def raw(self, *arguments):
        file, _ = self.stream("raw.yuy2", *arguments)
        with open(file, "rb") as stream:
            return stream.read()

    def assert_times(self, found, expected, within):
        self.assertEqual(len(found), len(expected))
        for one, other in zip(found, expected):
            self.assertAlmostEqual(one, other, delta=within)


class FormsTest(FilmTest):
    def test_matroska_holds_every_byte_of_the_frames(self):
        file, _ = self.stream("clip.mkv", "--frames", "6")
        stream = stream_of(file)
        self.assertEqual((stream["codec_name"], stream["pix_fmt"], stream["width"], stream["height"],
                          stream["nb_read_frames"]), ("ffv1", "yuv422p", 640, 480, "6"))
        self.assertEqual(pictures_of(file) == self.raw("--frames", "6"), True)

    def test_matroska_and_mp4_have_the_times_of_the_log(self):
        for name, within in (("clip.mkv", 0.000501), ("clip.mp4", 0.000001)):
            for light in ((), DARK):
                file, times = self.stream(name, "--duration", "3s", "--size", "320x240", *light)
                self.assert_times(times_of(file), times, within)

    def test_a_film_of_five_frames_a_second_in_the_dark_is_as_long_as_the_stream(self):
        for name in ("clip.mkv", "clip.mp4"):
            file, times = self.stream(name, "--duration", "10s", "--size", "160x120", *DARK)
            length = float(probe(file, "format=duration")["format"]["duration"])
            # It lasts from the time 0 to the end of its last frame, which is as long as the one before.
            end = times[-1] + (times[-1] - times[-2])
            self.assertAlmostEqual(length, end, delta=0.002)
            self.assertLess(len(times), 70)

    def test_mp4_is_h264_that_any_player_decodes(self):
        file, _ = self.stream("clip.mp4", "--frames", "10")
        stream = stream_of(file)
        self.assertEqual((stream["codec_name"], stream["pix_fmt"], stream["nb_read_frames"]),
                         ("h264", "yuv420p", "10"))
        self.assert_like(pictures_of(file), self.raw("--frames", "10"))

    def test_avi_and_mjpeg_hold_a_jpeg_for_each_frame(self):
        for name in ("clip.avi", "clip.mjpeg"):
            file, _ = self.stream(name, "--frames", "7")
            stream = stream_of(file)
            self.assertEqual((stream["codec_name"], stream["nb_read_frames"]), ("mjpeg", "7"), name)
            self.assert_like(pictures_of(file), self.raw("--frames", "7"))

    def test_a_jpg_series_has_a_picture_for_each_frame(self):
        self.lidcam("stream", "-q", "--fast", "--frames", "3", "-o", self.path("shot.jpg"))
        self.assert_nothing_left("shot-0001.jpg", "shot-0002.jpg", "shot-0003.jpg")
        raw = self.raw("--frames", "3")
        self.assert_like(pictures_of(self.path("shot-0003.jpg")), raw[2 * FRAME:])

    def assert_like(self, one, other):
        """Two sequences of pictures, one of which has been compressed."""
        self.assertEqual(len(one), len(other))
        step = 997
        differences = [abs(a - b) for a, b in zip(one[::step], other[::step])]
        self.assertLess(sum(differences) / len(differences), 6)
        self.assertGreater(len(set(one[::step])), 50, "a picture and no plain area")

    def test_equal_seeds_give_equal_films(self):
        for name in ("clip.mkv", "clip.mp4", "clip.avi"):
            contents = []
            for _ in range(2):
                file, _ = self.stream(name, "--frames", "4", "--size", "160x120")
                with open(file, "rb") as stream:
                    contents.append(stream.read())
            self.assertEqual(contents[0] == contents[1], True, name)

    def test_a_replay_makes_the_film_of_the_live_run(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "-q", "--fast", "--frames", "5", "-o", capture)
        self.lidcam("replay", "-q", capture, "-o", self.path("replayed.mkv"))
        file, times = self.stream("live.mkv", "--frames", "5")
        self.assertEqual(pictures_of(self.path("replayed.mkv")) == pictures_of(file), True)
        self.assert_times(times_of(self.path("replayed.mkv")), times, 0.000501)


class CutFilmTest(FilmTest):
    def kill(self, name, frames=40):
        """Kills lidcam in mid-stream.
        @return the file that is left, and the frames that had been delivered"""
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        with subprocess.Popen([LIDCAM, "stream", "--fast", "--size", "320x240", "--trace", "-o",
                               self.path(name)], stderr=subprocess.PIPE, env=environment) as process:
            seen = 0
            for line in process.stderr:
                seen += line.startswith(b"pin frame picture=")
                if seen == frames:
                    break
            process.send_signal(signal.SIGKILL)
            seen += sum(line.startswith(b"pin frame picture=") for line in process.stderr)
        parts = [left for left in os.listdir(self.folder) if left.endswith(".part")]
        self.assertEqual(len(parts), 1)
        # Under the film's own name, as a person renames it.
        os.rename(self.path(parts[0]), self.path(name))
        return self.path(name), seen

    def test_a_killed_program_leaves_films_that_play_up_to_the_cut(self):
        # The application takes frames behind the driver: up to five buffers are on their way.
        for name in ("clip.mkv", "clip.mp4", "clip.avi", "clip.mjpeg", "clip.y4m"):
            file, seen = self.kill(name)
            self.assertGreaterEqual(int(stream_of(file)["nb_read_frames"]), seen - 7, name)

    def test_a_full_disk_leaves_a_film_of_the_frames_before(self):
        for name in ("clip.mkv", "clip.mp4", "clip.avi"):
            file = self.path(name)
            result = subprocess.run(
                ["bash", "-c", 'ulimit -f 400; exec "$0" "$@"', LIDCAM, "stream", "--fast",
                 "--size", "320x240", "-o", file], capture_output=True,
                env=dict(os.environ, LIDCAM_HOME=self.path("home")), timeout=120, check=False)
            error = result.stderr.decode()
            self.assertEqual(result.returncode, 1, error)
            self.assertIn("can't be written: File too large", error)
            self.assertLessEqual(os.path.getsize(file), 400 * 1024)
            frames = int(stream_of(file)["nb_read_frames"])
            self.assertGreater(frames, 1, name)


class RatesTest(FilmTest):
    def test_a_film_of_one_rate_says_how_much_shorter_than_the_stream_it_is(self):
        for name in ("clip.y4m", "clip.avi", "clip.mjpeg"):
            result = self.run_lidcam("stream", "--fast", "--size", "160x120", "--duration", "10s",
                                     *DARK, "-o", self.path(name))
            self.assertIn(f"{name} has one rate for all frames: it plays in 1.9 s what took 9.7 s; ",
                          result.stderr.decode())
            self.assertNotIn("one rate", self.run_lidcam(
                "stream", "--fast", "--size", "160x120", "--duration", "3s", "-o",
                self.path(name)).stderr.decode())

    def test_what_nobody_plays_later_has_no_length(self):
        dark = ("stream", "--fast", "--size", "160x120", "--duration", "10s", *DARK, "-o")
        self.assertIn("standard output has one rate", self.run_lidcam(*dark, "-").stderr.decode())
        self.assertNotIn("one rate", self.run_lidcam(*dark, "/dev/null").stderr.decode())

    def test_frames_repeated_at_a_constant_rate_make_a_film_as_long_as_the_stream(self):
        for name in ("clip.y4m", "clip.avi", "clip.mjpeg"):
            file = self.path(name)
            answer = json.loads(self.lidcam(
                "stream", "--fast", "--size", "160x120", "--duration", "10s", *DARK, "-o", file,
                "--constant-rate", "--json"))
            # From the first frame at 0.136 s to the last at 9.868 s: 292 thirtieths of a second, and itself.
            self.assertEqual(answer["written"], 293)
            self.assertEqual(answer["outputNote"], "constant rate: 236 frames repeated, 0 left out")
            self.assertEqual(int(stream_of(file)["nb_read_frames"]), 293)

    def test_the_timestamp_file_has_the_times_of_the_log(self):
        stamps = self.path("times.txt")
        _, times = self.stream("clip.y4m", "--duration", "2s", *DARK, "--timestamps", stamps)
        with open(stamps, encoding="ascii") as file:
            lines = file.read().split("\n")
        self.assertEqual((lines[0], lines[-1]), ("# timestamp format v2", ""))
        self.assertEqual([float(line) for line in lines[1:-1]],
                         [round(time * 1000, 3) for time in times])


class SelectionTest(FilmTest):
    def test_skipped_frames_are_not_in_the_film(self):
        whole = self.raw("--frames", "6", "--size", "160x120")
        later = self.raw("--frames", "2", "--skip", "4", "--size", "160x120")
        self.assertEqual(later == whole[4 * 38400:], True)

    def test_one_frame_in_ten_seconds_makes_a_time_lapse(self):
        _, times = self.stream("clip.yuy2", "--every", "10s", "--duration", "31s", "--size",
                               "160x120", "--timestamps", self.path("times.txt"))
        with open(self.path("times.txt"), encoding="ascii") as file:
            lapse = [float(line) / 1000 for line in file.read().split("\n")[1:-1]]
        self.assertEqual(len(lapse), 4)
        for number, time in enumerate(lapse):
            self.assertIn(time, [round(one, 6) for one in times])
            self.assertAlmostEqual(time, times[0] + 10 * number, delta=0.04)

    def test_segments_are_cut_at_whole_frames_and_lose_none(self):
        whole, times = self.stream("whole.mkv", "--duration", "3s", "--size", "160x120")
        _, _ = self.stream("clip.mkv", "--duration", "3s", "--size", "160x120", "--segment", "1s",
                           "--timestamps", self.path("times.txt"))
        files = [self.path(f"clip-000{number}.mkv") for number in (1, 2, 3)]
        self.assertEqual(b"".join(pictures_of(file) for file in files) == pictures_of(whole), True)
        found = []
        for number, file in enumerate(files):
            own = times_of(file)
            self.assertTrue(0 <= own[0] < 0.2, own[0])
            with open(self.path(f"times-000{number + 1}.txt"), encoding="ascii") as stamps:
                self.assert_times([float(line) / 1000 for line in stamps.read().split("\n")[1:-1]],
                                  own, 0.000501)
            found += [time + number for time in own]
        self.assert_times(found, times, 0.000501)

    def test_the_stamp_is_the_time_and_the_number_of_the_frame(self):
        plain = self.raw("--frames", "2")
        stamped = self.raw("--frames", "2", "--stamp")
        rows = [row for row in range(480)
                if plain[FRAME + row * 1280:FRAME + (row + 1) * 1280]
                != stamped[FRAME + row * 1280:FRAME + (row + 1) * 1280]]
        self.assertEqual((rows[0], rows[-1]), (442, 479))
        # "0:" begins the line of time, and "#2" is the line below: their dots, two pixels each.
        self.assertEqual(self.dots(stamped[FRAME:], 442, 6), [
            ".###......", "#...#..#..", "#..##..#..", "#.#.#.....", "##..#..#..", "#...#..#..",
            ".###......"])
        self.assertEqual(self.dots(stamped[FRAME:], 460, 6), [
            ".#.#..###.", ".#.#.#...#", "#####....#", ".#.#....#.", "#####..#..", ".#.#..#...",
            ".#.#.#####"])

    @staticmethod
    def dots(picture, top, _):
        """The first two letters of a line of text."""
        lines = []
        for row in range(7):
            start = (top + 2 + 2 * row) * 1280 + 2 * 2
            letters = [picture[start + 4 * dot] > 128 for dot in (0, 1, 2, 3, 4, 6, 7, 8, 9, 10)]
            lines.append("".join("#" if dot else "." for dot in letters))
        return lines

    def test_options_that_exclude_each_other_are_refused(self):
        clip = self.path("clip.mkv")
        for words, arguments in (
                (("--segment", "--ring"), ("-o", clip, "--segment", "1s", "--ring", "1s")),
                (("--every", "--duration"), ("-o", clip, "--every", "1s", "--frames", "3")),
                (("--stamp", "-o"), ("--stamp",)),
                (("standard output is one",), ("-o", "-", "--segment", "1s")),
                (("above a minute",), ("-o", clip, "--ring", "61s")),
                (("time '0s'", "above 0"), ("-o", clip, "--segment", "0s"))):
            self.assert_one_line_error(self.run_lidcam("stream", "--fast", *arguments), 2, *words)
        self.assert_nothing_left()


class RingTest(FilmTest):
    def ring(self, *arguments):
        result = self.run_lidcam("stream", "--fast", "--size", "160x120", "-o",
                                 self.path("saved.mkv"), "--ring", "1s", *arguments)
        return result.returncode, result.stderr.decode()

    def test_a_frame_of_a_wrong_size_saves_the_second_before_it(self):
        status, text = self.ring("--duration", "4s", "--faults", "at 2s lose 5")
        self.assertEqual(status, 0, text)
        self.assert_nothing_left("saved-0001.mkv")
        self.assertIn("saved-0001.mkv: frame ", text)
        times = times_of(self.path("saved-0001.mkv"))
        self.assertEqual(times[0], 0)
        self.assertAlmostEqual(times[-1], 1, delta=0.04)

    def test_a_stream_without_a_fault_saves_nothing(self):
        status, text = self.ring("--duration", "2s")
        self.assertEqual(status, 0, text)
        self.assert_nothing_left()
        self.assertIn("nothing called for a save", text)

    def test_the_end_by_a_fault_saves_the_last_second(self):
        status, text = self.ring("--duration", "5s", "--faults", "at 3s unplug")
        self.assertEqual(status, 1, text)
        self.assertAlmostEqual(times_of(self.path("saved-0001.mkv"))[-1], 1, delta=0.04)

    def test_motion_is_saved_with_the_time_around_it(self):
        self.lidcam("stream", "-q", "--fast", "--frames", "1", "-o", self.path("still.png"))
        still = ("--camera", f"sim,scene={self.path('still-0001.png')}")
        status, text = self.ring("--duration", "4s", "--motion", "0.5", *still)
        self.assertEqual(status, 0, text)
        self.assertFalse(os.path.exists(self.path("saved-0001.mkv")), "nothing moves")
        status, text = self.ring("--duration", "4s", "--motion", "0.5")  # a ball moves
        self.assertEqual(status, 0, text)
        self.assertIn("saved-0001.mkv: motion", text)

    def test_a_signal_saves_the_last_second(self):
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        with subprocess.Popen([LIDCAM, "stream", "--size", "160x120", "-o", self.path("saved.mkv"),
                               "--ring", "1s", "--trace"], stderr=subprocess.PIPE,
                              env=environment) as process:
            frames = 0
            text = ""
            for line in process.stderr:
                frames += line.startswith(b"pin frame picture=")
                text += line.decode(errors="replace")
                if line.startswith(b"pin frame picture=") and frames == 10:
                    process.send_signal(signal.SIGUSR1)
                if b"saved-0001.mkv: SIGUSR1" in line:
                    break
            process.send_signal(signal.SIGINT)
            text += process.stderr.read().decode(errors="replace")
            self.assertEqual(process.wait(timeout=60), 0, text[-500:])
        self.assertGreater(int(stream_of(self.path("saved-0001.mkv"))["nb_read_frames"]), 3)


if __name__ == "__main__":
    unittest.main(verbosity=1)
