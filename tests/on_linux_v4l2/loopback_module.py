"""v4l2loopback for the guest's kernel, built from Debian's source against Debian's headers.

Packages are taken apart, not installed: this machine's kernel is another one.
"""

import pathlib
import re
import shutil

from guest_machine import MachineError, run

SOURCE = "v4l2loopback-dkms"
MODULE = "v4l2loopback"


def packages(release):
    """Those that a module for a kernel is built with."""
    headers = f"linux-headers-{release}"
    depends = run("apt-cache", "depends", headers)
    needed = re.findall(r"^\s*Depends: (linux-headers-\S+|linux-kbuild-\S+)$", depends, re.MULTILINE)
    if len(needed) != 2:
        raise MachineError(f"{headers} depends on {needed}: its common headers and kbuild were expected")
    return [headers, *needed, SOURCE]


def unpack(names, folder):
    for name in names:
        run("apt-get", "download", name, cwd=folder)
        archive = next(folder.glob(f"{name}_*.deb"))
        run("dpkg-deb", "-x", str(archive), str(folder / "root"))
        archive.unlink()
    return folder / "root/usr/src"


def build(release, folder):
    """Builds the module, once. Gives its file.

    release  of the kernel: "6.1.0-56-amd64"
    folder   where that is done
    """
    built = folder / f"{MODULE}-{release}.ko"
    if built.exists():
        return built
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    sources = unpack(packages(release), folder)
    headers = sources / f"linux-headers-{release}"
    makefile = headers / "Makefile"
    # It names the common headers where they would be installed.
    makefile.write_text(makefile.read_text().replace("/usr/src", str(sources)))
    module = next(sources.glob(f"{MODULE}-*"))
    run("make", "-C", str(headers), f"M={module}", "modules")
    shutil.copy(module / f"{MODULE}.ko", built)
    return built


def with_dependencies(module, modules):
    """A module's file behind those of the kernel's modules that it depends on, in the order to load them."""
    files = {path.stem.replace("-", "_"): path for path in pathlib.Path(modules).rglob("*.ko")}
    order = []

    def add(path):
        depends = re.search(rb"\0depends=([^\0]*)\0", path.read_bytes()).group(1).decode()
        for name in filter(None, depends.split(",")):
            if name in files and files[name] not in order:
                add(files[name])
        order.append(path)

    add(module)
    return order
