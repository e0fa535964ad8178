"""Picture controls and registers."""

import json
import unittest

from command_line import CommandLineTest


class ControlsTest(CommandLineTest):
    def test_a_control_can_change_while_the_stream_runs(self):
        def brightest(*arguments):
            file = self.path("frames.yuy2")
            self.lidcam("stream", "--fast", "--frames", "4", "-o", file, *arguments)
            with open(file, "rb") as stream:
                return max(stream.read()[-614400::2])

        before = brightest()
        self.assertLess(brightest("--set", "Brightness=-100"), before)
        self.assertEqual(self.lidcam("get", "Brightness"), "Brightness=-100\n")

    def test_what_is_set_is_there_tomorrow(self):
        self.lidcam("set", "Contrast=12", "mirror=1", "Brightness=-30")
        self.assertEqual(self.lidcam("get", "Contrast", "Mirror", "Brightness"),
                         "Contrast=12\nMirror=1\nBrightness=-30\n")

    def test_identities_keep_settings_of_their_own(self):
        self.lidcam("set", "Contrast=12")
        self.assertEqual(self.lidcam("get", "--camera", "sim:1af0:6010", "Contrast"), "Contrast=10\n")

    def test_defaults_stand_before_anything_is_set(self):
        values = json.loads(self.lidcam("get", "--json"))
        self.assertEqual(values, {
            "Brightness": 20, "Contrast": 10, "Saturation": 120, "Sharpness": 3, "Gamma": 11,
            "ColorEnable": 1, "BackLight": 0, "AutoExposure": 1, "Exposure": 1, "Mirror": 0,
            "Vertical": 0, "Flicker": 1, "Effect": 0, "LDMode": 0, "LED": 4})

    def test_brightness_reaches_the_register_at_once(self):
        self.lidcam("set", "Brightness=40")
        rows = json.loads(self.lidcam("controls", "--json"))
        self.assertEqual(rows[0]["reports"], "bridge FF77=28")

    def test_a_mistake_in_one_assignment_changes_nothing(self):
        result = self.run_lidcam("set", "Contrast=12", "Gamma=21")
        self.assert_one_line_error(result, 2, "Gamma", "21", "1 to 20")
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=10\n")
        self.assert_one_line_error(self.run_lidcam("set", "Sepia=1"), 2, "Sepia", "Saturation")
        self.assert_one_line_error(self.run_lidcam("set", "Contrast"), 2, "Contrast", "NAME=VALUE")

    def test_each_control_row_has_range_default_and_value(self):
        rows = json.loads(self.lidcam("controls", "--json"))
        for row in rows:
            self.assertLessEqual(row["minimum"], row["default"])
            self.assertLessEqual(row["default"], row["maximum"])
            self.assertEqual(row["value"], row["default"], row["name"])
        self.assertEqual(len(rows), 15)


class RegistersTest(CommandLineTest):
    def test_both_forms_of_an_address_name_the_same_register(self):
        self.assertEqual(self.lidcam("registers", "read", "bridge", "0x77"), "bridge FF77 = 14\n")
        self.assertEqual(self.lidcam("registers", "read", "bridge", "0xFF77"), "bridge FF77 = 14\n")

    def test_a_write_is_read_back(self):
        self.assertEqual(self.lidcam("registers", "write", "bridge", "0x77", "0x21"),
                         "bridge FF77 = 21\n")

    def test_addresses_that_are_none_are_refused(self):
        for address in ("0x1234", "0xFFFF", "0xFF", "seven"):
            self.assert_one_line_error(self.run_lidcam("registers", "read", "bridge", address), 2,
                                       address)

    def test_the_dump_has_sixteen_rows(self):
        self.assertEqual(len(self.lidcam("registers", "dump", "sensor").strip().split("\n")), 17)

    def test_the_trace_of_a_bring_up_begins_with_the_mode_register(self):
        lines = self.lidcam("registers", "trace").split("\n")
        self.assertTrue(lines[0].startswith("bus  read  bridge FF0A -> "))
        self.assertIn("sensor type 9", lines)


if __name__ == "__main__":
    unittest.main(verbosity=1)
