#!/usr/bin/env python3
"""Makes the inputs that the fuzz targets start from: a folder for each target.

  fuzz/seeds.py LIDCAM FOLDER

LIDCAM is the program that compiles the simulated cameras' register sets and records a capture.
"""

import pathlib
import random
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
import program_end  # noqa: E402

SETS = ROOT / "simulator" / "sets"
CONTROL_RECORDS = 60
ISOCHRONOUS_RECORDS = 4
LONGEST = 65536


def set_files(lidcam, scratch):
    for source in sorted(SETS.glob("S00*.txt")):
        compiled = scratch / (source.stem + ".set")
        subprocess.run([lidcam, "sets", "compile", source, "-o", compiled], check=True)
        yield compiled.read_bytes()
        yield source.read_bytes()


def capture_records(lidcam, scratch):
    """The target wants one record, behind two bytes: its decoder and how much of it was cut off."""
    capture = scratch / "bus.pcap"
    subprocess.run([lidcam, "record", "--fast", "--frames", "1", "-q", "-o", capture], check=True)
    data = capture.read_bytes()
    at, left = 24, {2: CONTROL_RECORDS, 0: ISOCHRONOUS_RECORDS}
    while at < len(data):
        length = struct.unpack_from("<I", data, at + 8)[0]
        record = data[at + 16 : at + 16 + length]
        at += 16 + length
        kind = record[9]
        if left.get(kind, 0) == 0 or len(record) + 2 > LONGEST:
            continue
        left[kind] -= 1
        yield b"\0\0" + record
        if record[64:66] == b"\x09\x02":
            yield b"\2\0" + record[64:]  # a configuration
    # A control transfer of the other capture system: submitted, with its SETUP packet.
    setup = bytes.fromhex("8006000100001200")
    yield b"\1\0" + struct.pack("<HQIHBHHBBIB", 28, 1, 0, 8, 0, 1, 3, 0x80, 2, 8, 0) + setup


def registry_texts():
    text = (
        "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\Camera\\Settings]\r\n"
        '"Brightness"=dword:00000014\r\n"Name"="lid \\"camera\\""\r\n@=hex:01,02,\\\r\n  03\r\n'
        '"Wide"=hex(7):41,00,00,00,00,00\r\n"Gone"=-\r\n\r\n[-HKEY_LOCAL_MACHINE\\Camera\\Old]\r\n'
    )
    yield text.encode()
    yield b"\xef\xbb\xbf" + text.replace("\r\n", "\n").encode()
    yield b"\xff\xfe" + text.encode("utf-16-le")


def packet_streams():
    """Any bytes are a stream; a long one fills whole frames."""
    for seed, length in enumerate((64, 1024, 8192, LONGEST)):
        yield random.Random(seed).randbytes(length)


def scales():
    """Flags, the two sizes, then the picture's bytes: see the target for the order."""
    for columns, rows, to_columns, to_rows in ((64, 48, 40, 30), (40, 30, 64, 48), (96, 4, 48, 2)):
        sizes = bytes((0, columns, 0, rows, 0, to_columns, 0, to_rows))
        yield b"\1" + sizes + b"\0\0" + random.Random(columns).randbytes(64)
        yield b"\3" + sizes + bytes((0, 0, 0, 1, 0, columns, 0, rows)) + b"\0\0"
        yield b"\20" + sizes + b"\0\0" + random.Random(rows).randbytes(64)


def fault_scripts():
    """A line for each row of the grammar, alone and all together."""
    requests = ("stall", "fail 2", "silent", "late 1.5s", "unplug")
    lines = [f"control 3 {fault}" for fault in (*requests, "short 1", "corrupt")]
    lines += [f"setting 7 {fault}" for fault in (*requests, "refuse 2")]
    packets = ("lose 5", "short", "oversize 3", "corrupt 9", "marker", "false-start", "error")
    lines += [f"at 1.25ms {fault}" for fault in (*packets, "fail", "silent", "silence 2ms", "unplug")]
    lines += ["bits 77", "# a comment", "at 500000s lose; at 125us error"]
    yield "\n".join(lines).encode()
    for line in lines:
        yield line.encode()


def property_requests():
    """Where it goes, then requests: set and flags, id, request and value with their lengths."""
    lengths = {0: (40, 40), 1: (40, 40), 2: (56, 132), 3: (52, 132), 4: (48, 48), 5: (32, 200), 7: (24, 8)}
    asked = []
    for kind, (request, value) in lengths.items():
        for flags in range(4):
            for number in (0, 1, 3, 4, 14, 16, 18):
                asked.append(bytes((kind | flags << 4, number, request)) + bytes(request)
                             + bytes((value,)) + bytes(value))
    for at in range(0, len(asked), 12):
        yield b"\0" + b"".join(asked[at : at + 12])
        yield b"\1" + b"".join(asked[at : at + 12])
    yield random.Random(1).randbytes(2000)


def data_formats():
    """Operations: intersect, connect, change the format, look, stream; see the target for the bytes."""
    unchanged = b"\2\0"
    for size in range(5):
        connect = bytes((1, size)) + unchanged + b"\1"
        stream = bytes((4, 1, 1, 1, 1, 200))
        yield connect + b"\3" + stream
        yield connect + bytes((2, (size + 1) % 5)) + unchanged + stream
        yield connect + b"\4" + b"\0" * 20 + b"\3"
        intersect = bytes((0, size)) + unchanged + b"\1\1"
        yield intersect + b"\0\0" + intersect + b"\x98\0" + intersect + b"\x97\0"
        # biSize (at 112 of the format, at 256 of the range) is larger than the rest.
        yield bytes((1, size)) + b"\2\1\x70\0\xff\xff\xff\xff\1"
        yield bytes((0, size)) + b"\2\1\x00\1\xff\xff\xff\xff\1\1\x98\0"
    for seed in range(4):
        yield random.Random(seed).randbytes(300)


def write(folder, seeds):
    folder.mkdir(parents=True, exist_ok=True)
    for number, seed in enumerate(seeds):
        (folder / f"seed-{number:02}").write_bytes(seed)


def main():
    if len(sys.argv) != 3:
        raise program_end.WrongUse("usage: fuzz/seeds.py LIDCAM FOLDER")
    lidcam, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    with tempfile.TemporaryDirectory() as name:
        scratch = pathlib.Path(name)
        write(folder / "register_set_file", set_files(lidcam, scratch))
        write(folder / "capture_file", capture_records(lidcam, scratch))
    write(folder / "registry_text", registry_texts())
    write(folder / "packet_stream", packet_streams())
    write(folder / "resampler", scales())
    write(folder / "fault_script", fault_scripts())
    write(folder / "property_request", property_requests())
    write(folder / "data_format", data_formats())


if __name__ == "__main__":
    program_end.run(main)
