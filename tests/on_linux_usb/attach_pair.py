"""Attaches a served camera to vhci-hcd over a socket pair in place of a TCP connection.

Usage: python3 attach_pair.py PORT

Whatever the kernel's end of the pair sends is passed on to the server at 127.0.0.1:PORT, and its answers back,
until either end is closed.
"""

import socket
import struct
import sys
import threading

ATTACH = "/sys/devices/platform/vhci_hcd.0/attach"
IMPORT = struct.pack(">HHI32s", 0x0111, 0x8003, 0, b"1-1")
PATH_AND_BUS_ID = 256 + 32
REPLY_SIZE = 8 + 312


def read_whole(source, size):
    data = b""
    while len(data) < size:
        more = source.recv(size - len(data))
        if not more:
            sys.exit("the server closed the connection")
        data += more
    return data


def pass_on(source, target):
    try:
        while data := source.recv(65536):
            target.sendall(data)
    except OSError:
        pass  # the other end is gone, as at the end of the data
    for end in (source, target):
        try:
            end.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


def attach(kernel_end):
    """Imports the camera over the pair, and gives the kernel its end."""
    kernel_end.sendall(IMPORT)
    reply = read_whole(kernel_end, REPLY_SIZE)
    status, = struct.unpack_from(">I", reply, 4)
    if status != 0:
        sys.exit(f"the server refuses with {status}")
    bus, device, speed = struct.unpack_from(">III", reply, 8 + PATH_AND_BUS_ID)
    with open(ATTACH, "w", encoding="ascii") as file:
        file.write(f"0 {kernel_end.fileno()} {bus << 16 | device} {speed}")


def main():
    server = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
    kernel_end, own_end = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
    relays = [threading.Thread(target=pass_on, args=ends, daemon=True)
              for ends in ((own_end, server), (server, own_end))]
    for relay in relays:
        relay.start()
    attach(kernel_end)
    kernel_end.close()
    for relay in relays:
        relay.join()


main()
