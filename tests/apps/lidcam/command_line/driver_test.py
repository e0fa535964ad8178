"""--driver names an image of the driver; one that can't be loaded is refused with its reason."""

import unittest

from command_line import CommandLineTest


class DriverTest(CommandLineTest):
    def test_an_image_that_cannot_be_loaded_is_named_with_the_reason(self):
        text = self.path("text.sys")
        with open(text, "w", encoding="utf-8") as stream:
            stream.write("this is a text of more than a few bytes, and no image at all")
        for command in (("stream", "--fast"), ("still",), ("controls",), ("simulate",),
                        ("record", "-o", self.path("bus.pcap"))):
            with self.subTest(command=command):
                self.assert_one_line_error(self.run_lidcam(*command, "--driver", text), 1, text,
                                           "is no executable image")
                missing = self.path("missing.sys")
                self.assert_one_line_error(self.run_lidcam(*command, "--driver", missing), 1,
                                           missing, "No such file")

    def test_side_by_side_needs_an_image(self):
        self.assert_one_line_error(self.run_lidcam("simulate", "--side-by-side"), 2, "--driver")


if __name__ == "__main__":
    unittest.main()
