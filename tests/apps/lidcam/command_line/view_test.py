"""The camera in the browser: the command, and a page over the WebSocket."""

import base64
import json
import os
import re
import signal
import socket
import stat
import struct
import subprocess
import time
import unittest
import urllib.error
import urllib.request

from command_line import CommandLineTest, LIDCAM


class Page:
    """A page's WebSocket."""

    def __init__(self, port, token):
        host = f"127.0.0.1:{port}"
        with socket.create_connection(("127.0.0.1", port), timeout=60) as client:
            client.sendall(f"GET /?token={token} HTTP/1.1\r\nHost: {host}\r\n\r\n".encode())
            cookie = re.search(rb"Set-Cookie: ([^;]+)", client.recv(4096))[1].decode()
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=60)
        key = base64.b64encode(bytes(16)).decode()
        self.socket.sendall((f"GET /live HTTP/1.1\r\nHost: {host}\r\nOrigin: http://{host}\r\nCookie: {cookie}\r\n"
                             f"Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: {key}\r\n"
                             "Sec-WebSocket-Version: 13\r\n\r\n").encode())
        self.file = self.socket.makefile("rb")
        while self.file.readline().strip():
            pass

    def close(self):
        self.file.close()
        self.socket.close()

    def say(self, **message):
        text = json.dumps(message).encode()
        length = bytes([0x80 | len(text)]) if len(text) < 126 else struct.pack(">BH", 0xFE, len(text))
        self.socket.sendall(b"\x81" + length + bytes(4) + text)

    def hear(self):
        """A message, or the header of a picture, which is acknowledged."""
        while True:
            head = self.file.read(2)
            length = head[1] & 0x7F
            if length == 126:
                length = struct.unpack(">H", self.file.read(2))[0]
            elif length == 127:
                length = struct.unpack(">Q", self.file.read(8))[0]
            data = self.file.read(length)
            if head[0] & 15 == 1:
                return json.loads(data)
            if head[0] & 15 == 2:
                size = struct.unpack_from("<I", data)[0]
                header = json.loads(data[4:4 + size])
                self.say(do="shown", camera=header["camera"], number=header["number"])
                return {"picture": header}

    def hear_until(self, fits):
        limit = time.monotonic() + 60
        while time.monotonic() < limit:
            message = self.hear()
            if fits(message):
                return message
        raise AssertionError("no such message came")

    def picture(self):
        return self.hear_until(lambda message: "picture" in message)["picture"]

    def camera_where(self, fits):
        return self.hear_until(lambda message: "camera" in message and fits(message["camera"]))["camera"]


