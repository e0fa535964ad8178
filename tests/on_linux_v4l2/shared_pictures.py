"""Whether what the guest's programs got from the V4L2 device is what the camera sends.

A step gives a line about what it found, or raises judge.Misjudged.
"""

import hashlib
import os
import pathlib
import subprocess

import judge

READERS = ("v4l2_ctl", "ffmpeg", "gstreamer")


class Camera:
    """The pictures of a recorded camera, made on this machine."""

    def __init__(self, program, folder, camera, size):
        self.size = size
        output = pathlib.Path(folder) / "pictures.yuy2"
        subprocess.run([program, "stream", "--camera", camera, "--size", size,
                        "-q", "-o", str(output)], check=True, capture_output=True,
                       env=dict(os.environ, LIDCAM_HOME=str(folder), LIDCAM_SYSTEM_ROOT=str(folder)))
        self.pictures = judge.pictures(output, size)


def whole_pictures(path, size):
    length = judge.picture_bytes(size)
    data = path.read_bytes()
    judge.require(len(data) % length == 0, f"{path.name}: {len(data)} bytes are no whole pictures")
    return [data[at:at + length] for at in range(0, len(data), length)]


def is_notice(picture):
    """Grey ground and white letters, without colour."""
    return set(picture[1::2]) == {128} and set(picture[0::2]) == {40, 235}


def digests(pictures):
    return [hashlib.sha256(picture).digest() for picture in pictures]


def judge_missing(results, _camera):
    judge.check_done(results, "missing", "1")
    said = (results / "missing.out").read_text()
    judge.require("sudo modprobe v4l2loopback exclusive_caps=1 max_buffers=8 card_label=lidcam video_nr=9'" in said,
                  f"without the module: {said}")
    return "without the module: the command that loads it is told"


def judge_device(results, camera):
    """A camera for other programs as long as it is shared, and only then."""
    for name, is_camera in (("before", False), ("during", True), ("after", False)):
        judge.check_done(results, name)
        said = (results / f"{name}.out").read_text()
        device = said[said.index("Device Caps"):]
        judge.require(("Video Capture" in device) == is_camera, f"{name}: {said}")
    width, height = camera.size.split("x")
    during = (results / "during.out").read_text()
    for text in ("lidcam", "'YUYV'", f"{width}x{height}", "30.000"):
        judge.require(text in during, f"no {text} in what v4l2-ctl tells: {during}")
    judge.check_done(results, "readers")
    judge.check_done(results, "second", "1")
    second = (results / "second.out").read_text()
    judge.require("gets its pictures from another program" in second, f"a second share: {second}")
    return "device: a camera while it is shared; a second share is refused; SIGTERM ends it well"


def places_of(name, seen, sent):
    """Where pictures stand in the recording. All have to be there."""
    judge.require(seen, f"{name}: no picture of the camera")
    for number, digest in enumerate(seen):
        judge.require(digest in sent, f"{name}: picture {number} of {len(seen)} is not one that the camera sends")
    return [sent.index(digest) for digest in seen]


def judge_readers(results, camera):
    told = []
    returns = 0
    for name in READERS:
        judge.check_done(results, name)
        pictures = whole_pictures(results / f"{name}.yuy2", camera.size)
        # The device keeps a notice until the camera runs.
        seen = digests(each for each in pictures if not is_notice(each))
        places = places_of(name, seen, camera.pictures)
        returns += sum(after <= before for before, after in zip(places, places[1:]))
        told.append(f"{name} {len(seen)} of {len(pictures)}")
    said = (results / "readers.out").read_text()
    for program in ("v4l2-ctl", "ffmpeg", "gst-launch-1.0"):
        judge.require(f"{program} (" in said, f"{program} was not seen: {said}")
    # Each start of the recording, other than the first for a reader, returns to its beginning.
    starts = said.count("camera on, ") - len(READERS)
    judge.require(returns <= starts, f"out of order: {returns} returns with {starts} starts")
    return f"readers: pictures of the camera, byte for byte and in order: {', '.join(told)}; off between them"


def judge_unplugged(results, camera):
    judge.check_done(results, "unplugged_reader")
    judge.check_done(results, "unplugged")
    pictures = whole_pictures(results / "unplugged.yuy2", camera.size)
    notices = digests(each for each in pictures if is_notice(each))
    judge.require(len(set(notices)) == 2, f"{len(set(notices))} notices, and not those of a start and of an unplugging")
    said = (results / "unplugged.out").read_text()
    judge.require("unplugged" in said, f"the service does not tell: {said}")
    return f"unplugged: {notices.count(notices[-1])} pictures that say so; the service goes on"


STEPS = (judge_missing, judge_device, judge_readers, judge_unplugged)
