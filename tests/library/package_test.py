"""The installed library as applications find it: its symbols, its packages and the examples.

Usage: python3 package_test.py CMAKE BUILD_FOLDER [unittest arguments]
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

CMAKE = sys.argv.pop(1)
BUILD = os.path.abspath(sys.argv.pop(1))
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
HEADER = os.path.join(SOURCE, "library/lidcam.h")

C_PROGRAM = """
#include <lidcam.h>
#include <stdio.h>

int main(void) {
  lidcam_camera *camera = NULL;
  const lidcam_frame *frame = NULL;
  lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
  options.width = 320;
  options.height = 240;
  if (lidcam_open("sim", NULL, &camera) < 0 || lidcam_start(camera, &options) < 0 ||
      lidcam_next_frame(camera, 10000, &frame) != LIDCAM_OK) {
    fprintf(stderr, "%s\\n", lidcam_error_text());
    return 1;
  }
  printf("%s %ux%u\\n", lidcam_version(), frame->width, frame->height);
  lidcam_frame_release(frame);
  lidcam_close(camera);
  return 0;
}
"""

CMAKE_PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(outside LANGUAGES C CXX)
find_package(lidcam 0.1 REQUIRED)
foreach(language c cpp)
  add_executable(outside_${language} outside.${language})
  target_link_libraries(outside_${language} PRIVATE lidcam::lidcam)
endforeach()
"""


def run(*arguments, **options):
    result = subprocess.run(arguments, capture_output=True, text=True, timeout=300, check=False,
                            **options)
    if result.returncode != 0:
        raise AssertionError(f"{arguments}: {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


def python_with_numpy():
    """The interpreter of these tests, otherwise the system's, whose packages scripts/setup installs."""
    for python in (sys.executable, "/usr/bin/python3"):
        if os.path.exists(python) and subprocess.run(
                [python, "-c", "import numpy"], capture_output=True, check=False).returncode == 0:
            return python
    return None


PYTHON = python_with_numpy()
NEEDS_NUMPY = unittest.skipUnless(
    PYTHON, "NumPy is not installed: scripts/setup test installs python3-numpy")


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="lidcam-test-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.prefix = os.path.join(cls.folder, "prefix")
        run(CMAKE, "--install", BUILD, "--prefix", cls.prefix)
        for folder, _, files in os.walk(cls.prefix):
            if "liblidcam.so.0" in files:
                cls.libraries = folder
        cls.library = os.path.join(cls.libraries, "liblidcam.so.0")
        cls.environment = dict(os.environ, LIDCAM_HOME=os.path.join(cls.folder, "home"),
                               LIDCAM_CAMERA="sim", LIDCAM_LIBRARY=cls.library,
                               LD_LIBRARY_PATH=cls.libraries,
                               PKG_CONFIG_PATH=os.path.join(cls.libraries, "pkgconfig"))
        with open(os.path.join(BUILD, "CMakeCache.txt"), encoding="utf-8") as cache:
            cls.version = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.*)$", cache.read(),
                                    re.M)[1]

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, text):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path(name)

    def test_the_library_exports_exactly_the_headers_functions(self):
        with open(HEADER, encoding="utf-8") as header:
            declared = re.findall(r"^LIDCAM_API [^;(]*?\b(lidcam_\w+)\(", header.read(), re.M)
        self.assertGreater(len(declared), 20)
        lines = run("nm", "-D", "--defined-only", "--format=posix", self.library).splitlines()
        exported = {line.split()[0] for line in lines if not line.startswith("LIDCAM_0 ")}
        self.assertEqual(exported, {name + "@@LIDCAM_0" for name in declared})

    def test_the_library_names_itself_with_its_version(self):
        self.assertIn("SONAME               liblidcam.so.0", run("objdump", "-p", self.library))
        real = os.path.realpath(self.library)
        self.assertEqual(os.path.basename(real), "liblidcam.so." + self.version)

    def test_c_and_cplusplus_find_it_by_pkg_config(self):
        for compiler, name, standard in (("cc", "outside.c", "c11"), ("c++", "outside.cpp", "c++17")):
            source = self.write("by_pkg_config/" + name, C_PROGRAM)
            program = self.path("by_pkg_config/program")
            flags = run("pkg-config", "--cflags", "--libs", "lidcam", env=self.environment).split()
            run(compiler, f"-std={standard}", "-Wall", "-Wextra", "-pedantic", "-Werror", source,
                *flags, "-o", program)
            self.assertEqual(run(program, env=self.environment), f"{self.version} 320x240\n")

    def test_c_and_cplusplus_find_it_by_cmake(self):
        self.write("by_cmake/CMakeLists.txt", CMAKE_PROJECT)
        self.write("by_cmake/outside.c", C_PROGRAM)
        self.write("by_cmake/outside.cpp", C_PROGRAM)
        folder = self.path("by_cmake")
        run(CMAKE, "-S", folder, "-B", folder + "/build", "-DCMAKE_PREFIX_PATH=" + self.prefix)
        run(CMAKE, "--build", folder + "/build")
        for language in ("c", "cpp"):
            self.assertEqual(run(f"{folder}/build/outside_{language}", env=self.environment),
                             f"{self.version} 320x240\n")

    def test_the_example_in_cplusplus_shows_frames(self):
        flags = run("pkg-config", "--cflags", "--libs", "lidcam", env=self.environment).split()
        program = self.path("average_brightness")
        run("c++", "-std=c++17", "-Wall", "-Wextra", "-Werror",
            os.path.join(SOURCE, "examples/average_brightness.cpp"), *flags, "-o", program)
        lines = run(program, "sim", "3", env=self.environment).splitlines()
        self.assertEqual(len(lines), 3)
        for line in lines:
            self.assertRegex(line, r"^ +\d+\.\d{3} s  640x480  luminance +\d+\.\d  exposure \d+  gain \d+$")

    @NEEDS_NUMPY
    def test_the_example_in_python_shows_frames(self):
        lines = run(PYTHON, os.path.join(SOURCE, "examples/average_brightness.py"), "sim",
                    "3", env=self.environment).splitlines()
        self.assertEqual(len(lines), 3)
        for line in lines:
            self.assertRegex(line, r"^ +\d+\.\d{3} s  640x480  luminance +\d+\.\d$")

    @NEEDS_NUMPY
    def test_an_example_names_what_is_wrong(self):
        for address in ("usb:9-9", "sim:0001:0002"):
            result = subprocess.run(
                [PYTHON, os.path.join(SOURCE, "examples/average_brightness.py"), address],
                capture_output=True, text=True, env=self.environment, check=False, timeout=60)
            self.assertEqual(result.returncode, 1)
            self.assertIn(address, result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=1)
