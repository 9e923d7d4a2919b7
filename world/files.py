# SPDX-License-Identifier: Apache-2.0
"""The phone's files: its root directory, and what the daemon finds there."""

import ctypes
import os
import shutil
from collections.abc import Iterable
from pathlib import Path

from world import programs
from world.options import Options
from world.phone import PROPERTIES, RUN, TOOLS, TOOLS_LOG
from world.surroundings import Link

LIBC = ctypes.CDLL(None, use_errno=True)
MS_BIND, MS_REC, MS_PRIVATE, MNT_DETACH = 0x1000, 0x4000, 1 << 18, 2

# What the phone has of its own; all else in the root directory is the machine's.
OWN = {"proc", "sys", "run", "vendor", "system", "dev", "lost+found"}
DEVICES = ["null", "zero", "full", "random", "urandom", "tty", "fuse", "pts", "ptmx"]
ROUTING_TABLES = "/etc/iproute2/rt_tables"


def _mount(source: str | None, target: str, kind: str | None, flags: int = 0) -> None:
    def text(value: str | None) -> bytes | None:
        return value.encode() if value is not None else None

    if LIBC.mount(text(source), text(target), text(kind), flags, None) != 0:
        raise OSError(ctypes.get_errno(), f"mount {target}")


def _bind(source: str, target: str) -> None:
    if os.path.isdir(source):
        os.makedirs(target, exist_ok=True)
    else:
        os.makedirs(os.path.dirname(target), exist_ok=True)
        Path(target).touch()
    _mount(source, target, None, MS_BIND | MS_REC)


def make_root(devices: Iterable[str]) -> None:
    """A root directory of our own, with the machine's directories in it."""
    here = os.getcwd()
    _mount(None, "/", None, MS_REC | MS_PRIVATE)
    new = "/run"  # any directory that need not be seen itself
    _mount("world", new, "tmpfs")
    os.chmod(new, 0o755)
    for entry in os.scandir("/"):
        if entry.name in OWN:
            continue
        if entry.is_symlink():
            os.symlink(os.readlink(entry.path), f"{new}/{entry.name}")
        elif entry.is_dir():
            _bind(entry.path, f"{new}/{entry.name}")
    for name in ("run", "dev"):
        os.mkdir(f"{new}/{name}")
        _mount("world", f"{new}/{name}", "tmpfs")
        os.chmod(f"{new}/{name}", 0o755)
    for device in [*DEVICES, *devices]:
        _bind(f"/dev/{device}", f"{new}/dev/{device}")
    for name in ("/proc", "/sys", "/vendor/etc/sla", "/system/bin", "/dev/shm", "/dev/socket",
                 f"{RUN}/proc", f"{RUN}/sla"):
        os.makedirs(f"{new}{name}")
    os.chmod(f"{new}/dev/shm", 0o1777)
    os.chdir(new)
    if LIBC.pivot_root(b".", b".") != 0 or LIBC.umount2(b".", MNT_DETACH) != 0:
        raise OSError(ctypes.get_errno(), "pivot_root")
    os.chdir("/")
    for name, target in (("fd", "fd"), ("stdin", "fd/0"), ("stdout", "fd/1"), ("stderr", "fd/2")):
        os.symlink(f"/proc/self/{target}", f"/dev/{name}")
    _mount("sysfs", "/sys", "sysfs")
    _mount("proc", f"{RUN}/proc", "proc")
    _bind(f"{RUN}/proc", "/proc")  # until slaprocfs covers it
    try:
        os.chdir(here)
    except OSError:
        pass  # a directory that the phone does not have


def fill(options: Options, links: Iterable[Link]) -> None:
    """Puts in place what the daemon reads, and the tools that it runs."""
    os.mkfifo(f"{RUN}/sla/config", 0o600)
    # Kept open by this process, the one that lasts as long as the world: a
    # writer must never wait for a reader.
    os.open(f"{RUN}/sla/config", os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
    programs.run(options.build / "world/slaprocfs")
    PROPERTIES.write_text("".join(f"{prop}\n" for prop in options.props))
    for tool, wrapper in TOOLS.items():
        record = f"printf '%s\\n' \"{tool} $*\" >> {TOOLS_LOG}\n" if options.record_tools else ""
        real = shutil.which(tool, path=programs.SYSTEM_PATH)
        wrapper.write_text(f"#!/bin/sh\n{record}exec {real} \"$@\"\n")
        wrapper.chmod(0o755)
    tables = Path(ROUTING_TABLES).read_text()
    tables += "".join(f"{link.table} {link.name}\n" for link in links)
    Path(f"{RUN}/rt_tables").write_text(tables)
    _mount(f"{RUN}/rt_tables", ROUTING_TABLES, None, MS_BIND)
