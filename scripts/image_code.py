"""The code of the driver's image: its instructions; of the x64 one its basic blocks, functions and lines, too."""

import bisect
import collections
import pathlib
import random
import re
import struct
import subprocess
import zlib

TOOLS = "x86_64-w64-mingw32-"
TOOLS_X86 = "i686-w64-mingw32-"
X86 = 0x14C

Section = collections.namedtuple("Section", "name address size offset")
Instruction = collections.namedtuple("Instruction", "address code name operands")

LINE = re.compile(r"^\s*([0-9a-f]+):\t((?:[0-9a-f]{2} )+)\s*\t(\S+)\s*(.*)$")
TARGET = re.compile(r"^(?:0x)?([0-9a-f]+)\b")
ENDS = ("ret", "jmp", "ud2", "int3")
HAS_NOT_RUN, HAS_RUN = 1, 2
# A jump of the x64 image that is a call has one of the last two, by which unwinding tells it from other jumps.
PREFIXES = ("lock", "rep", "repz", "notrack", "bnd", "data16", "cs", "rex.W", "rex.WB")

# Kinds of transfers in a capture.
ISOCHRONOUS, CONTROL = 0, 2
PCAP, USBMON = b"\xd4\xc3\xb2\xa1", b"\xdc\0\0\0"

# The simulated cameras whose sensor has a frame size, but for the usual one.
SENSORS = ("1af0:0511,sensor=VGA0408", "1af0:0511,config=short", "1af0:6010", "1af0:6010,sensor=OV7660",
           "1af0:6010,sensor=OV7663", "1af0:6010,sensor=VGA7648", "1af0:6011", "1af0:6011,sensor=K82", "1b17:6101",
           "1b17:6110", "1b17:6111", "1b17:6111,sensor=OV7660", "1b17:6111,sensor=OV7663", "1b17:6111,sensor=OV7670")

# What an application sets, for cameras whose sensors differ in it.
EVERY_SETTING = ("Brightness=20", "Contrast=4", "Saturation=60", "Sharpness=1", "Gamma=5", "WhiteBalance=0",
                 "BacklightCompensation=1", "ColorEnable=0", "AutoExposure=0", "Exposure=70", "Mirror=0", "Vertical=1",
                 "Flicker=2", "Effect=3", "LDMode=1", "LED=2")
SIZES = ("640x480", "352x288", "320x240", "176x144", "160x120")
SETTINGS = (("Flicker=0", "Exposure=100", "Effect=3", "Vertical=1"), ("Flicker=1", "Exposure=1"),
            ("Flicker=2", "Exposure=70", "Mirror=0", "LDMode=1"))


class Image:
    """All addresses are relative to the image's begin."""

    def __init__(self, path):
        self.path = str(path)
        with open(path, "rb") as file:
            self.data = file.read()
        signature, = struct.unpack_from("<I", self.data, 0x3C)
        self.optional = signature + 24
        machine, count = struct.unpack_from("<HH", self.data, signature + 4)
        self.pointer = 4 if machine == X86 else 8  # bytes
        self.tools = TOOLS_X86 if machine == X86 else TOOLS
        self.base, = struct.unpack_from("<I", self.data, self.optional + 28) if machine == X86 else \
            struct.unpack_from("<Q", self.data, self.optional + 24)
        self.size, = struct.unpack_from("<I", self.data, self.optional + 56)
        self.sections = []
        for number in range(count):
            header = self.optional + (224 if machine == X86 else 240) + 40 * number
            name = self.data[header:header + 8].rstrip(b"\0").decode()
            size, address, file_size, offset = struct.unpack_from("<IIII", self.data, header + 8)
            self.sections.append(Section(name, address, min(size, file_size), offset))

    def directory(self, number):
        """Address and size of one of the tables that the header names."""
        return struct.unpack_from("<II", self.data, self.optional + (96 if self.pointer == 4 else 112) + 8 * number)

    def relocations(self):
        """The places of all pointers."""
        at, size = self.directory(5)
        end = at + size
        while at < end:
            page, length = struct.unpack_from("<II", self.data, self.offset_of(at))
            for place in range(at + 8, at + length, 2):
                entry, = struct.unpack_from("<H", self.data, self.offset_of(place))
                if entry >> 12:
                    yield page + (entry & 0xFFF)
            at += length

    def pointer_at(self, address):
        """Where the pointer at an address leads."""
        code = "<I" if self.pointer == 4 else "<Q"
        return struct.unpack_from(code, self.data, self.offset_of(address))[0] - self.base

    def offset_of(self, address):
        """The place of an address in the file."""
        for section in self.sections:
            if section.address <= address < section.address + section.size:
                return section.offset + address - section.address
        raise ValueError(f"{address:x} is in no section")

    def functions(self):
        """Begin and end of each function, by address, from the unwind information."""
        table, size = self.directory(3)
        place = self.offset_of(table)
        entries = (struct.unpack_from("<III", self.data, place + at) for at in range(0, size, 12))
        return [(begin, end) for begin, end, _ in entries if end > begin]

    def instructions(self):
        listing = subprocess.run([self.tools + "objdump", "-d", "--insn-width=16", self.path], check=True,
                                 capture_output=True, text=True).stdout
        for line in listing.splitlines():
            match = LINE.match(line)
            if match:
                code = bytes.fromhex(match[2].replace(" ", ""))
                name, operands = match[3], match[4]
                while name in PREFIXES and operands:
                    name, _, operands = operands.partition(" ")
                yield Instruction(int(match[1], 16) - self.base, code, name, operands.strip())

    def blocks(self):
        """The address of the first instruction of each basic block, in order."""
        functions = self.functions()
        begins = {begin for begin, _ in functions}
        instructions = [one for one in self.instructions() if is_within(functions, one.address)]
        is_next = False
        for one in instructions:
            if is_next:
                begins.add(one.address)
            is_next = one.name.startswith("j") or one.name.startswith(ENDS)
            target = TARGET.match(one.operands)
            if one.name.startswith("j") and target:
                begins.add(int(target[1], 16) - self.base)
        return without_padding(instructions, begins)


