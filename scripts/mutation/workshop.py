"""A copy of the tree in which changed sources are built and their folder's tests run."""

import fcntl
import hashlib
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import tempfile
import time
from dataclasses import dataclass

# Further suites that exist to test a folder.
FURTHER_SUITES = {
    "driver/exposure": ("tests/closed_loop",),
    "driver/frame": ("tests/driver/frame/resampler",),
    "driver/avstream": ("tests/compliance",),
}
_NOT_COPIED = {".git", "build"}
_MEMORY_LIMIT = 4 << 30
_OUTPUT_LIMIT = 256 << 20


class WorkshopError(Exception):
    """The copy can't be built, or its tests fail before anything is changed."""


@dataclass(frozen=True)
class Outcome:
    what: str       # killed, timed out, not compiled, same code, survived
    test: str = ""  # the test that noticed


class Workshop:
    """The copy lies in build/mutate/tree, its build in build/mutate/build."""

    def __init__(self, root, folder):
        self._root = pathlib.Path(root).resolve()
        self._folder = folder
        self._tree = self._root / "build/mutate/tree"
        self._build = self._root / "build/mutate/build"
        self._scratch = self._root / "build/mutate/scratch"
        self._tree.mkdir(parents=True, exist_ok=True)
        self._lock = open(self._root / "build/mutate/lock", "w", encoding="utf-8")
        try:
            fcntl.flock(self._lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise WorkshopError("build/mutate is in use by another run") from None
        self._tests = []    # executables, quickest first
        self._limits = {}   # of each one: seconds of processor time
        self._killers = {}  # of each source: the executable that noticed its last change
        self._code = {}     # of each object of the driver: digest of the unchanged one

    def sources(self):
        """Path from the root and text of each source in the folder and its rooms."""
        found = sorted(path for path in (self._root / self._folder).rglob("*")
                       if path.suffix in (".cpp", ".h"))
        return [(str(path.relative_to(self._root)), path.read_text(encoding="utf-8"))
                for path in found]

    def prepare(self):
        """Brings the copy up to date, builds it, and sees its tests pass."""
        self._copy_tree()
        self._configure()
        self._tests = self._find_tests()
        if not self._tests:
            raise WorkshopError(f"no tests below tests/ mirror {self._folder}")
        output = self._make(self._tests)
        if output is not None:
            raise WorkshopError(f"the unchanged tree does not build:\n{output}")
        took = {}
        for test in self._tests:
            self._limits[test] = 600
            started = os.times()
            outcome = self._run(test)
            ended = os.times()
            if outcome.what != "survived":
                raise WorkshopError(f"{test.name} fails on the unchanged tree: {outcome.test}")
            took[test] = (ended.children_user + ended.children_system -
                          started.children_user - started.children_system)
            self._limits[test] = 10 + int(5 * took[test])
        self._tests.sort(key=took.get)
        self._code = {path: _digest(path) for path in self._driver_objects()}
        if not self._code:
            raise WorkshopError("no object of the driver found: every change would give the same code")

    @property
    def test_names(self):
        return [test.name for test in self._tests]

    def judge(self, mutant):
        """What the folder's tests say about a mutant. The copy is as it was afterwards."""
        source = self._tree / mutant.path
        unchanged = source.read_text(encoding="utf-8")
        source.write_text(mutant.text, encoding="utf-8")
        try:
            return self._judge_tree(mutant.path)
        finally:
            source.write_text(unchanged, encoding="utf-8")

    def _judge_tree(self, path):
        last = self._killers.get(path)
        tests = sorted(self._tests, key=lambda test: test != last)
        for number, test in enumerate(tests):
            if self._make([test]) is not None:
                return Outcome("not compiled")
            if number == 0 and self._is_same_code():
                return Outcome("same code")
            outcome = self._run(test)
            if outcome.what != "survived":
                self._killers[path] = test
                return outcome
        return Outcome("survived")

    def _copy_tree(self):
        wanted = set()
        for folder, folders, files in os.walk(self._root):
            here = pathlib.Path(folder).relative_to(self._root)
            if here == pathlib.Path("."):
                folders[:] = [name for name in folders if name not in _NOT_COPIED]
            folders[:] = [name for name in folders if name != "__pycache__"]
            for name in files:
                wanted.add(here / name)
                _update(self._root / here / name, self._tree / here / name)
        for folder, _, files in os.walk(self._tree):
            for name in files:
                path = pathlib.Path(folder) / name
                if path.relative_to(self._tree) not in wanted:
                    path.unlink()

    # Debug, so that the tests' own code is not optimised; the driver is, so that a change without
    # effect gives the same code.
    def _configure(self):
        command = ["cmake", "-S", self._tree, "-B", self._build, "-G", "Ninja",
                   "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O2",
                   "-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"]
        if shutil.which("ld.lld"):
            command.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld")
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise WorkshopError(f"the copy can't be configured:\n{done.stdout}{done.stderr}")

    def _find_tests(self):
        found = {}
        mirrored = self._mirrored_folder()
        for suite in ("tests/" + mirrored, *FURTHER_SUITES.get(mirrored, ())):
            listing = self._build / suite / "CTestTestfile.cmake"
            if listing.exists():
                for path in re.findall(r'^add_test\([^"]*"([^"]+)"', listing.read_text(), re.MULTILINE):
                    found[pathlib.Path(path)] = None
        return list(found)

    def _mirrored_folder(self):
        """The folder or, for a room whose tests stand with those of others, the one that has tests."""
        folder = pathlib.PurePosixPath(self._folder)
        while not (self._build / "tests" / folder / "CTestTestfile.cmake").exists():
            if len(folder.parts) <= 2:
                break
            folder = folder.parent
        return str(folder)

    def _make(self, tests):
        """Builds tests; returns the compiler's output if it failed, else None."""
        targets = [str(test.relative_to(self._build)) for test in tests]
        done = subprocess.run(["ninja", "-C", self._build, *targets], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        return done.stdout if done.returncode != 0 else None

    def _driver_objects(self):
        commands = json.loads((self._build / "compile_commands.json").read_text(encoding="utf-8"))
        outputs = [re.search(r" -o (\S+\.o) ", entry["command"]) for entry in commands
                   if self._is_of_driver(entry["file"])]
        objects = [self._build / output.group(1) for output in outputs if output is not None]
        return [path for path in objects if path.exists()]

    # The sources of a room are compiled as one: by a generated source that includes them.
    def _is_of_driver(self, source):
        driver = str(self._tree / "driver") + "/"
        if source.startswith(driver):
            return True
        generated = pathlib.Path(source)
        return (generated.is_relative_to(self._build) and generated.exists() and
                f'#include "{driver}' in generated.read_text(encoding="utf-8"))

    def _is_same_code(self):
        return all(_digest(path) == digest for path, digest in self._code.items())

    def _run(self, test):
        shutil.rmtree(self._scratch, ignore_errors=True)
        self._scratch.mkdir()
        seconds = self._limits[test]

        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))
            resource.setrlimit(resource.RLIMIT_AS, (_MEMORY_LIMIT, _MEMORY_LIMIT))
            resource.setrlimit(resource.RLIMIT_FSIZE, (_OUTPUT_LIMIT, _OUTPUT_LIMIT))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen(
                [test, "--gtest_fail_fast"], cwd=test.parent,
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                preexec_fn=limit, start_new_session=True,
                env={**os.environ, "TMPDIR": str(self._scratch), "HOME": str(self._scratch)})
            hung = not _ends_within(process, 60 + 4 * seconds)
            _kill_group(process)
            output.seek(0)
            said = output.read(1 << 20).decode(errors="replace")
        if hung or process.returncode in (-signal.SIGXCPU, -signal.SIGKILL):
            return Outcome("timed out", test.name)
        if process.returncode == 0:
            return Outcome("survived")
        failed = re.findall(r"^\[  FAILED  \] ([\w./]+)", said, re.MULTILINE)
        began = re.findall(r"^\[ RUN      \] ([\w./]+)", said, re.MULTILINE)
        name = (failed or began or [f"exit status {process.returncode}"])[-1]
        return Outcome("killed", f"{test.name}: {name}")


def _ends_within(process, seconds):
    end = time.monotonic() + seconds
    while process.poll() is None:
        if time.monotonic() > end:
            return False
        time.sleep(0.01)
    return True


def _kill_group(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def _update(source, copy):
    """Makes a copy of a file whose content differs, and touches no other."""
    content = source.read_bytes()
    if copy.exists() and copy.read_bytes() == content:
        return
    copy.parent.mkdir(parents=True, exist_ok=True)
    copy.write_bytes(content)
    shutil.copymode(source, copy)


def _digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()