class ViewTest(CommandLineTest):
    def view(self, *arguments, **environment):
        """A server; its process, port and token."""
        server = subprocess.Popen([LIDCAM, "view", *arguments], stderr=subprocess.PIPE,
                                  env=dict(os.environ, LIDCAM_HOME=self.path("home"), **environment))
        self.addCleanup(server.stderr.close)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        line = server.stderr.readline().decode()
        if "built without" in line:
            self.skipTest(line)
        address = re.fullmatch(r"lidcam: http://127\.0\.0\.1:(\d+)/(?:\?token=([0-9a-f]{32}))?\n", line)
        self.assertIsNotNone(address, line)
        return server, int(address[1]), address[2]

    def page(self, *arguments):
        _, port, token = self.view("--no-browser", *arguments)
        page = Page(port, token)
        self.addCleanup(page.close)
        page.say(do="watch", cameras=[0])
        return page

    def test_sigterm_ends_it_and_leaves_no_recording(self):
        temporary = self.path("temporary")
        os.mkdir(temporary)
        server, port, token = self.view("--no-browser", TMPDIR=temporary)
        page = Page(port, token)
        self.addCleanup(page.close)
        page.say(do="watch", cameras=[0])
        page.picture()
        page.say(do="record", camera=0, form="y4m", id=1)
        page.hear_until(lambda message: message.get("answer") == 1)
        page.picture()
        self.assertEqual(len(os.listdir(temporary)), 1)
        server.send_signal(signal.SIGTERM)
        self.assertEqual(server.wait(timeout=60), 0)
        self.assertEqual(os.listdir(temporary), [])

    def test_an_address_of_the_network_needs_a_password(self):
        result = self.run_lidcam("view", "--listen", "0.0.0.0:0")
        if b"built without" in result.stderr:
            self.skipTest("no viewer")
        self.assert_one_line_error(result, 2, "0.0.0.0", "--password-file")
        result = self.run_lidcam("view", "--password-file", self.path("none"))
        self.assert_one_line_error(result, 1, "none", "password")
        self.assert_one_line_error(self.run_lidcam("view", "--listen", "nowhere"), 2, "nowhere")
        self.assert_one_line_error(self.run_lidcam("view", "--camera", "sim,seed=x"), 2, "seed")

    def test_a_password_opens_in_place_of_the_token(self):
        _, port, token = self.view("--no-browser", LIDCAM_VIEW_PASSWORD="open sesame")
        self.assertIsNone(token)
        request = urllib.request.Request(f"http://127.0.0.1:{port}/")
        with self.assertRaises(urllib.error.HTTPError) as refused:
            urllib.request.urlopen(request, timeout=60)
        self.assertEqual(refused.exception.code, 401)
        refused.exception.close()
        credentials = base64.b64encode(b"me:open sesame").decode()
        with socket.create_connection(("127.0.0.1", port), timeout=60) as client:
            client.sendall(f"GET / HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nAuthorization: Basic {credentials}\r\n\r\n"
                           .encode())
            self.assertIn(b"Set-Cookie: lidcam_", client.recv(4096))

    def test_a_token_from_a_file_opens_the_addresses_of_other_programs(self):
        with open(self.path("token"), "w", encoding="ascii") as file:
            file.write("0123456789abcdef-_XY\n")
        with open(self.path("short"), "w", encoding="ascii") as file:
            file.write("0123456789abcde\n")
        _, port, _ = self.view("--no-browser", "--token-file", self.path("token"))
        address = f"http://127.0.0.1:{port}/snapshot.jpg?token=0123456789abcdef-_XY"
        with urllib.request.urlopen(address, timeout=60) as picture:
            self.assertEqual(picture.read(2), b"\xff\xd8")
        with self.assertRaises(urllib.error.HTTPError) as refused:
            urllib.request.urlopen(address[:-1], timeout=60)
        self.assertEqual(refused.exception.code, 403)
        refused.exception.close()
        self.assert_one_line_error(self.run_lidcam("view", "--token-file", self.path("short")), 1, "short", "16")
        self.assert_one_line_error(self.run_lidcam("view", "--token-file", self.path("none")), 1, "none", "token")

    def test_the_browser_is_started_without_the_token_in_its_arguments(self):
        programs, runtime = self.path("bin"), self.path("runtime")
        os.mkdir(programs)
        os.mkdir(runtime, 0o700)
        with open(self.path("bin/xdg-open"), "w", encoding="ascii") as file:
            file.write(f"#!/bin/sh\necho \"$1\" >{self.path('opened.part')}\n"
                       f"mv {self.path('opened.part')} {self.path('opened')}\n")
        os.chmod(self.path("bin/xdg-open"), 0o755)
        server, _, token = self.view(DISPLAY=":9", XDG_RUNTIME_DIR=runtime,
                                     PATH=programs + ":" + os.environ["PATH"])
        limit = time.monotonic() + 60
        while not os.path.exists(self.path("opened")):
            self.assertLess(time.monotonic(), limit)
            time.sleep(0.05)
        with open(self.path("opened"), encoding="ascii") as file:
            opened = file.read().strip()
        self.assertNotIn(token, opened)
        self.assertEqual(stat.S_IMODE(os.stat(opened).st_mode), 0o600)
        with open(opened, encoding="ascii") as file:
            self.assertIn(f"?token={token}", file.read())
        server.send_signal(signal.SIGTERM)
        server.wait(timeout=60)
        self.assertFalse(os.path.exists(opened))

    def test_a_recording_is_paused_stepped_and_sought(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--duration", "3s", "--size", "160x120", "-q", "-o", capture)
        page = self.page("--camera", f"capture:{capture}")
        page.picture()
        page.say(do="play", camera=0, on=False)
        camera = page.camera_where(lambda camera: not camera["panel"].get("playing", True))
        self.assertAlmostEqual(camera["panel"]["seconds"], 3, delta=0.1)
        page.say(do="seek", camera=0, seconds=2)
        sought = page.hear_until(lambda message: message.get("picture", {}).get("time", 0) >= 2)["picture"]["time"]
        self.assertLess(sought, 2.1)
        page.say(do="step", camera=0)
        stepped = page.picture()["time"]
        self.assertGreater(stepped, sought)
        self.assertLess(stepped, sought + 0.1)
        page.say(do="seek", camera=0, seconds=1)
        back = page.hear_until(lambda message: message.get("picture", {}).get("time", 9) < 2)["picture"]["time"]
        self.assertGreaterEqual(back, 1)
        self.assertLess(back, 1.1)
        page.say(do="play", camera=0, on=True)
        page.hear_until(lambda message: message.get("picture", {}).get("time", 0) > 2.5)
        # Again from its end.
        page.hear_until(lambda message: message.get("picture", {}).get("time", 9) < 0.5)

    def test_two_cameras_side_by_side(self):
        page = self.page("--camera", "sim", "--camera", "sim:1af0:6010")
        page.say(do="watch", cameras=[0, 1])
        for camera in (0, 1):
            page.hear_until(lambda message: message.get("picture", {}).get("camera") == camera)
            loop = page.hear_until(lambda message: message.get("loop", {}).get("camera") == camera)["loop"]
            self.assertIsInstance(loop["luminance"], int)
            page.hear_until(lambda message: message.get("bus", {}).get("camera") == camera and message["bus"]["good"] > 0)

    def test_a_camera_whose_chip_exposes_has_not_the_exposure_of_the_other(self):
        page = self.page("--camera", "sim:1af0:0511", "--camera", "sim:1af0:6010,sensor=OV7670")
        page.say(do="watch", cameras=[0, 1])
        page.picture()
        page.say(do="simulate", camera=0, light=20)

        def loop_of(camera, fits):
            return page.hear_until(lambda message: message.get("loop", {}).get("camera") == camera
                                   and fits(message["loop"]))["loop"]

        self.assertGreater(loop_of(0, lambda loop: loop["exposure"] > 0)["coarseGain"], 0)
        loop = loop_of(1, lambda loop: True)
        self.assertEqual([loop[name] for name in ("exposure", "exposureLines", "coarseGain", "fineGain")], [0] * 4)

    def test_the_traces_of_two_cameras_are_told_apart(self):
        page = self.page("--camera", "sim:1af0:0511", "--camera", "sim:1af0:6010,sensor=OV7670")
        for camera in (0, 1):
            page.say(do="trace", camera=camera, on=True)
        page.say(do="watch", cameras=[0, 1])
        types = [set(), set()]
        frames = [0, 0]

        def is_told(message):
            if "trace" in message:
                camera, text = message["trace"]["camera"], "\n".join(message["trace"]["lines"])
                types[camera].update(re.findall(r"^sensor type (\d+)$", text, re.MULTILINE))
                frames[camera] += len(re.findall(r"^frame end bytes", text, re.MULTILINE))
            return all(types) and min(frames) >= 5

        page.hear_until(is_told)
        self.assertEqual(types, [{"9"}, {"11"}])

    def test_a_control_that_another_process_sets_shows_on_the_page(self):
        runtime = self.path("runtime")
        os.mkdir(runtime, 0o700)
        os.environ["XDG_RUNTIME_DIR"] = runtime
        self.addCleanup(os.environ.pop, "XDG_RUNTIME_DIR")
        page = self.page("--camera", "sim")
        page.picture()
        self.lidcam("set", "Contrast=3")

        def is_there(message):
            rows = message.get("controls", {}).get("rows", [])
            return any(row["name"] == "Contrast" and row["value"] == 3 and row["saved"] == 3 for row in rows)

        page.hear_until(is_there)
        self.assertIn("lidcam view: 1 viewer", self.lidcam("status"))


if __name__ == "__main__":
    unittest.main()
