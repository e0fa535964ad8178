"""Every list of cameras, in packages, documents and program, has the identities of the Windows package, and no others.

Usage: python3 camera_identities_test.py LIDCAM [unittest arguments]
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

LIDCAM = os.path.abspath(sys.argv.pop(1))
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent

IDENTITY = r"\b(1af0|1b17):([0-9a-f]{4})\b"


def text_of(path):
    return (ROOT / path).read_text(encoding="utf-8")


def found(pattern, text):
    """What a pattern with the groups vendor and product finds, as vvvv:pppp, without repetitions."""
    return sorted({f"{vendor}:{product}".lower() for vendor, product in re.findall(pattern, text, re.IGNORECASE)})


def of_windows():
    return found(r"= Camera,USB\\VID_([0-9A-F]{4})&PID_([0-9A-F]{4})", text_of("platform/windows/lidcam.inf.in"))


class CameraIdentitiesTest(unittest.TestCase):
    def assert_all(self, identities):
        self.assertEqual(identities, of_windows())

    def test_there_are_seven(self):
        self.assertEqual(len(of_windows()), 7)

    def test_udev_gives_each_of_them_to_users(self):
        rules = re.findall(r'idVendor}=="([^"]*)", ATTR{idProduct}=="([^"]*)"', text_of("packaging/udev/70-lidcam.rules"))
        self.assert_all(sorted(f"{vendor}:{product}" for vendor, products in rules for product in products.split("|")))

    def test_software_centres_offer_lidcam_for_each_of_them(self):
        metadata = text_of("packaging/metainfo/invalid.lidcam.lidcam.metainfo.xml")
        self.assert_all(found(r"<modalias>usb:v([0-9A-F]{4})p([0-9A-F]{4})d\*</modalias>", metadata))
        self.assert_all(found(IDENTITY, metadata))

    def test_every_package_for_cameras_names_them(self):
        descriptions = [paragraph for paragraph in text_of("packaging/debian/control").split("\n\n")
                        if "USB\n identities" in paragraph]
        self.assertEqual(len(descriptions), 4)
        for description in descriptions:
            self.assert_all(found(IDENTITY, description))

    def test_documents_list_them(self):
        for document, pattern in (("README.md", IDENTITY),
                                  ("docs/hardware.md", r"(?m)^\| 0x([0-9A-F]{4}) \| 0x([0-9A-F]{4}) \|"),
                                  ("docs/simulated-camera.md", r"(?m)^\| (1af0|1b17):([0-9a-f]{4}) \|")):
            with self.subTest(document=document):
                self.assert_all(found(pattern, text_of(document)))

    def test_each_is_simulated(self):
        with tempfile.TemporaryDirectory() as folder:
            listed = subprocess.run([LIDCAM, "list", "--json"], capture_output=True, text=True, timeout=60, check=True,
                                    env=dict(os.environ, LIDCAM_HOME=folder)).stdout
        self.assert_all(sorted(camera["identity"] for camera in json.loads(listed) if camera["kind"] == "simulated"))

    def test_the_driver_captures_and_the_kernel_that_is_tried_know_each(self):
        pair = r"\{0x(1AF0|1B17), 0x([0-9A-F]{4})[,}]"
        for source, pattern in (("driver/sensor/identification/sensor_identification.cpp", pair),
                                ("bus/capture/replay/capture_source.cpp", pair),
                                ("tests/on_linux_usb/judge.py", IDENTITY)):
            with self.subTest(source=source):
                self.assert_all(found(pattern, text_of(source)))


unittest.main(argv=[sys.argv[0], *sys.argv[1:]])
