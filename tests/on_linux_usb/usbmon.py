"""Writes what usbmon sees of a bus into a capture, until it is told to end.

Usage: python3 usbmon.py BUS FILE

It says "ready" once it listens, and at its end how many events were lost.
"""

import ctypes
import fcntl
import os
import select
import signal
import struct
import sys

RING_SIZE = 64 * 1024 * 1024
SET_RING_SIZE = 0x9204
GET_STATISTICS = 0x80089203
GET_EVENT = 0x4018920A
HEADER_SIZE = 64
LONGEST = 4 * 1024 * 1024
LINK_TYPE = 220  # usbmon's header of 64 bytes


class Ask(ctypes.Structure):
    _fields_ = [("header", ctypes.c_void_p), ("data", ctypes.c_void_p), ("room", ctypes.c_size_t)]


def main():
    bus, path = sys.argv[1:]
    device = os.open(f"/dev/usbmon{bus}", os.O_RDONLY | os.O_NONBLOCK)
    fcntl.ioctl(device, SET_RING_SIZE, RING_SIZE)
    ended = []
    signal.signal(signal.SIGTERM, lambda *_: ended.append(True))
    header = ctypes.create_string_buffer(HEADER_SIZE)
    data = ctypes.create_string_buffer(LONGEST)
    ask = Ask(ctypes.addressof(header), ctypes.addressof(data), LONGEST)
    with open(path, "wb", buffering=1 << 20) as output:
        output.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, LONGEST + HEADER_SIZE,
                                 LINK_TYPE))
        print("ready", flush=True)
        while True:
            try:
                fcntl.ioctl(device, GET_EVENT, ask)
            except BlockingIOError:
                if ended:
                    break
                select.select([device], [], [], 0.1)
                continue
            except InterruptedError:
                continue
            seconds, microseconds = struct.unpack_from("<qi", header, 16)
            captured, = struct.unpack_from("<I", header, 36)
            size = HEADER_SIZE + captured
            output.write(struct.pack("<IIII", seconds, microseconds, size, size))
            output.write(header.raw)
            output.write(memoryview(data)[:captured])
    _, lost = struct.unpack("<II", fcntl.ioctl(device, GET_STATISTICS, bytes(8)))
    print(f"lost {lost}", flush=True)


main()
