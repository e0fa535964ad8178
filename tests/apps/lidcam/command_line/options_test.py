"""One's usual options: a file, the environment above it, the command line above both."""

import json
import os
import unittest

from command_line import CommandLineTest


class UsualOptionsTest(CommandLineTest):
    def configure(self, text):
        file = self.path("config/lidcam/config")
        os.makedirs(os.path.dirname(file), exist_ok=True)
        with open(file, "w", encoding="utf-8") as stream:
            stream.write(text)
        os.environ["XDG_CONFIG_HOME"] = self.path("config")
        self.addCleanup(os.environ.pop, "XDG_CONFIG_HOME", None)
        return file

    def environment(self, name, value):
        os.environ[name] = value
        self.addCleanup(os.environ.pop, name, None)

    def size(self, *arguments):
        return json.loads(self.lidcam("stream", "--fast", "--frames", "1", "--json",
                                      *arguments))["size"]

    def test_the_file_of_ones_usual_options_holds_for_all_commands_that_have_them(self):
        self.configure('size = "320x240"\nfast = true\n')
        self.assertEqual(self.size(), "320x240")
        self.lidcam("get", "Contrast")  # has no --size

    def test_a_section_is_for_one_command_and_goes_before_what_is_for_all(self):
        self.configure('size = "320x240"\n[stream]\nsize = "176x144"\n[replay]\nsize = "352x288"\n')
        self.assertEqual(self.size(), "176x144")

    def test_the_environment_goes_before_the_file_and_the_command_line_before_both(self):
        self.configure('[stream]\nsize = "320x240"\n')
        self.environment("LIDCAM_SIZE", "176x144")
        self.assertEqual(self.size(), "176x144")
        self.assertEqual(self.size("--size", "160x120"), "160x120")

    def test_another_file_can_be_named(self):
        file = self.configure("")
        os.rename(file, self.path("other"))
        with open(self.path("other"), "w", encoding="utf-8") as stream:
            stream.write('size = "160x120"\n')
        answer = self.lidcam("--config", self.path("other"), "stream", "--fast", "--frames", "1",
                             "--json")
        self.assertEqual(json.loads(answer)["size"], "160x120")
        self.assert_one_line_error(self.run_lidcam("--config", self.path("none"), "list"), 2,
                                   self.path("none"))

    def test_what_no_command_has_is_named_with_its_file(self):
        for text, words in (("frobnicate = 1\n", ("--frobnicate",)),
                            ("[stream]\ntitle = 1\n", ("stream", "--title")),
                            ("[strem]\nsize = 1\n", ("[strem]",))):
            file = self.configure(text)
            self.assert_one_line_error(self.run_lidcam("get", "Contrast"), 2, file, *words)

    def test_help_says_so(self):
        text = self.lidcam("--help")
        self.assertIn("--config", text)
        self.assertIn("LIDCAM_SIZE", text)


if __name__ == "__main__":
    unittest.main(verbosity=1)
