"""Tries the tool on a small tree whose survivors are known, so that a tool that reports all mutants as
killed, or none, is noticed."""

import pathlib
import re
import subprocess
import sys
import tempfile

_CMAKE = """cmake_minimum_required(VERSION 3.25)
project(toy LANGUAGES CXX)
enable_testing()
add_library(toy STATIC driver/toy/toy.cpp)
set_target_properties(toy PROPERTIES UNITY_BUILD @TOGETHER@)
target_include_directories(toy PUBLIC ${CMAKE_SOURCE_DIR})
add_subdirectory(tests/driver/toy)
"""

_TEST_CMAKE = """add_executable(toy_test toy_test.cpp)
target_link_libraries(toy_test PRIVATE toy)
add_test(NAME toy_test COMMAND toy_test)
"""

_HEADER = """#pragma once
int Larger(int a, int b);
int Distance(int a, int b);
int Sum(const int* values, int count);
int Untested(int value);
int Twice(int value);
int NumbersBetween();
"""

# Larger(), Distance(), Sum() and NumbersBetween() are tested at their limits, Twice() nowhere near them,
# Untested() not at all.
_SOURCE = """#include "driver/toy/toy.h"

int Larger(int a, int b) {
  if (a > b) return a;
  return b;
}

int Distance(int a, int b) {
  if (a > b) return a - b;
  return b - a;
}

int Sum(const int* values, int count) {
  int sum = 0;
  for (int i = 0; i < count; ++i) {
    sum += values[i];
  }
  return sum;
}

int Untested(int value) {
  int result = value;
  if (value < 3) result = value * 7;
  return result;
}

int Twice(int value) {
  return value + value;
}

static int g_number = 0;

static int NextNumber() {
  return ++g_number;
}

int NumbersBetween() {
  const int number = NextNumber();
  const int last = g_number;
  return last - number;
}
"""

_TEST = """#include "driver/toy/toy.h"
#include <cstdio>

static int g_failures = 0;

static void Expect(bool holds, const char* name) {
  if (holds) return;
  ++g_failures;
  std::printf("[  FAILED  ] Toy.%s (0 ms)\\n", name);
}

int main() {
  const int values[] = {4, 5, 6, 100};
  Expect(Larger(1, 2) == 2 && Larger(2, 1) == 2, "LargerIsTheLargerOne");
  Expect(Distance(1, 4) == 3 && Distance(4, 1) == 3, "DistanceIsPositive");
  Expect(Sum(values, 3) == 15 && Sum(values, 0) == 0, "SumAddsAsManyAsTold");
  Expect(Twice(0) == 0, "TwiceNothingIsNothing");
  Expect(NumbersBetween() == 0, "NothingIsBetweenANumberAndTheLast");
  return g_failures == 0 ? 0 : 1;
}
"""

# The compiler does not see that these are equivalent.
_EQUIVALENT = """driver/toy/toy.cpp Distance
- if (a > b) return a - b;
+ if (a >= b) return a - b;
= equal numbers have the distance 0 either way
"""

_NOTICED = """driver/toy/toy.cpp Distance
- if (a > b) return a - b;
+ if (a <= b) return a - b;
= it is not
"""

_MUTATE = pathlib.Path(__file__).resolve().parent.parent / "mutate"


class _Failures:
    def __init__(self):
        self.count = 0

    def expect(self, holds, what, output):
        if not holds:
            self.count += 1
            print(f"FAILED: {what}\n{output}")


def _write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")


def _run(root, *arguments):
    done = subprocess.run([sys.executable, _MUTATE, "--root", root, *arguments],
                          capture_output=True, text=True, check=False)
    return done.returncode, done.stdout + done.stderr


def _make_tree(root, together):
    _write(root / "CMakeLists.txt", _CMAKE.replace("@TOGETHER@", together))
    _write(root / "driver/toy/toy.h", _HEADER)
    _write(root / "driver/toy/toy.cpp", _SOURCE)
    _write(root / "tests/driver/toy/CMakeLists.txt", _TEST_CMAKE)
    _write(root / "tests/driver/toy/toy_test.cpp", _TEST)


def _outcomes(output, place):
    return [line.split(":")[0] for line in output.split("\n")
            if re.match(r"(killed|timed out|survived|equivalent|same code)", line) and place in line]


def run_self_test():
    """Exit status: 0 if the tool reports the known results of the small tree, else 1."""
    failures = _Failures()
    # As in the driver: the sources of a folder are compiled as one.
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        _make_tree(root, together="ON")
        _check_outcomes(root, failures)
        _check_list(root, failures)
        _check_refusals(root, failures)
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        _make_tree(root, together="OFF")
        _check_source_by_itself(root, failures)
    print("self-test passed" if failures.count == 0 else f"self-test: {failures.count} failed")
    return 1 if failures.count else 0


