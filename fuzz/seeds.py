#!/usr/bin/env python3
"""Makes the initial inputs of the fuzz targets: a folder for each target.

  fuzz/seeds.py LIDCAM FOLDER

LIDCAM is the program that compiles the simulated cameras' register sets and records a capture.
"""

import gzip
import lzma
import pathlib
import random
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
import program_end  # noqa: E402

SETS = ROOT / "camera_model" / "sets"
CONTROL_RECORDS = 60
ISOCHRONOUS_RECORDS = 4
LONGEST = 65536


def set_files(lidcam, scratch):
    for source in sorted(SETS.glob("S00*.txt")):
        compiled = scratch / (source.stem + ".set")
        subprocess.run([lidcam, "sets", "compile", source, "-o", compiled], check=True)
        yield compiled.read_bytes()
        yield source.read_bytes()


def recorded(lidcam, scratch):
    """The records of a capture, each a usbmon one."""
    capture = scratch / "bus.pcap"
    subprocess.run([lidcam, "record", "--fast", "--frames", "1", "--size", "160x120", "--raw-size",
                    "160x120", "-q", "-o", capture], check=True)
    data = capture.read_bytes()
    at, records = 24, []
    while at < len(data):
        length = struct.unpack_from("<I", data, at + 8)[0]
        records.append(data[at + 16 : at + 16 + length])
        at += 16 + length
    return records


def usbpcap_of(record):
    """The same record in the format of the other capture system."""
    identity, event, kind, endpoint, device, bus = struct.unpack_from("<QcBBBH", record)
    status, data = struct.unpack_from("<i", record, 28)[0], record[64:]
    done = 0 if event == b"S" else 1
    extra = b""
    if kind == 2:
        extra = bytes((3 if done else 0,))
        data = data if done else record[40:48] + data
    elif kind == 0:
        count = struct.unpack_from("<I", record, 60)[0]
        packets = [struct.unpack_from("<iII", record, 64 + 16 * i) for i in range(count)]
        extra = record[52:56] + struct.pack("<II", count, 0)
        extra += b"".join(struct.pack("<IIi", offset, length, end) for end, offset, length in packets)
        data = data[16 * count :]
    head = struct.pack("<HQIHBHHBBI", 27 + len(extra), identity, 0 if status == 0 else 0xC0000004, 0,
                       done, bus, device, endpoint, kind, len(data))
    return head + extra + data


def capture_records(records):
    """The target expects two bytes ahead of one record: its decoder and the number of bytes cut off."""
    left = {2: CONTROL_RECORDS, 0: ISOCHRONOUS_RECORDS}
    for record in records:
        kind = record[9]
        if left.get(kind, 0) == 0 or len(record) + 2 > LONGEST:
            continue
        left[kind] -= 1
        yield b"\0\0" + record
        if left[kind] % 4 == 0:
            yield b"\1\0" + usbpcap_of(record)
        if record[64:66] == b"\x09\x02":
            yield b"\2\0" + record[64:]  # a configuration
    control = [record for record in records if record[9] == 2]
    for some in (control[:40], control[-40:]):
        for kind, written in ((3, some), (4, [usbpcap_of(record) for record in some])):
            yield bytes((kind, 0)) + b"".join(struct.pack("<H", len(one)) + one for one in written)


def pcap(link, records, order="<", magic=0xA1B2C3D4, lengths=None):
    head = struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, 1 << 18, link)
    lengths = lengths or [len(record) for record in records]
    return head + b"".join(
        struct.pack(order + "IIII", 1, number, len(record), lengths[number]) + record
        for number, record in enumerate(records))


def zstandard(data):
    """One frame with one uncompressed block."""
    assert len(data) < 1 << 17
    return (struct.pack("<IBI", 0xFD2FB528, 0xA0, len(data))
            + struct.pack("<I", len(data) << 3 | 1)[:3] + data)


def pcapng(link, records):
    def block(kind, body):
        body += b"\0" * (-len(body) % 4)
        size = struct.pack("<I", len(body) + 12)
        return struct.pack("<I", kind) + size + body + size

    file = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
    file += block(1, struct.pack("<HHI", link, 0, 1 << 18))
    for record in records:
        file += block(6, struct.pack("<IIIII", 0, 0, 1, len(record), len(record)) + record)
    return file


