"""That the judge notices what is wrong: spoilt copies of what the guests saw.

Usage: python3 judge_test.py GUESTS LIDCAM, the folder that a run of scripts/test-usb left and the program
"""

import json
import pathlib
import shutil
import struct
import sys
import tempfile
import unittest

import judge
import steps

PROGRAM = pathlib.Path(sys.argv.pop(2))
GUESTS = pathlib.Path(sys.argv.pop(1))
CAMERAS = [(identity, kind) for identity in judge.IDENTITIES for kind in ("long", "short")]


HOME = tempfile.TemporaryDirectory(prefix="lidcam-judge-")
HERE = steps.Program(PROGRAM, HOME.name)


class SpoiltCopy(unittest.TestCase):
    """A copy of a step's folder, and the changes that the judge has to notice."""

    STEP = ""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="lidcam-judge-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.renew()

    def renew(self):
        shutil.copytree(GUESTS / self.STEP, self.folder, dirs_exist_ok=True)

    def judge(self):
        raise NotImplementedError

    def assert_noticed(self, what, *words):
        with self.assertRaises(judge.Misjudged, msg=what) as caught:
            self.judge()
        for word in words:
            self.assertIn(word, str(caught.exception))
        self.renew()

    def spoil(self, name, before, after):
        text = (self.folder / name).read_text()
        self.assertIn(before, text)
        (self.folder / name).write_text(text.replace(before, after, 1))

    def spoil_picture(self, name, size):
        """One bit of the second picture."""
        path = self.folder / name
        content = bytearray(path.read_bytes())
        content[judge.picture_bytes(size) * 3 // 2] ^= 1
        path.write_bytes(content)


class EnumerationTest(SpoiltCopy):
    STEP = "vhci/results/enumeration"

    def judge(self):
        judge.check_enumeration(self.folder, CAMERAS)

    def test_what_the_guest_saw_is_right(self):
        self.judge()

    def test_each_wrong_descriptor_is_noticed(self):
        for before, after in (("0x1400  3x 1024 bytes", "0x1400  2x 1024 bytes"),
                              ("0x00c1", "0x00c0"), ("500mA", "100mA"), (" 1 lidcam\n", " 1 lidcan\n"),
                              ("EP 2 IN", "EP 3 IN"), ("bAlternateSetting       7", ""),
                              ("Isochronous", "Bulk"), ("ID 1b17:6111", "ID 1b17:6112")):
            self.spoil("lsusb", before, after)
            self.assert_noticed(before)

    def test_a_complaint_of_lsusb_is_noticed(self):
        (self.folder / "complaints").write_text("can't get device qualifier\n")
        self.assert_noticed("a complaint", "device qualifier")


class KernelMessagesTest(unittest.TestCase):
    def test_a_complaint_of_the_kernel_is_noticed(self):
        marker = "lidcam: end\n"
        for guest in ("vhci", "replugs"):
            text = (GUESTS / guest / "results/dmesg").read_text()
            judge.check_kernel_messages(text)
            for line in ("usb 1-1: config 1 interface 0 altsetting 0 has 1 endpoint descriptor",
                         "usb 1-1: recv xbuf, 0"):
                with self.assertRaises(judge.Misjudged, msg=line):
                    judge.check_kernel_messages(text.replace(marker, f"{marker}[   20.0] {line}\n"))
            with self.assertRaises(judge.Misjudged):
                judge.check_kernel_messages(text.replace(marker, ""))


class StreamsTest(SpoiltCopy):
    STEP = "vhci/results/streams"

    def judge(self):
        steps.judge_streams(self.folder, HERE)

    def test_a_wrong_bit_of_each_size_is_noticed(self):
        for size in steps.SIZES:
            self.spoil_picture(f"{size}.yuy2", size)
            self.assert_noticed(size, size, "picture 1 is not one")

    def test_wrong_order_and_number_are_noticed(self):
        size = steps.SIZES[-1]
        length = judge.picture_bytes(size)
        path = self.folder / f"{size}.yuy2"
        whole = path.read_bytes()
        for content, words in ((whole[length:2 * length] + whole[:length] + whole[2 * length:], "out of its order"),
                               (whole[:length] + whole[:length] + whole[2 * length:], "out of its order"),
                               (whole[length:], "9 pictures"), (whole[:-1], "ends within a picture")):
            path.write_bytes(content)
            self.assert_noticed(words, words)

    def test_a_stream_that_failed_is_noticed(self):
        (self.folder / f"{steps.SIZES[2]}.status").write_text("1\n")
        self.assert_noticed("status", "ended with 1")

    def test_a_missing_socket_pair_is_noticed(self):
        (self.folder / "pair").write_text("")
        self.assert_noticed("pair", "socket pair")


def records(content):
    at = 24
    while at < len(content):
        length, = struct.unpack_from("<I", content, at + 8)
        yield content[at:at + 16 + length]
        at += 16 + length


class CaptureTest(SpoiltCopy):
    STEP = "vhci/results/streams"

    def judge(self):
        steps.judge_captures(self.folder, HERE)

    def change_records(self, name, change):
        """Puts change(number, record) in the place of each record of a capture."""
        path = self.folder / f"{name}.pcap"
        content = path.read_bytes()
        path.write_bytes(content[:24] + b"".join(change(number, bytearray(record)) for number, record
                                                 in enumerate(records(content))))

    def test_lost_events_are_noticed(self):
        for name in ("bus", "later"):
            self.spoil(f"{name}.usbmon", "lost 0", "lost 3")
            self.assert_noticed(name, "lost 3")

    def test_wrong_data_are_noticed(self):
        def spoil(_, record):
            if len(record) > 20000:
                record[len(record) // 2] ^= 1
            return record

        for name in ("bus", "later"):
            self.change_records(name, spoil)
            self.assert_noticed(name, "is not one that the camera sends")

    def test_missing_transfers_are_noticed(self):
        self.change_records("bus", lambda number, record: b"" if len(record) > 20000 and number % 8 == 0 else record)
        # Either pictures are missing, or the frames have no size any more.
        self.assert_noticed("transfers")

    def test_a_malformed_packet_is_noticed(self):
        def spoil(_, record):
            # The product's name, in the answer to GET DESCRIPTOR.
            at = record.find("Simulated".encode("utf-16-le"))
            if at >= 0:
                record[at - 2] = 0xFE
            return record

        self.change_records("bus", spoil)
        self.assert_noticed("malformed", "malformed")


class ControlsTest(SpoiltCopy):
    STEP = "vhci/results/controls"

    def judge(self):
        steps.judge_controls(self.folder, HERE)

    def test_a_setting_that_a_replug_forgets_is_noticed(self):
        self.spoil("get.out", "Contrast=12", "Contrast=10")
        self.assert_noticed("setting", "after a replug")

    def test_a_wrong_still_is_noticed(self):
        path = self.folder / "still.yuy2"
        content = bytearray(path.read_bytes())
        path.write_bytes(b"")
        self.assert_noticed("none", "0 stills")
        content[1000] ^= 1
        path.write_bytes(content)
        self.assert_noticed("bit", "is not one that the camera sends")

    def test_a_command_that_failed_is_noticed(self):
        for name in ("set", "still", "get", "reset"):
            (self.folder / f"{name}.status").write_text("1\n")
            self.assert_noticed(name, f"{name} ended with 1")


class ProcessorTimeTest(SpoiltCopy):
    STEP = "vhci/results/processor"

    def judge(self):
        steps.judge_processor_time(self.folder)

    def test_missing_frames_are_noticed(self):
        for name in ("plugged", "simulated"):
            self.spoil(f"{name}.out", f'"delivered": {steps.FRAMES}', '"delivered": 1')
            self.assert_noticed(name, name)

    def test_the_ratio_is_of_the_two_figures(self):
        for name, milliseconds in (("plugged", 3), ("simulated", 4)):
            answer = {"frames": {"delivered": steps.FRAMES}, "processorMillisecondsPerFrame": milliseconds}
            (self.folder / f"{name}.out").write_text(json.dumps(answer))
        self.assertTrue(steps.judge_processor_time(self.folder).endswith("ratio 0.75"))


class ReplugsTest(SpoiltCopy):
    STEP = "replugs/results/replugs"

    def judge(self):
        steps.judge_replugs(self.folder, HERE)

    def test_wrong_pictures_are_noticed(self):
        for path in sorted(self.folder.glob("*.yuy2")):
            self.spoil_picture(path.name, steps.SIZES[-1])
            self.assert_noticed(path.name, path.name, "1 of ")

    def test_too_few_replugs_are_noticed(self):
        self.spoil("replugged", "10 replugs", "9 replugs")
        self.assert_noticed("replugs", "9 replugs")

    def test_a_wrong_end_is_noticed(self):
        (self.folder / "all.status").write_text("1\n")
        self.assert_noticed("all", "did not end well")
        (self.folder / "cut.status").write_text("0\n")
        self.assert_noticed("cut", "cut ended with 0")
        self.spoil("cut.out", "unplugged", "")
        self.assert_noticed("told", "a server that died")

    def test_leaks_are_noticed(self):
        lines = (self.folder / "leaks").read_text().splitlines()
        samples = [[name, *map(int, values)] for name, *values in map(str.split, lines)]
        for what in (1, 2, 3):
            for leaking in ("stream", "server"):
                step = 300 if what == 3 else 1
                grown = [[*each[:what], each[what] + step * (number if each[0] == leaking else 0), *each[what + 1:]]
                         for number, each in enumerate(samples)]
                (self.folder / "leaks").write_text("".join(" ".join(map(str, each)) + "\n" for each in grown))
                self.assert_noticed(f"{what}", f"leak: the {leaking}")
        (self.folder / "leaks").write_text("\n".join(lines[:-2]) + "\n")
        self.assert_noticed("samples", "too few samples")


class StallTest(SpoiltCopy):
    STEP = "replugs/results/stall"

    def judge(self):
        steps.judge_stall(self.folder, HERE)

    def test_a_stall_that_is_not_told_is_noticed(self):
        self.spoil("stalled.out", "no whole frame", "")
        self.assert_noticed("told", "a stalled endpoint")
        (self.folder / "stalled.status").write_text("0\n")
        self.assert_noticed("status", "ended with 0")

    def test_wrong_pictures_are_noticed(self):
        self.spoil_picture("stalled.yuy2", steps.SIZES[-1])
        self.assert_noticed("bit", "stalled.yuy2")


if __name__ == "__main__":
    unittest.main(verbosity=1)
