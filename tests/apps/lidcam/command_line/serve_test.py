"""The camera served to other systems."""

import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import time
import unittest

from command_line import CommandLineTest, LIDCAM

IMPORT = struct.pack(">HHI32s", 0x0111, 0x8003, 0, b"1-1")
IMPORT_REPLY = 8 + 312


def end(server):
    server.kill()
    server.wait()
    server.stderr.close()


class ServeTest(CommandLineTest):
    def serve(self, *arguments):
        """A server on a free port; its process and that port."""
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        server = subprocess.Popen([LIDCAM, "serve", "usbip", "--listen", "127.0.0.1:0", *arguments],
                                  stderr=subprocess.PIPE, env=environment)
        self.addCleanup(end, server)
        line = server.stderr.readline().decode()
        port = re.fullmatch(r"lidcam: camera '.*' is served at 127\.0\.0\.1:(\d+) as device 1-1\n",
                            line)
        self.assertIsNotNone(port, line)
        return server, int(port.group(1))

    def attach(self, port):
        client = socket.create_connection(("127.0.0.1", port), timeout=60)
        self.addCleanup(client.close)
        client.sendall(IMPORT)
        reply = b""
        while len(reply) < IMPORT_REPLY:
            more = client.recv(IMPORT_REPLY - len(reply))
            self.assertTrue(more)
            reply += more
        return client, reply

    def test_sigterm_and_ctrl_c_end_it_while_a_client_is_attached(self):
        for request in (signal.SIGTERM, signal.SIGINT):
            server, port = self.serve()
            client, _ = self.attach(port)
            begin = time.monotonic()
            server.send_signal(request)
            self.assertEqual(server.wait(60), 0)
            # On an idle machine it may take one second.
            self.assertLess(time.monotonic() - begin, 20)
            self.assertEqual(client.recv(1), b"")

    def test_clients_are_told_of(self):
        server, port = self.serve()
        client, _ = self.attach(port)
        self.assertRegex(server.stderr.readline().decode(), r"^lidcam: 127.0.0.1:\d+: attached\n$")
        client.close()
        self.assertRegex(server.stderr.readline().decode(),
                         r"^lidcam: 127.0.0.1:\d+: the client is gone\n$")

    def test_the_identity_is_that_of_the_camera(self):
        _, port = self.serve("--camera", "sim:1b17:6101")
        _, reply = self.attach(port)
        self.assertEqual(reply[8 + 300:8 + 304], bytes.fromhex("1b176101"))

    def test_a_recording_is_served(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "3", "--camera", "sim:1af0:6010", "-o", capture)
        _, port = self.serve("--camera", f"capture:{capture}")
        _, reply = self.attach(port)
        self.assertEqual(reply[8 + 300:8 + 304], bytes.fromhex("1af06010"))

    def test_a_socket_of_the_file_system_is_there_until_the_server_ends(self):
        path = self.path("camera")
        server = subprocess.Popen([LIDCAM, "serve", "usbredir", "--socket", path],
                                  stderr=subprocess.PIPE)
        self.addCleanup(end, server)
        line = server.stderr.readline().decode()
        if "built without" in line:
            self.skipTest(line)
        self.assertEqual(line, f"lidcam: camera 'sim' is served at {path}\n")
        client = socket.socket(socket.AF_UNIX)
        self.addCleanup(client.close)
        client.connect(path)
        # The hello: type 0, a version of 64 bytes and a word of abilities.
        self.assertEqual(client.recv(12), struct.pack("<III", 0, 68, 0))
        server.send_signal(signal.SIGTERM)
        self.assertEqual(server.wait(60), 0)
        self.assertFalse(os.path.exists(path))

    def test_usbredir_needs_one_place_to_listen(self):
        for arguments in ((), ("--socket", self.path("camera"), "--listen", "127.0.0.1:0")):
            self.assert_one_line_error(self.run_lidcam("serve", "usbredir", *arguments), 2,
                                       "one of --socket PATH and --listen ADDRESS:PORT")

    @unittest.skipUnless(shutil.which("usbip", path="/usr/sbin:/usr/bin"), "no usbip")
    def test_the_kernels_tool_lists_it(self):
        _, port = self.serve()
        usbip = shutil.which("usbip", path="/usr/sbin:/usr/bin")
        result = subprocess.run([usbip, "--tcp-port", str(port), "list", "-r", "127.0.0.1"],
                                capture_output=True, timeout=60, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertRegex(result.stdout.decode(), r" 1-1: .*\(1af0:0511\)")

    def test_an_address_that_others_reach_is_warned_of_even_if_quiet(self):
        server = subprocess.Popen(
            [LIDCAM, "serve", "usbip", "--listen", "0.0.0.0:0", "--quiet"], stderr=subprocess.PIPE,
            env=dict(os.environ, LIDCAM_HOME=self.path("home")))
        self.addCleanup(end, server)
        self.assertRegex(server.stderr.readline().decode(),
                         r"^lidcam: warning: 0\.0\.0\.0:\d+ can be reached by other machines")

    def test_what_cannot_be_served_is_told_in_a_line(self):
        busy = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(busy.close)
        address = f"127.0.0.1:{busy.getsockname()[1]}"
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "--frames", "1", "-o", capture)
        for status, arguments, words in (
                (2, ("--camera", "capture:" + capture, "--faults", "frame 1 packet 5 lose"),
                 ("'frame 1", "needs a simulated camera")),
                (1, ("--listen", address), (address, "Address already in use")),
                (2, ("--listen", "3240"), ("'3240'", "ADDRESS:PORT")),
                (2, ("--camera", "sim:1234:5678"), ("1234:5678",)),
                (2, ("--camera", "capture:-"), ("'-'", "a pipe can be read only once")),
                (1, ("--camera", "capture:" + self.path("none")), (self.path("none"),)),
                (2, ("--faults", "at noon"), ("'noon'",)),
                (2, ("--camera", "usb"), ("'usb'", "plugged in here")),
                (2, ("--camera", "else"), ("'else'",))):
            self.assert_one_line_error(self.run_lidcam("serve", "usbip", *arguments), status,
                                       *words)


if __name__ == "__main__":
    unittest.main(verbosity=1)
