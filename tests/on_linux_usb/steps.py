"""Whether what each step of the guest left is what the camera gives on this machine.

A step's judgement gives a line about what it found, or raises judge.Misjudged.
"""

import json
import os
import pathlib
import re
import subprocess

import judge

SIZES = ("640x480", "352x288", "320x240", "176x144", "160x120")
FRAMES = 10  # of each size
# It exposes by itself: its pictures don't depend on when the driver gets to steer it.
STREAMED = "sim:1af0:6010"
REFERENCE = 100  # pictures that those of the guest are looked for in
REPLUGS = 10
CONTRAST = "Contrast=12"

# How much more memory the second half of the replugs may leave than the first, in KiB: the allocator's arenas
# need some, and each set of transfers that is lost is 1,536.
MOST_GROWTH = 1024


class Program:
    """lidcam on this machine, with a LIDCAM_HOME of its own."""

    def __init__(self, path, folder):
        self._path = path
        self._folder = pathlib.Path(folder)
        self._streams = {}

    def pictures(self, size, *arguments):
        """The output of a command that writes a file of pictures."""
        output = self._folder / "pictures.yuy2"
        self.run(*arguments, "-q", "-o", str(output))
        digests = judge.pictures(output, size)
        output.unlink()
        return digests

    def streamed(self, size, count=REFERENCE):
        """The camera's first pictures, made once."""
        key = (size, count)
        if key not in self._streams:
            self._streams[key] = self.pictures(size, "stream", "--camera", STREAMED, "--fast", "--size", size,
                                               "--frames", str(count))
        return self._streams[key]

    def stills(self):
        """Digests of the camera's pictures without the driver's marks, with the changed contrast."""
        if "stills" not in self._streams:
            output = self._folder / "stills.yuy2"
            self.run("set", "--camera", STREAMED, CONTRAST)
            self.run("stream", "--camera", STREAMED, "--fast", "--frames", str(REFERENCE), "-q", "-o", str(output))
            self.run("set", "--camera", STREAMED, "Contrast=10")
            self._streams["stills"] = judge.pictures(output, SIZES[0], judge.STILL_MARKS)
            output.unlink()
        return self._streams["stills"]

    def run(self, *arguments):
        # A camera that is plugged in has no set file unless its user has one, and so has none here.
        environment = dict(os.environ, LIDCAM_HOME=str(self._folder / "home"),
                           LIDCAM_SYSTEM_ROOT=str(self._folder))
        ended = subprocess.run([self._path, *arguments], check=False, env=environment, capture_output=True,
                               text=True)
        judge.require(ended.returncode == 0,
                      f"lidcam {' '.join(arguments)} ended with {ended.returncode}: {ended.stderr.strip()}")


def judge_streams(folder, program):
    """The pictures of every size are the simulated camera's, byte for byte."""
    for size in SIZES:
        judge.check_done(folder, size)
        seen = judge.pictures(folder / f"{size}.yuy2", size)
        judge.require(len(seen) == FRAMES, f"{size}: {len(seen)} pictures, not {FRAMES}")
        judge.check_order(size, seen, program.streamed(size))
    judge.require((folder / "pair").read_text() == f"{SIZES[-1]}\n", "no size came over a socket pair")
    return (f"streams: {FRAMES} pictures of each of {len(SIZES)} sizes, byte for byte; "
            f"{SIZES[-1]} over a socket pair")


def judge_capture(folder, program, name, size):
    """A replay of the kernel's own capture gives the pictures that the stream delivered."""
    said = (folder / f"{name}.usbmon").read_text()
    judge.require(said == "ready\nlost 0\n", f"usbmon: {said}")
    capture = str(folder / f"{name}.pcap")
    replayed = program.pictures(size, "replay", capture, "--size", size)
    seen = judge.pictures(folder / f"{size}.yuy2", size)
    judge.check_order("the replay of the kernel's capture", seen, replayed)
    tshark = subprocess.run(["tshark", "-r", capture, "-Y", "_ws.malformed"], check=True,
                            capture_output=True, text=True)
    judge.require(tshark.stdout == "", f"tshark finds malformed packets: {tshark.stdout[:500]}")
    return (f"{os.path.getsize(capture)} bytes, none lost, {len(replayed)} pictures replayed, "
            "nothing malformed")


def judge_captures(folder, program):
    """One that holds the enumeration, and one that was begun after it."""
    whole = judge_capture(folder, program, "bus", SIZES[0])
    later = judge_capture(folder, program, "later", SIZES[1])
    return f"usbmon: {whole}; begun after plug-in: {later}"