def begins_frame(record):
    return record[9] == 0 and record[8:9] == b"C" and b"\xff\xd8" in record[64:]


def captures(records):
    """Whole files: with and without frames, of either system, in all formats, and invalid ones."""
    control = [record for record in records if record[9] != 0]
    starts = [number for number, record in enumerate(records) if begins_frame(record)]
    frame = records[starts[0] : starts[1] + 1]
    for link, whole, some in ((220, control + frame, frame),
                              (249, [usbpcap_of(record) for record in control + frame],
                               [usbpcap_of(record) for record in frame])):
        yield pcap(link, whole)
        yield pcap(link, some)
        yield pcap(link, whole[:40])
        yield pcapng(link, whole[:12])
        yield pcap(link, whole[:12], ">")
        yield pcap(link, whole[:12], magic=0xA1B23C4D)
        yield pcap(link, whole[:12])[:-5]
    yield pcap(220, records)
    yield pcap(1, control[:2])
    yield pcap(220, [])
    yield b""
    # Two devices, of which one must be chosen, and one that is unknown.
    other = [record[:11] + bytes((record[11] + 1,)) + record[12:] for record in control[:12]]
    yield pcap(220, control[:12] + other)
    yield pcap(220, [record for record in control if record[8:9] == b"S"][20:30])
    # Cut records, one with an implausible length, and another link type than the records'.
    cut = [record[:48] for record in control[:6]] + [record[:70] for record in frame[:3]]
    yield pcap(220, cut, lengths=[len(record) for record in control[:6] + frame[:3]])
    yield pcap(249, control[:6])
    yield pcap(220, control[:6] + [control[0] + bytes(262140)])
    small = pcap(220, control[:40])
    for packed in (gzip.compress(small, mtime=0), lzma.compress(small), zstandard(small)):
        yield packed
        yield packed[: len(packed) * 2 // 3]
        yield packed[:7]
        yield packed[: len(packed) // 2] + bytes(4) + packed[len(packed) // 2 + 4 :]
    yield gzip.compress(b"", mtime=0)
    yield gzip.compress(pcap(220, control + frame), mtime=0)


def registry_texts():
    text = (
        "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\Camera\\Settings]\r\n"
        '"Brightness"=dword:00000014\r\n"Name"="lid \\"camera\\""\r\n@=hex:01,02,\\\r\n  03\r\n'
        '"Wide"=hex(7):41,00,00,00,00,00\r\n"Gone"=-\r\n\r\n[-HKEY_LOCAL_MACHINE\\Camera\\Old]\r\n'
    )
    yield text.encode()
    yield b"\xef\xbb\xbf" + text.replace("\r\n", "\n").encode()
    yield b"\xff\xfe" + text.encode("utf-16-le")
    letters = "".join(f'"{name}"="{name * 9}"\r\n' for name in "àαдѐÀΑДЀ\U0001d11e")
    long = '"Long"=hex:' + ",".join(["ab"] * 60) + "\r\n"
    yield text.encode() + letters.encode() + long.encode()
    yield text.encode() + b'"open=dword:1\r\n'


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
        for interpolation in (1, 2, 4, 8, 9, 16):
            for kind in (8, 24):
                yield bytes((kind,)) + sizes + b"\0\0" + bytes((interpolation,))
        same = bytes((0, columns, 0, rows)) * 2
        yield b"\1" + same + b"\0\0" + random.Random(7).randbytes(64)


def fault_scripts():
    """A line for each row of the grammar, alone and all together."""
    requests = ("stall", "fail 2", "silent", "late 1.5s", "unplug")
    lines = [f"control 3 {fault}" for fault in (*requests, "short 1", "corrupt")]
    lines += [f"setting 7 {fault}" for fault in (*requests, "refuse 2")]
    packets = ("lose 5", "short", "oversize 3", "corrupt 9", "marker", "false-start", "error")
    lines += [f"at 1.25ms {fault}" for fault in (*packets, "fail", "silent", "silence 2ms", "unplug")]
    lines += ["bits 77", "# a comment", "at 500000s lose; at 125us error"]
    yield "\n".join(lines).encode()
    lines += ["control", "control x stall", "control 3 lose", "setting 1 marker", "at 2s refuse",
              "at 2 lose", "never 3 stall", "control 0 stall", "at 1s lose 0", "\x01" * 50]
    for line in lines:
        yield line.encode()
    yield "\n".join(["at 1ms error"] * 1100).encode()


def property_requests():
    """The receiver, then requests: set and flags, id, and request and value with their lengths."""
    # Of each set: its ids, and the bytes of a request and a value.
    sets = ((range(0, 11), 40, 40), (range(0, 8), 40, 40), (range(0, 5), 56, 132),
            (range(10, 24), 52, 132), (range(0, 2), 48, 48), (range(0, 15), 32, 200),
            (range(0, 5), 32, 120), (range(0, 10), 24, 120), (range(0, 5), 24, 8),
            (range(0, 2), 24, 120), (range(0, 8), 24, 16))
    asked = []
    for kind, (ids, request, value) in enumerate(sets):
        for number in ids:
            for flags in range(4):
                # A value is in the block that is both request and value, or in one of its own.
                block = bytes(24) + struct.pack("<Iii", 5, 1, 1) + bytes(value)
                asked.append(bytes((kind | flags << 4, number, request)) + block[:request]
                             + bytes((value,)) + block[:value])
                if flags < 2:
                    asked.append(bytes((kind | flags << 4, number, request)) + block[:request] + b"\0")
    for at in range(0, len(asked), 24):
        for how in (0, 1):
            yield bytes((how,)) + b"".join(asked[at : at + 24])
    for at in range(0, len(asked), 23):
        yield b"\2" + b"".join(b"\0" + request for request in asked[at : at + 23])
    # A request for a still while frames come: private property 19.
    still = bytes((0x13, 19, 52)) + bytes(52) + bytes((52,)) + bytes(52)
    yield b"\2" + b"\0" + still + b"".join(b"\0" + request for request in asked[:20])
    for value in (0, 1, 3, 50, 255):
        yield b"\3" + b"".join(bytes((number, 2)) + struct.pack("<I", value) for number in range(16))
    yield b"\3" + b"".join(bytes((number, 1, number)) + bytes(number) for number in range(16))
    yield b"\3" + b"".join(bytes((number, 0, number % 12)) + bytes(4) for number in range(16))
    yield b"\4" + b"".join(bytes((0, 3 * (code % 2))) + struct.pack("<IIII", code, 0, 0, 0)
                          for code in range(49))
    for kind in range(4):
        yield b"\4" + b"".join(bytes((2 * kind + 1, 3 * (code % 2))) + struct.pack("<IIII", code, 0, 0, 0)
                              + b"\x88" + bytes(136) for code in range(20))
    yield b"\5" + b"".join(bytes((kind,)) + struct.pack("<H", len(name)) + name + b"\4\0"
                          for kind in range(4)
                          for name in (b"", b"a", b"a\\b\\c", b"Exposure", b"Settings"))
    for to_pin in (0, 7):
        yield bytes((6 + to_pin,)) + b"".join(
            bytes((kind | flags << 4, number, 24)) + bytes(24) + bytes((length,)) + bytes(length) + b"\0"
            for kind in (11, 0, 5) for number in range(2) for flags in range(4) for length in (0, 32))
    yield random.Random(1).randbytes(2000)


def data_formats():
    """Operations: intersect, connect, change the format, query, stream; see the target for the bytes."""
    unchanged = b"\2\0"
    for size in range(5):
        connect = bytes((1, size)) + unchanged + b"\1"
        stream = bytes((4, 1, 1, 1, 1, 255))  # 765 ms: frames come
        yield connect + b"\3" + stream
        yield connect + b"\6" + stream + b"\3\0\2\40\3\40\1\40\3"
        yield connect + stream + b"\2\0\2\0\40\3\0\40" + b"\5" + connect[1:]
        yield connect + bytes((2, (size + 1) % 5)) + unchanged + stream
        yield connect + b"\4" + b"\0" * 20 + b"\3"
        intersect = bytes((0, size)) + unchanged + b"\1\1"
        yield intersect + b"\0\0" + intersect + b"\x98\0" + intersect + b"\x97\0"
        # biSize (at 112 of the format, at 256 of the range) is larger than the rest.
        yield bytes((1, size)) + b"\2\1\x70\0\xff\xff\xff\xff\1"
        yield bytes((0, size)) + b"\2\1\x00\1\xff\xff\xff\xff\1\1\x98\0"
    for seed in range(4):
        yield random.Random(seed).randbytes(300)


def usb_descriptors():
    """The operations, then an answer to each descriptor request: see the target for the kinds."""
    for done in range(4):
        yield bytes((done,))
        for kind in range(1, 8):
            chance = random.Random(100 * done + kind)
            yield bytes((done, 0, kind)) + chance.randbytes(400)
            yield bytes((done, kind)) + chance.randbytes(400)
            yield bytes((done, 0, 0, 0, kind)) + chance.randbytes(100)
    # Configurations with one error each, unchanged when they are read again.
    interface, endpoint = bytes((9, 4, 0, 0, 1, 255, 0, 0, 0)), bytes((7, 5, 0x82, 1, 0, 2, 1))
    for count, kind, tail in ((1, 2, interface + endpoint), (2, 2, interface + endpoint),
                              (1, 3, interface + endpoint), (1, 2, interface + b"\0\0"),
                              (1, 2, interface + b"\x20\5"), (1, 2, interface + endpoint * 2),
                              (1, 2, endpoint), (1, 2, interface + endpoint[:4] + b"\xff\x1f\1"),
                              (1, 2, interface[:8]), (0, 2, b"")):
        whole = bytes((9, kind)) + struct.pack("<H", 9 + len(tail)) + bytes((count, 1, 0, 128, 250)) + tail
        raw = b"\3" + struct.pack("<H", len(whole)) + whole
        yield b"\1\0" + raw + b"\10" * 3
        yield b"\0\0" + raw + b"\10" * 3
    yield b"\1\0\3\4\0" + bytes((9, 2, 4, 0))
    yield b"\1\3" + struct.pack("<H", 18) + bytes((18, 2)) + bytes(16)
    # The longest possible length, larger each time that the descriptor is read.
    yield b"\0\0" + b"".join(b"\7" + struct.pack("<H", total) for total in range(600, 2000, 100))
    # One interface, two endpoints and the highest number of settings.
    for settings in (0, 3, 7):
        interface = b"\1\0" + struct.pack("<H", settings)
        interface += (b"\2\0" + b"\0" + b"\0\0" * 2) * (settings + 1)
        yield b"\0\0\5" + interface + b"\0\0"


def bulk_completions(stream):
    """Bulk transfers of a stream, each of whose chunks succeeds or is cancelled, with a waiter or not."""
    done, cancelled, failed = b"\6\0\0\0", b"\6\0\1\1", b"\6\0\2\2"
    for waits in (0, 1):
        steps = stream
        for length, ends in ((64, done), (19998, done * 8), (64, cancelled), (8000, done + cancelled),
                             (8000, done + failed), (64, done)):
            steps += b"\x0a" + struct.pack("<HHBB", length, 0, 0, waits) + ends
        # All requests of the driver are passed on, except for bulk transfers, which stay pending.
        yield bytes((0, len(steps))) + steps + b"\0" + b"\6" * 600
        yield bytes((1, len(steps))) + steps.replace(b"\0\0\0\0", b"\0\1\0\0") + b"\0" + b"\6" * 600


def completions():
    """The operations, the steps, the concurrent completions, then the result of each request."""
    acquire, run, pause, resume, release = b"\1\0\0", b"\2", b"\3", b"\4", b"\5"
    frames = b"\x0d\x40"  # 128 ms
    ticks = b"\x0d\xff"  # two of the watchdog
    down, up, same, swap = b"\x08", b"\x09", b"\7\1\0", b"\7\0\0"
    gone, plug, stop = b"\x0c\1\0", b"\x0c\0\0", b"\x0c\2\0"
    bulk = b"\x0a\xff\3\0\0\1\0" + b"\x0a\x40\0\0\0\0\0" + b"\x0b\0\0" + b"\x0a\xff\0\1\0\1\3"
    streams = acquire + run + frames + pause + resume + frames + pause + release
    walks = (streams, streams + streams, acquire + run + ticks + same + frames + swap,
             acquire + run + frames + down + frames + up + run + frames,
             bulk + frames + down + up + bulk + frames, acquire + run + plug + frames + gone,
             acquire + run + frames + stop + b"\0" + streams, run + pause + release + resume)
    yield from bulk_completions(acquire + run)
    beside = (b"", b"\x14\0\0\0" * 20, b"\xff\1\1\1" * 10)
    for number, steps in enumerate(walks):
        yield bytes((number << 3, len(steps))) + steps
        for completed in beside:
            chance = random.Random(number)
            for decisions in (b"\7" * 60 + chance.randbytes(400), chance.randbytes(800)):
                done = chance.randrange(8)
                yield (bytes((done | number << 3, len(steps))) + steps
                       + bytes((len(completed),)) + completed + decisions)


COMMANDS = """
--help
stream --help
registers read --help
list
list --json
list bus.pcap
list --json bus.pcap
list source.txt
formats
formats --json --camera sim:1af0:6010
+stream --fast --size 160x120 --frames 2 -o clip.y4m
+stream --size 160x120 --frames 2 -o clip.yuy2 --json
+stream --fast --size 320x240 --raw-size 160x120 --frames 1 -o picture.png --set Contrast=12
+stream --fast --size 160x120 --duration 400ms --log log.csv --faults faults.txt --trace --debug
+stream --fast --size 160x120 --frames 2 --faults at~10ms~lose~5;at~50ms~unplug
+stream --camera capture:bus.pcap --size 160x120 --frames 1
+stream --fast --size 160x120 --frames 1 --set Contrast=12 --save --wait
+stream --fast --size 160x120 --frames 1 --log bus.pcap --camera capture:bus.pcap
list -
replay -
+stream --fast --frames 1 --size 160x120 --light 300lx@0s,5lx@4s --mains 50Hz -o -
stream --fast -q --faults seed=7 --frames 1
stream --camera sim:1af0:6010,sensor=OV7670,config=short,seed=3,mains=60Hz,light=300lx@0s;5lx@1s
stream --camera sim,scene=missing.png
stream --camera sim:1af0:6010,sensor=Nothing
stream --camera sim:dead:beef
stream --camera sim,config=other
stream --camera sim,seed=x
stream --camera sim,mains=1Hz
stream --camera sim,other=1
stream --light 300
stream --light 300lx@0s,5lx
stream --light 300lx@4s,5lx@1s
stream --light 999999lx@0s
stream --light 1lx@zs
stream --light 1lx@20ms
+stream --camera sim,config=short --raw-size 640x480 --fast
+stream --raw-size 320x240 --size 640x480 --fast
stream --raw-size 1x1
stream --size axb
stream --duration 2
stream --log - -o -
stream --camera nothing
stream --size 1x1
stream --duration 0s
stream --frames 0
stream --json -o -
stream --device 1.2
stream --light 300lx@0s --camera capture:bus.pcap
stream --light 1lx@0s --camera sim,light=1lx@0s
stream --mains 70Hz
stream --set Nothing=1
stream --set Contrast
stream --log -
+still --fast -o still.png --settle 1 --size 160x120
+still --camera capture:bus.pcap -o still.png --size 160x120
+still --fast -o still.png --settle 1 --size 160x120 --faults at~10ms~unplug
+still --fast -o still.yuy2 --settle 0 --value 3 --size 160x120 --json
still -o still.txt
+record --fast --size 160x120 --frames 1 -o new.pcap
record -o folder/new.pcap
record
+replay bus.pcap -o clip.y4m
+replay bus.pcap --size 320x240 --frames 1 --json
replay bus.pcap --device 9.9
replay source.txt
replay missing.pcap
controls
controls --json --camera sim:1b17:6100
get
get Brightness Contrast --json
get Nothing
set Contrast=12 Mirror=1
set Contrast=999
set Brightness=3 Brightness=4 Gamma=20 Flicker=2
set Contrast=12 --camera capture:bus.pcap
set
registers
registers read bridge 0x0A
registers read sensor 0xFF0B --camera sim:1af0:6010
registers read bridge 0xFF
registers read bridge 0x100
registers read other 1
registers write bridge 0x77 0x20
registers write sensor 0x10 256
registers dump bridge
registers dump sensor
registers trace
registers trace --size 320x240
sets
sets compile source.txt -o new.set
sets compile source.txt
sets compile S001.set -o new.set
sets compile new.set -o new.set
sets show S001.set
sets show source.txt
sets check S001.set source.txt
sets check missing.set
plot frames.csv -o loop.svg --title Loop
plot frames.csv -o -
plot source.txt -o loop.svg
plot home -o loop.svg
stream --fast --faults control~3~late~1.5s --frames 1
stream --fast --faults nonsense --frames 1
simulate --list
simulate --seeds 1..2 --scenario urb-errors
simulate --seed 3 --scenario urb-errors --json
simulate --seed 3 --scenario urb-errors --trace
simulate --seeds 1..2 --scenario urb-errors --quiet
simulate --scenario out-of-memory --every-step
simulate --scenario out-of-memory --step 3
simulate --seeds 2..1
simulate --seeds x
simulate --scenario nothing
simulate --seed 1 --seeds 1..2
simulate --seed -1
simulate --scenario urb-errors --step 1
stream --frames
stream extra
unknown
""".strip()


FRAME_LOG = ("frame,time_s,luma,level,index,exposure,coarse_gain,fine_gain,lines,light_state,"
             "light_mode,steps,commits,refused,lux")
FRAME_ROW = "1,0.3,40,3,53,3,0,27,1530,Normal,Normal,0,0,0,300"


def command_lines():
    """One word per line; "~" is a blank within a word. After a zero comes the file "given"."""
    for rows in ("", "\n", f"\n{FRAME_ROW}\n", f"\n{FRAME_ROW}\n{FRAME_ROW}\n", "\n1,2,3\n",
                 f"\n{FRAME_ROW}\n2,0.1{FRAME_ROW[5:]}\n", f"\n{FRAME_ROW.replace('40', '400')}\n",
                 f"\n{FRAME_ROW.replace('Normal', 'Other')}\n", f"\n{FRAME_ROW.replace('0.3', 'x')}\n"):
        yield b"plot\ngiven\n-o\nloop.svg\0" + (FRAME_LOG + rows).encode()
    for words in ("stream\n--fast\n--faults\ngiven", "sets\ncompile\ngiven\n-o\nnew.set",
                  "sets\nshow\ngiven", "sets\ncheck\ngiven", "list\ngiven", "replay\ngiven"):
        yield words.encode() + b"\0[setup]\nbridge FF0A = 11\nat 1s stall\n"
    for line in COMMANDS.splitlines():
        long = "+" if line.startswith("+") else ""
        words = line.removeprefix("+").split()
        yield (long + "\n".join(word.replace("~", " ") for word in words)).encode()


# What a client of a served camera does: pieces of bytes, each behind the time ahead of it in 250 us (times 2; odd
# ones are not read), and its length. The first byte of an input chooses the camera's faults.
FAULTS_OF_SERVED = 8


def client(faults, pieces):
    return bytes([faults]) + b"".join(
        bytes([ticks]) + struct.pack("<H", len(piece)) + piece for ticks, piece in pieces)


def usbip_submit(sequence, direction, endpoint, length, setup=bytes(8), packets=0):
    each = length // packets if packets else 0
    return (struct.pack(">10I", 1, sequence, 0x10002, direction, endpoint, 0, length, 0, packets, 1)
            + setup + b"".join(struct.pack(">4I", i * each, each, 0, 0) for i in range(packets)))


def usbip_unlink(sequence, other):
    return struct.pack(">6I", 2, sequence, 0x10002, 0, 0, other) + bytes(24)


def viewer_clients():
    """The first byte: 0 bytes on a connection, 1 a request with the cookie, 2 bytes of a WebSocket, 3 its messages."""
    for line in ("GET /", "GET /live", "GET /snapshot.jpg?camera=0", "GET /stream.mjpg", "GET /recordings/1",
                 "GET /page/index.html", "POST /scene?camera=0", "OPTIONS *"):
        yield b"\1" + line.encode() + b" HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc"
    for name in ("watch", "shown", "clock", "set", "reset", "size", "pixels", "record", "stop", "register",
                 "trace", "simulate", "seek", "play", "step"):
        yield b'\3{"do":"' + name.encode() + b'","camera":0,"id":1}'


def usbip_clients():
    """A list, an import, and all that a client asks of the camera, under each fault."""
    attach = struct.pack(">HHI32s", 0x0111, 0x8003, 0, b"1-1")
    yield client(0, [(0, struct.pack(">HHI", 0x0111, 0x8005, 0))])
    yield client(0, [(0, attach.replace(b"1-1", b"9-9"))])
    yield client(0, [(0, attach[:20]), (254, attach[20:]), (254, b""), (254, b"")])
    requests = [
        usbip_submit(1, 1, 0, 18, bytes.fromhex("8006000100001200")),
        usbip_submit(2, 0, 0, 0, bytes.fromhex("0009010000000000")),
        usbip_submit(3, 0, 0, 0, bytes.fromhex("010b070000000000")),
        usbip_submit(4, 1, 1, 1),
        usbip_submit(5, 0, 0, 0, bytes.fromhex("40a00100ffff0000")),
        usbip_submit(6, 1, 0, 1, bytes.fromhex("c0a1000077ff0100")),
        usbip_submit(7, 1, 0, 9, bytes.fromhex("8006000200000900")),
        *(usbip_submit(10 + i, 1, 2, 8 * 3072, packets=8) for i in range(6)),
        usbip_submit(20, 1, 2, 8 * 64, packets=8), usbip_submit(21, 1, 3, 64),
        usbip_submit(22, 1, 5, 128, packets=2), usbip_submit(23, 0, 2, 4) + b"data",
        usbip_submit(25, 1, 0, 1, bytes.fromhex("8008000000000100")),
        usbip_submit(26, 1, 0, 1, bytes.fromhex("810a000000000100")),
        usbip_submit(27, 1, 0, 2, bytes.fromhex("8000000000000200")),
        usbip_submit(28, 0, 0, 0, bytes.fromhex("0201000082000000")),
        usbip_submit(29, 0, 0, 0, bytes.fromhex("0009020000000000")),
        usbip_submit(24, 0, 0, 2, bytes.fromhex("4001000000000200")) + b"ab",
        usbip_unlink(30, 4), usbip_unlink(31, 15), usbip_unlink(32, 1), usbip_unlink(33, 6)]
    for faults in range(FAULTS_OF_SERVED):
        yield client(faults, [(0, attach)] + [(8, request) for request in requests] + [(250, b"")] * 8)
    yield client(0, [(0, attach + b"".join(requests))] + [(250, b"")] * 4)
    for wrong in (usbip_submit(1, 2, 0, 0), usbip_submit(1, 1, 16, 0), usbip_submit(1, 0, 0, 1 << 20),
                  usbip_submit(1, 1, 2, 0, packets=1025), struct.pack(">I", 9) + bytes(44)):
        yield client(0, [(0, attach), (0, wrong)])


def usbredir_message(kind, identity, body=b""):
    return struct.pack("<III", kind, len(body), identity) + body


def usbredir_clients():
    """A hello, and all that a guest asks of the camera, under each fault."""
    hello = usbredir_message(0, 0, b"a guest".ljust(64, b"\0") + struct.pack("<I", 0x3A))

    def control(identity, request_type, request, value, index, length, data=b""):
        return usbredir_message(100, identity, struct.pack(
            "<BBBBHHH", request_type & 0x80, request, request_type, 0, value, index, length) + data)

    requests = [
        control(1, 0x80, 6, 0x100, 0, 18), usbredir_message(6, 2, b"\1"), usbredir_message(7, 3),
        usbredir_message(9, 4, b"\0\7"), usbredir_message(10, 5, b"\0"),
        usbredir_message(15, 6, b"\x81"), control(7, 0x40, 0xA0, 1, 0xFFFF, 0),
        control(8, 0xC0, 0xA1, 0, 0xFF77, 1), usbredir_message(12, 9, b"\x82\x20\4"),
        usbredir_message(21, 8), usbredir_message(21, 99), control(10, 0x40, 1, 0, 0, 2, b"ab"),
        usbredir_message(16, 11, b"\x81"), usbredir_message(3, 12),
        usbredir_message(12, 13, b"\x82\x20\4"), usbredir_message(13, 14, b"\x82"),
        usbredir_message(12, 15, b"\x81\x20\4"), usbredir_message(24, 0)]
    for faults in range(FAULTS_OF_SERVED):
        yield client(faults, [(0, hello)] + [(8, request) for request in requests] + [(250, b"")] * 4)
    yield client(0, [(0, hello + b"".join(requests))] + [(251, b"")] * 8)
    yield client(0, [(254, hello[:20]), (254, hello[20:]), (254, b""), (254, b"")])
    for wrong in (usbredir_message(200, 1), usbredir_message(22, 0), usbredir_message(6, 1),
                  struct.pack("<III", 100, 1 << 20, 1), control(1, 0x40, 1, 0, 0, 5), hello,
                  usbredir_message(101, 1, bytes(10)), usbredir_message(102, 1, b"\2\0\0\0"),
                  usbredir_message(103, 1, b"\1\0\0\0")):
        yield client(0, [(0, hello), (0, wrong)])
    yield client(0, [(0, usbredir_message(7, 1))])


def write(folder, seeds):
    folder.mkdir(parents=True, exist_ok=True)
    for number, seed in enumerate(seeds):
        (folder / f"seed-{number:03}").write_bytes(seed)


def control_requests():
    yield b'{"do":"status"}\n{"do":"controls"}\n{"do":"get"}\n{"do":"still","value":7}\n'
    yield b'{"do":"get","names":["Brightness","mirror"]}\n{"do":"set","set":["Contrast=12","Mirror=1"]}\n'
    yield b'{"do":"set","set":["Brightness=999"]}\n{"do":"set","set":["Nothing=1"]}\n{"do":"set"}\n'
    yield b'{"do":"get","names":[1]}\n{"do":"still","value":"x"}\n{"do":"other"}\n{"do":3}\n'
    yield b'{"do":"set","set":["AutoExposure=0","Exposure=3","Gain=5"]}\n{"do":"controls"}\n'
    yield b"[" * 20000 + b"\n"


def main():
    if len(sys.argv) != 3:
        raise program_end.WrongUse("usage: fuzz/seeds.py LIDCAM FOLDER")
    lidcam, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    with tempfile.TemporaryDirectory() as name:
        scratch = pathlib.Path(name)
        write(folder / "register_set_file", set_files(lidcam, scratch))
        records = recorded(lidcam, scratch)
        write(folder / "capture_file", capture_records(records))
        write(folder / "capture_replay", captures(records))
    write(folder / "registry_text", registry_texts())
    write(folder / "packet_stream", packet_streams())
    write(folder / "resampler", scales())
    write(folder / "fault_script", fault_scripts())
    write(folder / "property_request", property_requests())
    write(folder / "data_format", data_formats())
    write(folder / "usb_descriptor", usb_descriptors())
    write(folder / "completion_sequence", completions())
    write(folder / "command_line", command_lines())
    write(folder / "control_request", control_requests())
    write(folder / "usbip_client", usbip_clients())
    write(folder / "usbredir_client", usbredir_clients())
    write(folder / "viewer_client", viewer_clients())


if __name__ == "__main__":
    program_end.run(main)
