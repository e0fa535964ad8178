"""Whether what the guest saw is what the camera is. Numbers are typed anew."""

import hashlib
import re


class Misjudged(Exception):
    """What the guest saw is not what it should be."""


def require(holds, text):
    if not holds:
        raise Misjudged(text)


IDENTITIES = ("1af0:0511", "1af0:6010", "1af0:6011", "1b17:6100", "1b17:6101", "1b17:6110",
              "1b17:6111")

# The packet sizes of the isochronous endpoint as lsusb prints them, by alternate setting.
LONG = ("0x0000  1x 0 bytes", "0x0080  1x 128 bytes", "0x0200  1x 512 bytes",
        "0x0400  1x 1024 bytes", "0x0b00  2x 768 bytes", "0x0c00  2x 1024 bytes",
        "0x1380  3x 896 bytes", "0x1400  3x 1024 bytes")
SHORT = ("0x0000  1x 0 bytes", "0x0080  1x 128 bytes", "0x0200  1x 512 bytes",
         "0x03ff  1x 1023 bytes")
INTERRUPT = "0x0001  1x 1 bytes"
TOTAL = {"long": "0x00c1", "short": "0x0065"}
SIZES = {"long": LONG, "short": SHORT}

# What Linux says of devices that come and go, and of vhci's ports, when all is well.
ORDINARY = (
    r"lidcam: .*",
    r"usb \d+-\d+: new high-speed USB device number \d+ using vhci_hcd",
    r"usb \d+-\d+: New USB device found, idVendor=1(af0|b17), idProduct=\d{4}, bcdDevice= 1\.00",
    r"usb \d+-\d+: New USB device strings: Mfr=1, Product=2, SerialNumber=0",
    r"usb \d+-\d+: (Product: Simulated notebook camera|Manufacturer: lidcam)",
    r"usb \d+-\d+: USB disconnect, device number \d+",
    r"usb \d+-\d+: SetAddress Request \(\d+\) to port \d+",
    r"vhci_hcd vhci_hcd\.\d+: pdev\(\d+\) rhport\(\d+\) sockfd\(\d+\)",
    r"vhci_hcd vhci_hcd\.\d+: devid\(65538\) speed\(3\) speed_str\(high-speed\)",
    r"vhci_hcd vhci_hcd\.\d+: Device attached",
    # Transfers that are taken back when a stream ends, some of which have just ended, and a server that was killed.
    r"vhci_hcd: (unlink->seqnum \d+|the urb \(seqnum \d+\) was already given back|urb->status -104)",
    r"vhci_hcd: (connection reset by peer|sendmsg failed!, ret=-(32|104) for \d+)",
    r"random: crng init done",
    # The machine that the guest runs on had other things to do.
    r"hrtimer: interrupt took \d+ ns",
    r"vhci_hcd: (vhci_device speed not set|connection closed|stop threads|release socket|"
    r"disconnect device)",
)

# And of one that leaves in mid-stream: its transfers end with the connection.
OF_REPLUGS = (
    r"usb \d+-\d+: recv xbuf, (0|-104)",
    r"usb \d+-\d+: enqueue for inactive port 0",
    r"usb \d+-\d+: usbfs: usb_submit_urb returned -19",
)


def check_kernel_messages(text):
    lines = [re.sub(r"^\[[ \d.]*\] ", "", line) for line in text.splitlines()]
    steps = [number for number, line in enumerate(lines) if line.startswith("lidcam: ")]
    require(steps and lines[steps[-1]] == "lidcam: end", "the guest's steps are not in its kernel's messages")
    step = None
    odd = []
    for line in lines[steps[0]:]:
        if line.startswith("lidcam: "):
            step = line.removeprefix("lidcam: ")
        known = ORDINARY + (OF_REPLUGS if step == "replugs" else ())
        if not any(re.fullmatch(one, line) for one in known):
            odd.append(line)
    require(not odd, "the guest's kernel complains:\n  " + "\n  ".join(odd[:20]))


def check_device(identity, kind, block):
    def values(name):
        return re.findall(rf"^ *{name} +(\S.*?) *$", block, re.MULTILINE)

    what = f"{identity}, {kind} configuration"
    for name, expected in (("bcdUSB", "2.00"), ("bDeviceClass", "255 Vendor Specific Class"),
                           ("bMaxPacketSize0", "64"), ("bcdDevice", "1.00"),
                           ("iManufacturer", "1 lidcam"),
                           ("iProduct", "2 Simulated notebook camera"),
                           ("wTotalLength", TOTAL[kind]), ("bNumInterfaces", "1"),
                           ("MaxPower", "500mA")):
        require(values(name) == [expected], f"{what}: {name} is {values(name)}, not {expected}")
    sizes = SIZES[kind]
    settings = [str(number) for number in range(len(sizes))]
    require(values("bAlternateSetting") == settings,
            f"{what}: alternate settings {values('bAlternateSetting')}")
    expected = [size for each in sizes for size in (INTERRUPT, each)]
    require(values("wMaxPacketSize") == expected,
            f"{what}: packet sizes {values('wMaxPacketSize')}")
    require(values("bEndpointAddress") == ["0x81  EP 1 IN", "0x82  EP 2 IN"] * len(sizes),
            f"{what}: endpoints {values('bEndpointAddress')}")
    require(values("Transfer Type") == ["Interrupt", "Isochronous"] * len(sizes),
            f"{what}: transfer types {values('Transfer Type')}")


def check_enumeration(folder, cameras):
    """Every camera is there, with all its descriptors, and lsusb complained of none."""
    complaints = (folder / "complaints").read_text()
    require(complaints == "", "lsusb complains: " + complaints)
    blocks = re.split(r"^\n(?=Bus )", "\n" + (folder / "lsusb").read_text(), flags=re.MULTILINE)
    found = {}
    for block in blocks:
        head = re.match(r"Bus \d+ Device \d+: ID (\S+) ", block)
        if head is None or head.group(1) not in IDENTITIES:
            continue
        kind = next((kind for kind, total in TOTAL.items() if f" {total}\n" in block), None)
        require(kind is not None, f"{head.group(1)}: neither configuration")
        check_device(head.group(1), kind, block)
        found[head.group(1), kind] = found.get((head.group(1), kind), 0) + 1
    require(found == {camera: 1 for camera in cameras}, f"the guest saw {sorted(found)}")


def picture_bytes(size):
    width, height = map(int, size.split("x"))
    return width * height * 2


# The driver writes two numbers over the last two pixels of a still.
STILL_MARKS = 4


def pictures(path, size, left_out=0):
    """Digests of a file's pictures, in their order, each without so many bytes at its end."""
    digests = []
    length = picture_bytes(size)
    with open(path, "rb") as file:
        while picture := file.read(length):
            require(len(picture) == length, f"{path.name} ends within a picture")
            digests.append(hashlib.sha256(picture[:length - left_out]).digest())
    return digests


def check_order(what, seen, expected):
    """Each picture that was seen is one that was expected, behind the one before."""
    places = {digest: place for place, digest in enumerate(expected)}
    last = -1
    for number, digest in enumerate(seen):
        require(digest in places, f"{what}: picture {number} is not one that the camera sends")
        require(places[digest] > last, f"{what}: picture {number} is out of its order")
        last = places[digest]


def check_done(folder, name, status="0"):
    said = (folder / f"{name}.status").read_text().strip()
    require(said == status,
            f"{name} ended with {said}: {(folder / f'{name}.out').read_text().strip()}")
