"""Small machines with Debian's kernel, under qemu without acceleration.

The kernel's package is taken apart, not installed. The guest's root is that of this machine, read-only; its own are
/tmp and /run, and what it leaves in /tmp/results.
"""

import pathlib
import re
import shlex
import shutil
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
# Whichever is there; the guest needs no others.
MODULES = ("virtio_pci", "9pnet_virtio", "9p", "vhci-hcd", "usbmon", "ehci-pci")


class MachineError(Exception):
    """What could not be had, in a line."""


def run(*command, **options):
    result = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    if result.returncode != 0:
        raise MachineError(f"{command[0]} failed: {result.stderr.strip() or result.stdout.strip()}")
    return result.stdout


def kernel_package():
    """The package that Debian's newest kernel for this machine is in."""
    for line in run("apt-cache", "depends", "linux-image-amd64").splitlines():
        match = re.fullmatch(r"\s*Depends: (linux-image-\S+)", line)
        if match:
            return match.group(1)
    raise MachineError("the package linux-image-amd64 is not known: apt-get update")


def unpack_kernel(folder):
    """The kernel's image and modules, downloaded once. Gives the image and the folder of modules."""
    package = kernel_package()
    unpacked = folder / package
    if not unpacked.exists():
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        run("apt-get", "download", package, cwd=folder)
        archive = next(folder.glob(f"{package}_*.deb"))
        run("dpkg-deb", "-x", str(archive), str(folder / "part"))
        archive.unlink()
        (folder / "part").rename(unpacked)
    return next((unpacked / "boot").glob("vmlinuz-*")), next((unpacked / "lib/modules").iterdir())


def in_load_order(modules):
    """The wanted modules and all that they depend on, each behind what it depends on."""
    files = {path.stem.replace("-", "_"): path for path in modules.rglob("*.ko")}
    order = []

    def add(name):
        path = files.get(name.replace("-", "_"))
        if path is None or path in order:  # what isn't there is built in
            return
        depends = re.search(rb"\0depends=([^\0]*)\0", path.read_bytes())
        for other in depends.group(1).decode().split(",") if depends else []:
            if other:
                add(other)
        order.append(path)

    for module in MODULES:
        add(module)
    return order


def make_initramfs(modules, folder):
    """Packs busybox, the modules and the first program."""
    tree = folder / "initramfs"
    shutil.rmtree(tree, ignore_errors=True)
    for name in ("bin", "proc", "machine"):
        (tree / name).mkdir(parents=True)
    busybox = shutil.which("busybox")
    if busybox is None:
        raise MachineError("there is no busybox")
    shutil.copy(busybox, tree / "bin/busybox")
    shutil.copy(HERE / "init", tree / "init")
    (tree / "init").chmod(0o755)
    order = in_load_order(modules)
    for path in order:
        shutil.copy(path, tree / path.name)
    (tree / "modules").write_text("".join(f"{path.name}\n" for path in order))
    archive = folder / "initramfs.cpio"
    names = "\n".join(str(path.relative_to(tree)) for path in sorted(tree.rglob("*")))
    with open(archive, "wb") as output:
        subprocess.run([busybox, "cpio", "-o", "-H", "newc"], cwd=tree, input=names.encode(),
                       stdout=output, stderr=subprocess.DEVNULL, check=True)
    return archive


class Machine:
    """Debian's kernel and the first files of a guest, from which any number can be booted at a time."""

    def __init__(self, folder):
        self._image, modules = unpack_kernel(folder / "kernel")
        self._initramfs = make_initramfs(modules, folder)

    def boot(self, folder, script, given, limit, devices=()):
        """Boots a guest, lets it run a script of this machine's root, and waits for its end.

        folder   for its console and its results
        given    shell variables that the script finds in /tmp/results/given
        devices  more of qemu's options
        limit    seconds
        Gives the folder of results.
        """
        results = folder / "results"
        shutil.rmtree(results, ignore_errors=True)
        results.mkdir(parents=True)
        words = [f"{name}={shlex.quote(value)}\n" for name, value in given.items()]
        (results / "given").write_text("".join(words))
        share = "local,security_model=none,multidevs=remap"
        console = folder / "console"
        command = [
            "qemu-system-x86_64", "-accel", "tcg,thread=multi", "-smp", "2", "-m", "768",
            "-display", "none", "-nodefaults", "-no-reboot", "-serial", f"file:{console}",
            "-kernel", str(self._image), "-initrd", str(self._initramfs),
            "-append", f"console=ttyS0 quiet panic=-1 mitigations=off guest_script={script}",
            "-virtfs", f"{share},path=/,mount_tag=machine,readonly=on",
            "-virtfs", f"{share},path={results},mount_tag=results", *devices]
        try:
            run(*command, timeout=limit)
        except subprocess.TimeoutExpired:
            raise MachineError(f"the guest did not end within {limit} s: {console}") from None
        status = results / "status"
        if not status.exists():
            raise MachineError(f"the guest did not reach the script's end: {console}")
        return results
