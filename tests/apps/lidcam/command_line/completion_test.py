"""A shell completes commands, options and their values on an incomplete line."""

import os
import shutil
import subprocess
import unittest

from command_line import CommandLineTest, LIDCAM

COMPLETION = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../../../packaging/completion")
BASH_COMPLETION = "/usr/share/bash-completion/bash_completion"


class CompletionTest(CommandLineTest):
    def candidates(self, *words):
        lines = self.lidcam("__complete", *words).split("\n")[:-1]
        return [line.split("\t")[0] for line in lines]

    def test_commands_with_what_they_do(self):
        self.assertIn("stream\t", self.lidcam("__complete", ""))
        self.assertEqual(self.candidates("st"), ["stream", "still", "status"])
        self.assertEqual(self.candidates("serve", "usbi"), ["usbip"])

    def test_every_command_of_the_help_is_one(self):
        subcommands = self.lidcam("--help").split("Subcommands:\n")[1].split("\n\n")[0]
        self.assertEqual(self.candidates(""), [line.split()[0] for line in subcommands.split("\n")])

    def test_options_of_the_command_that_is_named(self):
        self.assertEqual(self.candidates("stream", "--si"), ["--size"])
        self.assertEqual(self.candidates("list", "--si"), [])

    def test_values_behind_an_option_and_behind_its_equals_sign(self):
        self.assertEqual(self.candidates("stream", "--size", "3"), ["352x288", "320x240"])
        self.assertEqual(self.candidates("stream", "--size=3"), ["--size=352x288", "--size=320x240"])
        self.assertEqual(self.candidates("stream", "--raw-size", "1"), ["160x120"])
        self.assertEqual(self.candidates("stream", "--mains", ""), ["50Hz", "60Hz"])
        self.assertEqual(self.candidates("registers", "read", ""), ["bridge", "sensor"])

    def test_a_flag_has_no_value(self):
        self.assertIn(":files", self.candidates("list", "--json", ""))

    def test_cameras(self):
        self.assertIn("sim:1b17:6111", self.candidates("still", "--camera", "sim:"))
        self.assertEqual(self.candidates("still", "--camera", "cap"), ["capture:"])

    def test_controls_and_their_ranges(self):
        self.assertEqual(self.candidates("get", "Bri"), ["Brightness"])
        self.assertEqual(self.candidates("set", "Contr"), ["Contrast="])
        self.assertEqual(self.candidates("set", "Contrast="),
                         ["Contrast=10", "Contrast=1", "Contrast=16"])
        self.assertEqual(self.candidates("set", "Contrast=3", "Mirr"), ["Mirror="])
        self.assertEqual(self.candidates("stream", "--set", "Mirror=1", "Contr"), ["Contrast="])

    def test_scenarios(self):
        self.assertEqual(self.candidates("simulate", "--scenario", "late-t"), ["late-tick"])

    def test_files_are_left_to_the_shell(self):
        for words in (("stream", "-o", ""), ("replay", ""), ("sets", "show", "x"),
                      ("stream", "--camera", "sim", "--log", "")):
            self.assertEqual(self.candidates(*words), [":files"], words)

    def test_unknown_words_have_no_candidates(self):
        self.assertEqual(self.candidates("no-such-command", "--no-such", ""), [*self.candidates("")])
        self.assertEqual(self.candidates("stream", "--no-such=x"), [])

    @unittest.skipUnless(os.path.exists(BASH_COMPLETION), "bash-completion is not installed")
    def test_bash_completes_words_with_colons_and_equals_signs(self):
        for line, expected in (("lidcam st", ["stream", "still", "status"]),
                               ("lidcam set Contrast=1", ["10", "1", "16"]),
                               ("lidcam still --camera sim:1af0:601", ["6010", "6011"])):
            self.assertEqual(self.completed_by_bash(line), expected, line)

    def completed_by_bash(self, line):
        script = f"""
            source {BASH_COMPLETION}
            source {COMPLETION}/lidcam.bash
            compopt() {{ :; }}
            COMP_LINE=$1 COMP_POINT=${{#1}}
            read -ra COMP_WORDS <<<"$(sed 's/[:=]/ & /g' <<<"$1")"
            COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1))
            _lidcam
            printf '%s\\n' "${{COMPREPLY[@]}}" """
        os.makedirs(self.path("bin"), exist_ok=True)
        if not os.path.exists(self.path("bin/lidcam")):
            os.symlink(LIDCAM, self.path("bin/lidcam"))
        result = subprocess.run(["bash", "-c", script, "bash", line], capture_output=True, text=True,
                                env=dict(os.environ, PATH=self.path("bin") + ":" + os.environ["PATH"]),
                                timeout=60, check=False)
        self.assertEqual(result.stderr, "")
        return result.stdout.split()

    def test_scripts_of_the_other_shells_are_well_formed(self):
        for shell, script in (("zsh", "_lidcam"), ("fish", "lidcam.fish")):
            if shutil.which(shell):
                subprocess.run([shell, "-n", os.path.join(COMPLETION, script)], check=True, timeout=60)


if __name__ == "__main__":
    unittest.main(verbosity=1)
