"""Picture controls and registers."""

import json
import os
import resource
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
        self.assertEqual(brightest(), before, "it was for that run only")
        self.assertEqual(self.lidcam("get", "Brightness"), "Brightness=20\n")

    def test_what_a_stream_sets_is_kept_if_it_is_asked_to(self):
        for command in ("stream", "record"):
            self.lidcam(command, "--fast", "--frames", "2", "--set", "Exposure=30", "--set",
                        "Contrast=12", "--save", "-o", self.path("clip.y4m"))
            self.assertEqual(self.lidcam("get", "Exposure", "AutoExposure", "Contrast"),
                             "Exposure=30\nAutoExposure=0\nContrast=12\n")
            self.lidcam("set", "AutoExposure=1", "Contrast=10")
        self.assert_one_line_error(self.run_lidcam("stream", "--save"), 2, "--save", "--set")

    def test_reset_puts_the_named_controls_back_to_their_defaults_or_all(self):
        self.lidcam("set", "Contrast=12", "Mirror=1", "Exposure=30")
        self.assertEqual(self.lidcam("reset", "Contrast"), "Contrast=10\n")
        self.assertEqual(self.lidcam("get", "Contrast", "Mirror", "Exposure"),
                         "Contrast=10\nMirror=1\nExposure=30\n")
        self.lidcam("reset")
        for row in json.loads(self.lidcam("controls", "--json")):
            if row["name"] != "WhiteBalance":  # of which the camera keeps its own value
                self.assertEqual(row["value"], row["default"], row["name"])

    def test_a_script_gets_range_step_default_value_and_unit_of_each_control(self):
        rows = {row["name"]: row for row in json.loads(self.lidcam("controls", "--json"))}
        contrast = rows["Contrast"]
        self.assertEqual([contrast[key] for key in ("minimum", "maximum", "step", "default", "value",
                                                    "unit")], [1, 16, 1, 10, 10, "level"])
        self.assertEqual((rows["Mirror"]["unit"], rows["Flicker"]["unit"]), ("switch", "choice"))

    def test_only_set_and_save_write_settings(self):
        for arguments in (("get",), ("controls",), ("formats",), ("registers", "dump", "bridge"),
                          ("registers", "write", "bridge", "0x77", "0x21"),
                          ("stream", "--fast", "--frames", "2", "--set", "Contrast=12"),
                          ("still", "--fast", "--settle", "0", "-o", self.path("a.png"))):
            self.lidcam(*arguments)
            self.assertFalse(os.path.exists(self.path("home/registry.reg")), arguments)
        self.lidcam("set", "Contrast=12")
        self.assertTrue(os.path.exists(self.path("home/registry.reg")))

    def test_a_setting_that_is_not_stored_fails(self):
        self.lidcam("set", "Contrast=12")

        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000))

        for arguments in (("set", "Contrast=13"),
                          ("stream", "-q", "--fast", "--frames", "2", "--set", "Contrast=13", "--save")):
            result = self.run_lidcam(*arguments, preexec_fn=limit_files)
            self.assert_one_line_error(result, 1, "settings are not stored", "File too large",
                                       self.path("home/registry.reg"))
            self.assertEqual(result.stdout, b"")
            self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=12\n")

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
            "WhiteBalance": 0, "BacklightCompensation": 0, "ColorEnable": 1, "Exposure": 1,
            "AutoExposure": 1, "Mirror": 0, "Vertical": 0, "Flicker": 1, "Effect": 0, "LDMode": 0,
            "LED": 4})

    def test_a_control_answers_to_its_older_name(self):
        self.assertEqual(self.lidcam("set", "BackLight=1"), "BacklightCompensation=1\n")
        self.assertEqual(self.lidcam("get", "backlight"), "BacklightCompensation=1\n")

    def test_what_belongs_together_is_changed_one_by_one(self):
        self.lidcam("set", "LED=2", "LDMode=1")
        self.lidcam("set", "Exposure=30")
        self.assertEqual(self.lidcam("get", "LED", "LDMode", "Exposure", "AutoExposure"),
                         "LED=2\nLDMode=1\nExposure=30\nAutoExposure=0\n")
        self.lidcam("set", "AutoExposure=1")
        self.assertEqual(self.lidcam("get", "Exposure", "AutoExposure"),
                         "Exposure=30\nAutoExposure=1\n")

    def test_the_camera_keeps_its_white_balance(self):
        result = self.run_lidcam("set", "WhiteBalance=1")
        self.assertEqual(result.stdout, b"WhiteBalance=0\n")
        self.assert_one_line_error(result, 1, "WhiteBalance stays 0", "took 1")

    def test_of_two_values_for_one_control_the_later_one_is_stored(self):
        self.lidcam("set", "Contrast=12", "Contrast=13")
        self.assertEqual(self.lidcam("get", "Contrast"), "Contrast=13\n")

    def test_a_value_that_is_not_taken_costs_no_other_one(self):
        result = self.run_lidcam("set", "Contrast=12", "WhiteBalance=1", "Gamma=5")
        self.assert_one_line_error(result, 1, "WhiteBalance stays 0")
        self.assertEqual(self.lidcam("get", "Contrast", "Gamma"), "Contrast=12\nGamma=5\n")

    def test_a_control_that_does_nothing_on_the_sensor_says_so(self):
        camera = ("--camera", "sim:1b17:6110")
        result = self.run_lidcam("set", "Mirror=1", *camera)
        self.assertEqual((result.returncode, result.stdout), (0, b"Mirror=1\n"))
        self.assert_one_line_error(result, 0, "Mirror does nothing", "VGA7648", "the value is kept")
        self.assertEqual(self.run_lidcam("set", "-q", "Mirror=1", *camera).stderr, b"")
        self.assertEqual(self.run_lidcam("set", "Mirror=1").stderr, b"")
        effects = {row["name"]: row["hasEffect"]
                   for row in json.loads(self.lidcam("controls", "--json", *camera))}
        self.assertEqual([name for name, has_effect in effects.items() if not has_effect],
                         ["Mirror", "Vertical"])
        self.assertIn("nothing on this sensor; elsewhere 1: left and right exchanged",
                      self.lidcam("controls", *camera))

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

    # The published ones' ranges and defaults are the driver's; a camera without stored settings starts
    # with other values than these defaults.
    def test_each_control_row_has_range_step_default_and_value(self):
        rows = json.loads(self.lidcam("controls", "--json"))
        self.assertEqual(
            [(row["name"], row["minimum"], row["maximum"], row["step"], row["default"],
              row["value"]) for row in rows],
            [("Brightness", -100, 100, 1, 0, 20), ("Contrast", 1, 16, 1, 10, 10),
             ("Saturation", 0, 255, 1, 120, 120), ("Sharpness", 0, 8, 1, 4, 3),
             ("Gamma", 1, 20, 1, 12, 11), ("WhiteBalance", 0, 1, 1, 1, 0),
             ("BacklightCompensation", 0, 1, 1, 0, 0), ("ColorEnable", 0, 1, 1, 1, 1),
             ("Exposure", 1, 100, 1, 1, 1), ("AutoExposure", 0, 1, 1, 1, 1),
             ("Mirror", 0, 1, 1, 0, 0), ("Vertical", 0, 1, 1, 0, 0), ("Flicker", 0, 2, 1, 1, 1),
             ("Effect", 0, 5, 1, 0, 0), ("LDMode", 0, 1, 1, 0, 0), ("LED", 2, 4, 1, 4, 4)])

    def test_the_table_is_what_the_json_says(self):
        table = self.lidcam("controls").split("\n")
        rows = json.loads(self.lidcam("controls", "--json"))
        for line, row in zip(table[1:], rows):
            self.assertEqual(line.split()[:6],
                             [str(row[key]) for key in ("name", "minimum", "maximum", "step",
                                                        "default", "value")])
            self.assertIn(row["reports"], line)
            self.assertTrue(line.endswith(row["meaning"]), line)

    def test_a_recorded_camera_tells_its_controls(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "3", "-o", capture)
        self.assertEqual(self.lidcam("get", "Contrast", "--camera", f"capture:{capture}"),
                         "Contrast=10\n")
        refusals = [self.run_lidcam(*command, "--camera", f"capture:{capture}")
                    for command in (("set", "Contrast=3"), ("stream", "--set", "Contrast=3"),
                                    ("record", "--set", "Contrast=3", "-o", self.path("b.pcap")))]
        for result in refusals:
            self.assert_one_line_error(result, 2, capture, "is a recording", "no control")
            self.assertEqual(result.stderr, refusals[0].stderr, "refused alike")
        self.assert_nothing_left("bus.pcap")


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
