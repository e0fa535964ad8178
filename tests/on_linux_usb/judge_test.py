"""That the judge notices what is wrong: spoilt copies of what a guest saw.

Usage: python3 judge_test.py RESULTS, the folder that a run of scripts/test-usb left
"""

import pathlib
import shutil
import sys
import tempfile
import unittest

import judge

RESULTS = pathlib.Path(sys.argv.pop(1))
CAMERAS = [(identity, kind) for identity in judge.IDENTITIES for kind in ("long", "short")]


class JudgeTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="lidcam-judge-"))
        self.addCleanup(shutil.rmtree, self.folder)
        for name in ("lsusb", "complaints"):
            shutil.copy(RESULTS / "enumeration" / name, self.folder / name)

    def spoil(self, name, before, after):
        text = (self.folder / name).read_text()
        self.assertIn(before, text)
        (self.folder / name).write_text(text.replace(before, after, 1))

    def test_what_the_guest_saw_is_right(self):
        judge.check_enumeration(self.folder, CAMERAS)

    def test_each_wrong_descriptor_is_noticed(self):
        for before, after in (("0x1400  3x 1024 bytes", "0x1400  2x 1024 bytes"),
                              ("0x00c1", "0x00c0"), ("500mA", "100mA"), (" 1 lidcam\n", " 1 lidcan\n"),
                              ("EP 2 IN", "EP 3 IN"), ("bAlternateSetting       7", ""),
                              ("Isochronous", "Bulk"), ("ID 1b17:6111", "ID 1b17:6112")):
            shutil.copy(RESULTS / "enumeration/lsusb", self.folder / "lsusb")
            self.spoil("lsusb", before, after)
            with self.assertRaises(judge.Misjudged, msg=before):
                judge.check_enumeration(self.folder, CAMERAS)

    def test_a_complaint_of_lsusb_is_noticed(self):
        (self.folder / "complaints").write_text("can't get device qualifier\n")
        with self.assertRaises(judge.Misjudged):
            judge.check_enumeration(self.folder, CAMERAS)

    def test_a_complaint_of_the_kernel_is_noticed(self):
        text = (RESULTS / "dmesg").read_text()
        judge.check_kernel_messages(text)
        line = "[   20.0] usb 1-1: config 1 interface 0 altsetting 0 has 1 endpoint descriptor\n"
        marker = "lidcam: end\n"
        with self.assertRaises(judge.Misjudged):
            judge.check_kernel_messages(text.replace(marker, marker + line))
        with self.assertRaises(judge.Misjudged):
            judge.check_kernel_messages(text.replace(marker, ""))


if __name__ == "__main__":
    unittest.main(verbosity=1)
