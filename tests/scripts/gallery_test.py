"""The contact sheet of scripts/gallery."""

import os
import pathlib
import sys
import tempfile
import unittest

LIDCAM = os.path.abspath(sys.argv.pop(1))
sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
import gallery  # pylint: disable=wrong-import-position

os.environ["LIDCAM_CAMERA"] = "sim"


class NotesTest(unittest.TestCase):
    def test_a_row_that_cannot_change_says_so(self):
        for name in ("LED", "WhiteBalance"):
            self.assertTrue(gallery.note_of({"name": name, "hasEffect": True}).startswith("No change: "))
        self.assertTrue(gallery.note_of({"name": "Gamma", "hasEffect": False}).startswith(
            "No change: this sensor"))
        self.assertEqual(gallery.note_of({"name": "Gamma", "hasEffect": True}), "")


class PicturesTest(unittest.TestCase):
    def setUp(self):
        try:
            import PIL.ImageStat  # pylint: disable=import-outside-toplevel
        except ImportError:
            self.skipTest("no python3-pil here")
        self.brightness = lambda picture: PIL.ImageStat.Stat(picture.convert("L")).mean[0]

    def test_the_row_of_automatic_exposure_shows_what_it_does(self):
        with tempfile.TemporaryDirectory() as home:
            camera = gallery.Camera(LIDCAM, "sim", home)
            camera.run("set", "Exposure=100")  # as the row before has left it
            dark, bright = (self.brightness(camera.picture("AutoExposure", value))
                            for value in (0, 1))
        self.assertGreater(bright, 3 * dark)


if __name__ == "__main__":
    unittest.main(verbosity=1)