# All mutants of the small source are judged: there are fewer than 1000.
def _check_outcomes(root, failures):
    status, output = _run(root, "driver/toy", "1000", "--seed", "1")
    failures.expect(status == 1, "survivors above the limit give exit status 1", output)
    killed = {"killed", "timed out", "same code"}
    failures.expect(set(_outcomes(output, " Sum: ")) <= killed, "a tested loop's mutants die", output)
    failures.expect("timed out" in _outcomes(output, " Sum: "), "a loop without end times out", output)
    failures.expect("killed" in _outcomes(output, " Sum: "), "others of it are killed", output)
    survivors = _outcomes(output, " Untested: ")
    failures.expect(len(survivors) > 8 and set(survivors) <= {"survived", "same code"},
                    "no mutant of an untested function dies", output)
    failures.expect(re.search(r"^survived: .* Twice: operator: return value \+ value;  =>  "
                              r"return value - value;$", output, re.MULTILINE) is not None,
                    "a weak test lets its mutant live", output)
    failures.expect(re.search(r"^killed: .* Larger: .* by toy_test: Toy\.LargerIsTheLargerOne$",
                              output, re.MULTILINE) is not None,
                    "the test that notices is named", output)
    failures.expect(re.search(r"^killed: .* NumbersBetween: order: const int number = NextNumber\(\); "
                              r"const int last = g_number;  =>", output, re.MULTILINE) is not None,
                    "a read that goes ahead of a call is tried", output)
    failures.expect("same code" in _outcomes(output, " Larger: "),
                    "a change without effect is left out", output)
    failures.expect("not compiled: " in output, "what does not compile is told", output)
    again = _run(root, "driver/toy", "12", "--seed", "2")[1]
    failures.expect(again == _run(root, "driver/toy", "12", "--seed", "2")[1],
                    "the same seed gives the same run", again)
    text = (root / "driver/toy/toy.cpp").read_text(encoding="utf-8")
    failures.expect(text == _SOURCE, "the tree itself is untouched", text)
    status, output = _run(root, "driver/toy", "1000", "--seed", "1", "--at", " Sum")
    failures.expect(status == 0, "no survivors give exit status 0", output)
    status, output = _run(root, "driver/toy", "1000", "--limit", "100")
    failures.expect(status == 0, "as many survivors as the limit give exit status 0", output)


def _check_source_by_itself(root, failures):
    output = _run(root, "driver/toy", "1000", "--seed", "1", "--at", " Larger")[1]
    failures.expect({"killed", "same code"} <= set(_outcomes(output, " Larger: ")),
                    "a source that is compiled by itself is judged, too", output)


def _check_list(root, failures):
    known = root / "tests/equivalent_mutants.txt"
    status, output = _run(root, "driver/toy", "1000", "--at", " Distance")
    failures.expect(status == 1 and "survived" in _outcomes(output, " Distance: "),
                    "an equivalent mutant that is not listed counts", output)
    _write(known, "# a comment\n\n" + _EQUIVALENT)
    status, output = _run(root, "driver/toy", "1000", "--at", " Distance")
    failures.expect(status == 0 and "equivalent" in _outcomes(output, " Distance: "),
                    "a listed one is subtracted", output)
    _write(known, _EQUIVALENT + "\n" + _NOTICED)
    status, output = _run(root, "driver/toy", "1000", "--at", " Distance")
    failures.expect(status == 1 and "Listed as equivalent, but noticed" in output,
                    "a listed one that a test notices is told", output)
    _write(known, _EQUIVALENT.replace("- if", "if"))
    status, output = _run(root, "driver/toy", "1")
    failures.expect(status == 1 and "equivalent_mutants.txt" in output,
                    "a list that can't be read is told", output)
    known.unlink()


def _check_refusals(root, failures):
    status, output = _run(root, "driver/none")
    failures.expect(status == 2 and "driver/none" in output, "an unknown folder is wrong use", output)
    status, output = _run(root, "driver/toy", "0")
    failures.expect(status == 2, "a count of 0 is wrong use", output)
    test = root / "tests/driver/toy/toy_test.cpp"
    _write(test, _TEST.replace("Twice(0) == 0", "Twice(0) == 1"))
    status, output = _run(root, "driver/toy", "1")
    failures.expect(status == 1 and "fails on the unchanged tree" in output,
                    "tests that fail before any change are told", output)
    _write(test, _TEST)
