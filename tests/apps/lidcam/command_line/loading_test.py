"""What the program loads: little at its start, and modules when a command needs them."""

import os
import shutil
import subprocess
import unittest

import command_line
from command_line import CommandLineTest

OTHER_VERSION = 'const char lidcam_module_version[] = "9.8.7";'


class LoadingTest(CommandLineTest):
    def libraries(self, program, *arguments):
        result = subprocess.run([program, *arguments], capture_output=True, text=True, timeout=60, check=True,
                                env=dict(os.environ, LD_TRACE_LOADED_OBJECTS="1"))
        return [line.split()[0] for line in result.stdout.splitlines()]

    def program_without_modules(self):
        """A copy: the program looks for modules where it is itself."""
        shutil.copy(command_line.LIDCAM, self.path("lidcam"))
        return self.path("lidcam")

    def run_alone(self, *arguments, **environment):
        return subprocess.run([self.program_without_modules(), *arguments], capture_output=True, timeout=60,
                              check=False, env=dict(os.environ, LIDCAM_HOME=self.path("home"), **environment))

    def skip_if_built_without(self, module, result):
        if b"built without" in result.stderr:
            self.skipTest(f"built without {module}")

    def test_fewer_than_twenty_libraries_are_loaded_at_the_start(self):
        libraries = self.libraries(command_line.LIDCAM, "--version")
        self.assertIn("libc.so.6", libraries)
        self.assertLess(len(libraries), 20, libraries)

    def test_a_film_without_its_module_names_the_module_and_its_package(self):
        result = self.run_alone("stream", "--fast", "--frames", "2", "-o", self.path("clip.mkv"))
        self.skip_if_built_without("films", result)
        self.assert_one_line_error(result, 1, "clip.mkv", "lidcam-film.so", "the package lidcam-film")
        self.assertFalse(os.path.exists(self.path("clip.mkv")))

    def test_sharing_without_its_module_names_the_module_and_its_package(self):
        result = self.run_alone("share")
        self.skip_if_built_without("PipeWire", result)
        self.assert_one_line_error(result, 1, "share", "lidcam-pipewire.so", "the package lidcam-pipewire")

    def test_an_rtsp_server_without_its_module_names_the_module_and_its_package(self):
        result = self.run_alone("serve", "rtsp", "--listen", "127.0.0.1:0")
        self.skip_if_built_without("GStreamer", result)
        self.assert_one_line_error(result, 1, "serve rtsp", "lidcam-rtsp.so", "the package lidcam-rtsp")

    def test_every_other_output_needs_no_module(self):
        for name in ("a.y4m", "a.yuy2", "a.png", "a.jpg", "a.mjpeg"):
            result = self.run_alone("stream", "--fast", "--frames", "2", "-o", self.path(name))
            self.assertEqual(result.returncode, 0, result.stderr.decode())

    @unittest.skipUnless(shutil.which("cc"), "there is no C compiler")
    def test_a_module_of_another_version_is_refused_with_both_versions(self):
        with open(self.path("film.c"), "w", encoding="utf-8") as source:
            source.write(OTHER_VERSION)
        subprocess.run(["cc", "-shared", "-fPIC", self.path("film.c"), "-o", self.path("lidcam-film.so")],
                       check=True, timeout=60)
        result = self.run_alone("stream", "--fast", "--frames", "2", "-o", self.path("clip.mkv"),
                                LD_LIBRARY_PATH=self.folder)
        self.skip_if_built_without("films", result)
        version = self.lidcam("--version").split()[1]
        self.assert_one_line_error(result, 1, "lidcam-film.so", "9.8.7", version)


if __name__ == "__main__":
    unittest.main()
