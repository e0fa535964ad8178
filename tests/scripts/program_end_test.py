"""The Python scripts end with a status and one line, whatever happens to them.

Usage: python3 program_end_test.py LIDCAM [unittest arguments]
"""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

LIDCAM = os.path.abspath(sys.argv.pop(1))
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
SCRIPTS = ROOT / "scripts"


# Scripts that do their work without an argument.
WITH_DEFAULTS = ("bench-simulation", "check-image-kernels", "check-kernel-objects", "check-layers", "image-coverage",
                 "mutate-ordering", "spoil-image", "test-changed", "test-usb", "test-v4l2", "test-viewer",
                 "viewer-load")


def python_scripts():
    """All files of the project that Python runs, but for the tests and for modules of several scripts."""
    for folder in (SCRIPTS, SCRIPTS / "windows", ROOT / "fuzz"):
        for path in sorted(folder.iterdir()):
            if path.is_file() and path.name not in ("image_code.py", "program_end.py"):
                with open(path, "rb") as file:
                    if path.suffix == ".py" or b"python" in file.readline():
                        yield path


class ProgramEndTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="lidcam-test-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_script(self, script, *arguments):
        return subprocess.run(["/usr/bin/python3", str(script), *arguments], capture_output=True,
                              text=True, timeout=300, check=False)

    def script(self, main):
        """A script that ends as all do."""
        path = self.path("some-script")
        with open(path, "w", encoding="ascii") as file:
            file.write(f"import sys\nsys.path.insert(0, {str(SCRIPTS)!r})\nimport program_end\n"
                       f"def main():\n    {main}\nprogram_end.run(main)\n")
        return path

    def assert_ends(self, result, status, *words):
        self.assertEqual(result.returncode, status, result.stderr)
        self.assertNotIn("Traceback", result.stderr)
        for word in words:
            self.assertIn(word, result.stderr)

    def assert_one_line(self, result, status, *words):
        self.assert_ends(result, status, *words)
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)

    def test_every_script_ends_by_it(self):
        scripts = list(python_scripts())
        self.assertGreater(len(scripts), 6)
        for path in scripts:
            self.assertIn("program_end.run(main)", path.read_text(encoding="utf-8"), path)

    def test_wrong_arguments_end_every_script_with_status_2(self):
        for path in python_scripts():
            self.assert_ends(self.run_script(path, "--no-such-option"), 2)
            if path.name not in WITH_DEFAULTS:
                self.assert_ends(self.run_script(path), 2)

    def test_missing_files_are_named(self):
        missing = self.path("missing")
        for script, arguments in (("windows/check-kernel-image", (missing,)),
                                  ("windows/finish-kernel-image", (missing, self.path("out"))),
                                  ("windows/make-catalogue", (self.path("out"), missing)),
                                  ("compare-frames", ("640x480", missing, missing)),
                                  ("gallery.py", (missing, "sim", self.path("out"))),
                                  ("draw-exposure-loop", (missing,)),
                                  ("simulate", ("10", missing))):
            self.assert_one_line(self.run_script(SCRIPTS / script, *arguments), 1, missing)
        self.assert_one_line(self.run_script(ROOT / "fuzz" / "seeds.py", missing, self.path("out")), 1,
                             missing)
        self.assert_ends(self.run_script(SCRIPTS / "windows" / "check-kernel-objects", missing), 2, missing)

    def test_files_of_another_kind_are_told(self):
        text = self.path("text")
        with open(text, "w", encoding="ascii") as file:
            file.write("no image\n")
        for script, arguments in (("windows/check-kernel-image", (text,)),
                                  ("windows/finish-kernel-image", (text, self.path("out"))),
                                  ("simulate", ("10", "/bin/false")),
                                  ("simulate", ("10", "/bin/echo"))):
            self.assert_one_line(self.run_script(SCRIPTS / script, *arguments), 1)
        self.assert_ends(self.run_script(SCRIPTS / "compare-frames", "big", text, text), 2, "640x480")
        self.assert_ends(self.run_script(SCRIPTS / "compare-frames", "0x480", text, text), 2, "0x480")
        self.assert_one_line(self.run_script(SCRIPTS / "gallery.py", LIDCAM, "webcam",
                                             self.path("out.png")), 1, "webcam")

    def test_an_interrupt_ends_with_one_line(self):
        script = self.script("print('ready', flush=True); import time; time.sleep(60)")
        with subprocess.Popen([sys.executable, script], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True) as process:
            self.assertEqual(process.stdout.readline(), "ready\n")
            process.send_signal(signal.SIGINT)
            error = process.stderr.read()
            self.assertEqual(process.wait(timeout=60), 1)
        self.assertEqual(error, "some-script: interrupted\n")

    def test_a_reader_that_goes_away_is_no_reason_for_words(self):
        for main in ("print('x' * 1000000)", "print('x')"):
            script = self.script(main)
            reader, writer = os.pipe()
            os.close(reader)
            result = subprocess.run([sys.executable, script], stdout=writer, stderr=subprocess.PIPE,
                                    text=True, timeout=60, check=False)
            os.close(writer)
            self.assertEqual((result.returncode, result.stderr), (1, ""))

    def test_a_command_that_fails_is_named_with_what_it_said(self):
        script = self.script("import subprocess; subprocess.run(['sh', '-c', 'echo why >&2; exit 3'], "
                             "check=True, capture_output=True)")
        result = subprocess.run([sys.executable, script], capture_output=True, text=True, check=False)
        self.assert_one_line(result, 1, "failed with status 3: why")

    def test_a_module_that_is_missing_is_named_with_its_remedy(self):
        script = self.script("program_end.need('no_such_module', 'gallery')")
        result = subprocess.run([sys.executable, script], capture_output=True, text=True, check=False)
        self.assert_one_line(result, 1, "no_such_module", "scripts/setup gallery")

    def test_nothing_is_left_beside_the_scripts(self):
        self.run_script(SCRIPTS / "simulate")
        self.assertFalse((SCRIPTS / "__pycache__").exists())


if __name__ == "__main__":
    unittest.main(verbosity=1)