def judge_controls(folder, program):
    for name in ("set", "still", "get", "reset"):
        judge.check_done(folder, name)
    kept = (folder / "get.out").read_text()
    judge.require(kept.splitlines()[-1:] == [CONTRAST], f"after a replug the setting is {kept!r}")
    still = judge.pictures(folder / "still.yuy2", SIZES[0], judge.STILL_MARKS)
    judge.require(len(still) == 1, f"{len(still)} stills, not 1")
    judge.check_order("the still", still, program.stills())
    return "controls: set, a still byte for byte with that setting, and a replug keeps it"


def judge_processor_time(folder):
    """Both are given; how they compare is for the reader."""
    spent = {}
    for name in ("plugged", "simulated"):
        judge.check_done(folder, name)
        said = (folder / f"{name}.out").read_text()
        answer = json.loads(said[said.index("{"):])
        judge.require(answer["frames"]["delivered"] == FRAMES, f"{name}: {answer['frames']}")
        spent[name] = answer["processorMillisecondsPerFrame"]
    ratio = spent["plugged"] / spent["simulated"]
    return (f"processor time of a frame, emulated: {spent['plugged']:.1f} ms over libusb, "
            f"{spent['simulated']:.1f} ms with the simulated camera in the program: ratio {ratio:.2f}")


def check_pictures_of(folder, pattern, program):
    """Every picture is one that the camera sends. @return how many there are"""
    size = SIZES[-1]
    expected = set(program.streamed(size, 10 * REFERENCE))
    count = 0
    for path in sorted(folder.glob(pattern)):
        seen = judge.pictures(path, size)
        strange = sum(digest not in expected for digest in seen)
        judge.require(strange == 0, f"{path.name}: {strange} of {len(seen)} pictures are none that "
                                    "the camera sends")
        count += len(seen)
    return count


def judge_stall(folder, program):
    """An endpoint that halts ends the stream, with its pictures and a line."""
    judge.check_done(folder, "stalled", "1")
    said = (folder / "stalled.out").read_text()
    judge.require("the camera sent no whole frame" in said, f"a stalled endpoint: {said}")
    count = check_pictures_of(folder, "stalled.yuy2", program)
    judge.require(count > 0, "a stalled endpoint: no picture came before it")
    return f"stall: told, behind {count} pictures"


def check_leaks(folder):
    """Over the replugs a process keeps its descriptors and threads, and its memory within a bound."""
    samples = {}
    for line in (folder / "leaks").read_text().splitlines():
        name, *values = line.split()
        samples.setdefault(name, []).append([int(value) for value in values])
    judge.require(set(samples) == {"stream", "server"} and all(len(each) > REPLUGS for each in samples.values()),
                  f"leaks: too few samples of {sorted(samples)}")
    found = []
    for name, values in samples.items():
        # The first replug starts what looks out for the camera.
        values = values[1:]
        first, last = values[0], values[-1]
        judge.require(last[:2] == first[:2],
                      f"leak: the {name} has {last[0]} files and {last[1]} threads, after one replug "
                      f"{first[0]} and {first[1]}")
        # The next two fill the heap of each thread. A sample may meet a buffer of the moment: the least of several
        # doesn't.
        memory = [value[2] for value in values[2:]]
        half = len(memory) // 2
        before, behind = min(memory[:half]), min(memory[half:])
        judge.require(behind - before <= MOST_GROWTH,
                      f"leak: the {name} has {behind} KiB in the second half of the replugs, {before} in the first")
        found.append(f"{name} {before} to {behind} KiB")
    return ", ".join(found)


def judge_replugs(folder, program):
    said = (folder / "replugged").read_text().strip()
    judge.require(said.startswith(f"{REPLUGS} replugs and another server "), said)
    judge.require((folder / "all.status").read_text() == "0\n", "the last stream did not end well")
    judge.check_done(folder, "cut", "1")
    cut = (folder / "cut.out").read_text()
    judge.require("unplugged" in cut, f"a server that died: {cut}")
    count = check_pictures_of(folder, "*.yuy2", program)
    judge.require(count > 0, "no picture came between the replugs")
    leaks = check_leaks(folder)
    return (f"replugs: {said}, {count} pictures, each of them right; nothing leaks ({leaks}); "
            "a server that died is told")


def judge_ehci(folder, program):
    """Whole pictures, each of them right. qemu drops packets that a slow guest doesn't fetch in time: gaps."""
    size = SIZES[0]
    judge.check_done(folder, size)
    expected = set(program.streamed(size, 10 * REFERENCE))
    seen = judge.pictures(folder / f"{size}.yuy2", size)
    right = sum(digest in expected for digest in seen)
    said = re.search(r"(\d+) of a wrong size", (folder / f"{size}.out").read_text())
    wrong = int(said.group(1)) if said else 0
    judge.require(right > 0 and len(seen) - right <= wrong,
                  f"ehci: {right} of {len(seen)} pictures are the camera's, {wrong} of a wrong size")
    return f"ehci: {right} of {len(seen)} pictures, byte for byte; {wrong} of a wrong size told"
