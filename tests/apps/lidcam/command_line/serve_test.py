"""The camera served to other systems."""

import os
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest

from command_line import CommandLineTest, LIDCAM

IMPORT = struct.pack(">HHI32s", 0x0111, 0x8003, 0, b"1-1")
IMPORT_REPLY = 8 + 312
GET_DEVICE_DESCRIPTOR = struct.pack(">IIIIIIIIII8s", 1, 1, 1 << 16 | 2, 1, 0, 0, 18, 0, 0, 0,
                                    bytes.fromhex("8006000100001200"))

# usbredir: type, length and id; a version of 64 bytes and a word of abilities.
HELLO = struct.pack("<III64sI", 0, 68, 0, b"test", 0)


def end(server):
    server.kill()
    server.wait()
    server.stderr.close()


def most_memory(server):
    """The most that the process ever had, in MiB."""
    with open(f"/proc/{server.pid}/status", encoding="ascii") as file:
        return int(re.search(r"VmHWM:\s+(\d+) kB", file.read())[1]) // 1024


def rubbish_from(port, seed, greeting):
    """A client that sends what is nothing, behind a greeting or not, and leaves its answers unread.

    @return its connection; a third of them is kept open
    """
    numbers = random.Random(seed)
    client = socket.create_connection(("127.0.0.1", port), timeout=60)
    sent = numbers.randbytes(numbers.randrange(1, 65536))
    if seed % 4 == 1:
        sent = greeting + sent
    if seed % 4 == 2:  # the greeting is cut off
        sent = greeting[:numbers.randrange(1, len(greeting))]
    if seed % 4 == 3:  # as many answers as possible
        sent = greeting + GET_DEVICE_DESCRIPTOR * 20000
    try:
        client.sendall(sent)
    except OSError:
        pass  # the server has ended the connection
    if seed % 3 == 0:
        return client
    client.close()
    return None


class ServeTest(CommandLineTest):
    def serve(self, *arguments, protocol="usbip"):
        """A server on a free port; its process and that port."""
        environment = dict(os.environ, LIDCAM_HOME=self.path("home"))
        server = subprocess.Popen([LIDCAM, "serve", protocol, "--listen", "127.0.0.1:0", *arguments],
                                  stderr=subprocess.PIPE, env=environment)
        self.addCleanup(end, server)
        line = server.stderr.readline().decode()
        if "built without" in line:
            self.skipTest(line)
        port = re.fullmatch(r"lidcam: camera '.*' is served at 127\.0\.0\.1:(\d+)( as device 1-1)?\n",
                            line)
        self.assertIsNotNone(port, line)
        return server, int(port.group(1))

    def attach(self, port):
        client = socket.create_connection(("127.0.0.1", port), timeout=60)
        self.addCleanup(client.close)
        client.sendall(IMPORT)
        return client, self.read_from(client, IMPORT_REPLY)

    def read_from(self, client, size):
        data = b""
        while len(data) < size:
            more = client.recv(size - len(data))
            self.assertTrue(more)
            data += more
        return data

    def test_sigterm_and_ctrl_c_end_it_within_a_second_while_a_client_is_attached(self):
        for request in (signal.SIGTERM, signal.SIGINT):
            spent = []
            # A busy machine may be late, but not each time.
            while not spent or (min(spent) > 1 and len(spent) < 10):
                server, port = self.serve()
                client, _ = self.attach(port)
                begin = time.monotonic()
                server.send_signal(request)
                self.assertEqual(server.wait(60), 0)
                spent.append(time.monotonic() - begin)
                self.assertEqual(client.recv(1), b"")
            self.assertLess(min(spent), 1)

    def assert_it_answers(self, protocol, port):
        if protocol == "usbip":
            client, _ = self.attach(port)
            client.sendall(GET_DEVICE_DESCRIPTOR)
            answer = self.read_from(client, 48 + 18)
            self.assertEqual(answer[48:48 + 4], bytes.fromhex("12010002"))
        else:
            client = socket.create_connection(("127.0.0.1", port), timeout=60)
            client.sendall(HELLO)
            self.assertEqual(self.read_from(client, 12), struct.pack("<III", 0, 68, 0))
        client.close()

    def test_a_hundred_clients_that_send_rubbish_neither_end_it_nor_fill_its_memory(self):
        for protocol, greeting in (("usbip", IMPORT), ("usbredir", HELLO)):
            server, port = self.serve(protocol=protocol)
            lines = []
            reader = threading.Thread(target=lambda pipe=server.stderr: lines.extend(pipe), daemon=True)
            reader.start()
            before = most_memory(server)
            clients = [rubbish_from(port, seed, greeting) for seed in range(100)]
            self.assert_it_answers(protocol, port)
            self.assertLess(most_memory(server) - before, 64)
            server.send_signal(signal.SIGTERM)
            self.assertEqual(server.wait(60), 0)
            reader.join()
            self.assertTrue(all(line.startswith(b"lidcam: 127.0.0.1:") for line in lines), lines[-5:])
            for client in filter(None, clients):
                client.close()

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