def control_requests(path):
    """A line for each control transfer of a capture by lidcam record, ahead of the first isochronous one: what the
    camera is asked, what it is sent and what it answers."""
    data = pathlib.Path(path).read_bytes()
    if data[:4] != PCAP or data[20:24] != USBMON:
        raise ValueError(f"{path}: is no capture by lidcam record")
    at = 24
    while at < len(data):
        captured, = struct.unpack_from("<I", data[at:at + 16].ljust(16, b"\0"), 8)
        packet = data[at + 16:at + 16 + captured]
        at += 16 + captured
        if at > len(data) or captured < 64:
            raise ValueError(f"{path}: ends within a packet")
        if packet[9] == ISOCHRONOUS:
            return
        if packet[9] == CONTROL:
            is_request = packet[8:9] == b"S"
            status, = struct.unpack_from("<i", packet, 28)
            yield f"request {packet[40:48].hex()} {packet[64:].hex()}" if is_request else \
                f"answer {status} {packet[64:].hex()}"


def record_commands(program, image, folder):
    """Commands with the image that record how every sensor is found and set."""
    for number, camera in enumerate(("1af0:0511",) + SENSORS):
        yield [program, "record", "--camera", f"sim:{camera}", "--fast", "--frames", "1", "--size", "160x120",
               "--quiet", *(word for setting in EVERY_SETTING for word in ("--set", setting)), "--driver", str(image), "-o",
               str(folder / f"requests-{number}.pcap")]


def write_noise(path, width=640, height=480):
    """A PNG in which each pixel has another random colour, the same each time: a scaled row that takes a pixel from the
    wrong place, or rounds otherwise, shows."""
    row = 3 * width
    pixels = random.Random(1).randbytes(row * height)
    lines = b"".join(b"\0" + pixels[at:at + row] for at in range(0, len(pixels), row))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    pathlib.Path(path).write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
                                   chunk(b"IDAT", zlib.compress(lines, 1)) + chunk(b"IEND", b""))


def picture_commands(program, image, folder):
    """Commands with the image that write pictures of every size, also enlarged ones of noise, in changing light, of
    every sensor and with settings of the controls, and a still."""
    noise = folder / "noise.png"
    write_noise(noise)
    streams = [("sim", 30, size, ()) for size in SIZES]
    # The short configuration carries small raw frames only, which the driver enlarges.
    streams += [(f"sim:1af0:0511,config=short,scene={noise}", 2, size, ()) for size in SIZES]
    streams.append(("sim,light=300lx@0s;2lx@2s;60lx@9s;3000lx@12s", 450, "160x120", ()))
    for camera in ("1af0:0511",) + SENSORS:
        streams += [(f"sim:{camera}", 3, "160x120", settings) for settings in ((),) + SETTINGS]
    for number, (camera, frames, size, settings) in enumerate(streams):
        options = [word for setting in settings for word in ("--set", setting)]
        if settings:
            options += ["--set", "AutoExposure=0"]
        yield [program, "stream", "--camera", camera, "--fast", "--frames", str(frames), "--size", size, "--quiet",
               *options, "--driver", str(image), "-o", str(folder / f"pictures-{number}.y4m")]
    yield [program, "still", "--camera", "sim", "--fast", "--quiet", "--driver", str(image), "-o",
           str(folder / "still.png")]


def write_coverage(image, blocks, path):
    """The file by which a loaded image is told to note the blocks that run."""
    contents = bytearray(image.size)
    for block in blocks:
        contents[block] = HAS_NOT_RUN
    path.write_bytes(contents)


def without_padding(instructions, begins):
    blocks = []
    waits = False
    for one in instructions:
        waits = waits or one.address in begins
        if waits and not one.name.startswith(("nop", "xchg")):
            blocks.append(one.address)
            waits = False
    return blocks


def is_within(ranges, address):
    at = bisect.bisect_right(ranges, (address, 1 << 62)) - 1
    return at >= 0 and address < ranges[at][1]


def function_names(image, debug):
    """The name of each function by its address, with its arguments."""
    listing = subprocess.run([image.tools + "nm", "-C", str(debug)], check=True, capture_output=True, text=True).stdout
    names = {}
    for line in listing.splitlines():
        words = line.split(" ", 2)
        if len(words) == 3 and words[0] and words[1] in "tT" and not words[2].startswith(".text"):
            names.setdefault(int(words[0], 16) - image.base, words[2])
    return names


def lines_of(image, debug, addresses):
    """For each address the function and the place in the sources, by the debug symbols; inlined code by the function
    that it was written in."""
    if not addresses:
        return {}
    text = "".join(f"{image.base + address:x}\n" for address in addresses)
    said = subprocess.run([TOOLS + "addr2line", "-f", "-C", "-e", str(debug)], input=text, check=True,
                          capture_output=True, text=True).stdout.splitlines()
    return {address: (said[2 * number], said[2 * number + 1].split(" (")[0])
            for number, address in enumerate(addresses)}
