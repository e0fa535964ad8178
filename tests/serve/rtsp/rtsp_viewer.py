"""A viewer of an RTSP stream, in the connection itself (interleaved), with no decoder."""

import hashlib
import re
import socket
import struct


class Refused(Exception):
    """An answer other than 200."""


class Viewer:
    def __init__(self, address, user=None, password=None):
        host, port, self.path = re.fullmatch(r"rtsp://([^:/]+):(\d+)(/.*)", address).groups()
        self.address = address
        self.user, self.password = user, password
        self.challenge = None
        self.sequence = 0
        self.session = None
        self.socket = socket.create_connection((host, int(port)), timeout=120)
        self.input = self.socket.makefile("rb")

    def close(self):
        self.input.close()
        self.socket.close()

    def authorization(self, method, address):
        """By digest, as RFC 2617 has it without qop."""
        def md5(text):
            return hashlib.md5(text.encode()).hexdigest()

        realm, nonce = self.challenge
        response = md5(":".join([md5(f"{self.user}:{realm}:{self.password}"), nonce,
                                 md5(f"{method}:{address}")]))
        return (f'Digest username="{self.user}", realm="{realm}", nonce="{nonce}", '
                f'uri="{address}", response="{response}"')

    def send(self, method, address, headers):
        self.sequence += 1
        lines = [f"{method} {address} RTSP/1.0", f"CSeq: {self.sequence}"]
        if self.session:
            lines.append(f"Session: {self.session}")
        if self.challenge and self.user:
            lines.append("Authorization: " + self.authorization(method, address))
        lines += [f"{name}: {value}" for name, value in headers.items()]
        self.socket.sendall(("\r\n".join(lines) + "\r\n\r\n").encode())

    def answer(self):
        line = self.input.readline()
        while line[:1] == b"$":
            raise AssertionError("packets before the answer")
        status = int(line.split()[1])
        headers = {}
        while (line := self.input.readline().strip()):
            name, _, value = line.decode().partition(":")
            headers[name.strip().lower()] = value.strip()
        body = self.input.read(int(headers.get("content-length", 0)))
        return status, headers, body.decode()

    def request(self, method, address=None, **headers):
        address = address or self.address
        named = {name.replace("_", "-"): value for name, value in headers.items()}
        self.send(method, address, named)
        status, answered, body = self.answer()
        if status == 401 and self.user and not self.challenge:
            text = answered["www-authenticate"]
            self.challenge = (re.search(r'realm="([^"]*)"', text)[1],
                              re.search(r'nonce="([^"]*)"', text)[1])
            self.send(method, address, named)
            status, answered, body = self.answer()
        if status != 200:
            raise Refused(status)
        return answered, body

    def play(self):
        """@return the description of the stream."""
        answered, description = self.request("DESCRIBE", Accept="application/sdp")
        base = answered.get("content-base", self.address + "/")
        control = re.findall(r"^a=control:(\S+)", description, re.M)[-1]
        stream = control if control.startswith("rtsp:") else base + control
        answered, _ = self.request("SETUP", stream,
                                   Transport="RTP/AVP/TCP;unicast;interleaved=0-1")
        self.session = answered["session"].split(";")[0]
        self.send("PLAY", base, {})
        return description

    def packets(self, count):
        """RTP packets after play(): (sequence number, hash of all behind it)."""
        received = []
        while len(received) < count:
            first = self.input.read(1)
            if first == b"R":
                self.skip_answer()
                continue
            if first != b"$":
                raise AssertionError(f"not a packet: {first!r}")
            channel, length = struct.unpack(">BH", self.input.read(3))
            packet = self.input.read(length)
            if channel == 0:
                received.append((struct.unpack(">H", packet[2:4])[0],
                                 hashlib.sha256(packet[4:]).hexdigest()))
        return received

    def skip_answer(self):
        if int(self.input.readline().split()[1]) != 200:
            raise AssertionError("PLAY is refused")
        while self.input.readline().strip():
            pass
