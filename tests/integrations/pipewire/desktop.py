"""PipeWire and WirePlumber without a desktop, in folders and on a session bus of their own."""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

import sent_pictures

LIMIT = 120  # seconds; many times what anything here takes
ON_OWN_BUS = "LIDCAM_TEST_ON_OWN_BUS"
NODE = "lidcam."


def move_to_own_bus():
    """Runs this program anew on a session bus of its own."""
    if os.environ.get(ON_OWN_BUS) == "1":
        return
    os.environ[ON_OWN_BUS] = "1"
    os.execvp("dbus-run-session", ["dbus-run-session", "--", sys.executable, "-B", *sys.argv])


def wait_for(condition, what):
    """The first true value that the condition gives."""
    end = time.monotonic() + LIMIT
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError(f"waited in vain for {what}")


class Process:
    """A program in the background, with what it says in a file."""

    def __init__(self, arguments, environment, said):
        self._said = pathlib.Path(said)
        with open(said, "wb") as output:
            self._process = subprocess.Popen(arguments, env=environment, stdout=output, stderr=output,
                                             stdin=subprocess.DEVNULL)

    def said(self):
        return self._said.read_text(errors="replace")

    def wait_until_it_says(self, text, count=1):
        wait_for(lambda: self.said().count(text) >= count or self._process.poll() is not None,
                 f"'{text}' in: {self.said()}")
        if self.said().count(text) < count:
            raise AssertionError(f"not '{text}', but: {self.said()}")

    def number(self):
        return self._process.pid

    def is_running(self):
        return self._process.poll() is None

    def processor_seconds(self):
        """What it has used so far."""
        fields = pathlib.Path(f"/proc/{self._process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def end(self):
        """As systemd ends it. Gives its exit status."""
        self._process.terminate()
        return self.wait()

    def wait(self):
        return self._process.wait(LIMIT)

    def kill(self):
        self._process.kill()
        self._process.wait()


# What GStreamer knows of its plugins: each test would look through all of them again.
REGISTRY = tempfile.TemporaryDirectory(prefix="lidcam-test-registry-")


class Desktop:
    """PipeWire, its session manager and lidcam in a temporary folder."""

    def __init__(self, lidcam):
        self._lidcam = lidcam
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="lidcam-pipewire-"))
        self.environment = dict(os.environ, HOME=str(self.folder), LIDCAM_HOME=str(self.path("home")),
                                LIDCAM_SYSTEM_ROOT=str(self.folder),
                                GST_REGISTRY=os.path.join(REGISTRY.name, "registry"))
        for name in ("RUNTIME_DIR", "CONFIG_HOME", "STATE_HOME", "CACHE_HOME", "DATA_HOME"):
            folder = self.path(name.lower())
            folder.mkdir(mode=0o700)
            self.environment[f"XDG_{name}"] = str(folder)
        self._processes = []
        self._pictures = {}
        self.pipewire = None

    def path(self, name):
        return self.folder / name

    def start(self):
        self.pipewire = self.run_beside("pipewire")
        wait_for(self.path("runtime_dir/pipewire-0").exists, "PipeWire's socket")
        self.run_beside("wireplumber")
        # It is ready once it has made its own objects.
        wait_for(lambda: any(each.get("info", {}).get("props", {}).get("application.name")
                             == "WirePlumber" for each in self.dump()), "WirePlumber")

    def close(self):
        for process in reversed(self._processes):
            if process.is_running():
                process.kill()
        shutil.rmtree(self.folder)

    def run_beside(self, *arguments):
        said = self.path(f"said-{len(self._processes)}")
        process = Process(arguments, self.environment, said)
        self._processes.append(process)
        return process

    def run(self, *arguments, check=True):
        ended = subprocess.run(arguments, env=self.environment, capture_output=True, text=True, timeout=LIMIT,
                               check=False, stdin=subprocess.DEVNULL)
        if check and ended.returncode != 0:
            raise AssertionError(f"{arguments} ended with {ended.returncode}: {ended.stderr}")
        return ended

    def lidcam(self, *arguments, check=True):
        return self.run(self._lidcam, *arguments, check=check)

    def share(self, *arguments):
        """`lidcam share`, once its node is there."""
        process = self.run_beside(self._lidcam, "share", *arguments)
        process.wait_until_it_says("is shared through PipeWire")
        wait_for(self.node, "the node")
        return process

    def dump(self):
        ended = self.run("pw-dump", check=False)
        try:
            return json.loads(ended.stdout)
        except json.JSONDecodeError:  # it was cut by an object that went meanwhile
            return []

    def node(self):
        """What pw-dump tells of the camera's node; nothing if it isn't there."""
        for each in self.dump():
            info = each.get("info") or {}
            if (info.get("props") or {}).get("node.name", "").startswith(NODE):
                # Parameters come a moment after the node.
                return dict(info, id=each["id"]) if info["params"].get("Props") else None
        return None

    def sizes(self):
        return [(each["size"]["width"], each["size"]["height"])
                for each in self.node()["params"]["EnumFormat"]]

    def control(self, name):
        """A control's value as PipeWire tells it."""
        (values,) = self.node()["params"]["Props"]
        return values[name]

    def pipeline(self, size, count, output):
        """A pipeline of GStreamer that writes a number of pictures."""
        width, height = size
        return ("gst-launch-1.0", "-q", "pipewiresrc", f"num-buffers={count}", "!",
                f"video/x-raw,format=YUY2,width={width},height={height}", "!", "filesink",
                f"location={output}")

    def camera_pictures(self, camera, size, count):
        """Digests of the pictures that a camera sends, from its first one on."""
        key = (camera, size, count)
        if key not in self._pictures:
            output = self.path("reference.yuy2")
            # The shared camera is open for some seconds after the last looker.
            self.lidcam("stream", "--camera", camera, "--wait", "--fast", "--size", f"{size[0]}x{size[1]}", "--frames",
                        str(count), "-q", "-o", str(output))
            self._pictures[key] = digests(output, size)
            output.unlink()
        return self._pictures[key]


def pictures(path, size):
    """The pictures of a file, whole."""
    return sent_pictures.pictures_of(path, pathlib.Path(path).read_bytes(), 2 * size[0] * size[1])


def digests(path, size):
    return sent_pictures.digests_of(path, pathlib.Path(path).read_bytes(), 2 * size[0] * size[1])


def is_notice(picture):
    """Whether it is a picture of grey ground and white letters, without colour."""
    return set(picture[1::2]) == {128} and set(picture[0::2]) == {40, 235}
