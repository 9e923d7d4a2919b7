# SPDX-License-Identifier: Apache-2.0
"""The world's resolv.conf over the machine's, for the command alone.

It goes when the machine's file is replaced by another, as systemd-resolved does at each change,
and is mounted again then.
"""

import ctypes
import os
import socket
from pathlib import Path

from host.phone import receive
from world.programs import Failure

LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNS = 0x00020000
MS_BIND, MS_REC, MS_SLAVE = 0x1000, 0x4000, 1 << 19
RESOLVER = "/etc/resolv.conf"


class Mount:
    def __init__(self, resolver: Path | None):
        self._resolver = resolver  # none: there is nothing to mount
        self._over = _identity()
        self._outside, self._inside = socket.socketpair()
        self._namespace: int | None = None

    def enter(self) -> None:
        """In the command's process: mounts of its own."""
        if self._resolver:
            checked(LIBC.unshare(CLONE_NEWNS), "its mounts")
            checked(LIBC.mount(None, b"/", None, MS_REC | MS_SLAVE, None), "its mounts")
            self._mount()
            # The command's own, which it can exchange for others, are not to be trusted later.
            namespace = os.open("/proc/self/ns/mnt", os.O_RDONLY)
            socket.send_fds(self._inside, [b"mounts"], [namespace])

    def started(self) -> None:
        """In the process that has started it."""
        self._inside.close()
        _, descriptors = receive(self._outside, 16, 1)
        self._namespace = descriptors[0] if descriptors else None
        self._outside.close()

    def renew(self) -> None:
        over = _identity()
        if self._namespace is None or over == self._over:
            return
        self._over = over
        pid = os.fork()
        if pid == 0:
            status = 1
            try:
                checked(LIBC.setns(self._namespace, CLONE_NEWNS), "its mounts")
                self._mount()
                status = 0
            finally:
                os._exit(status)
        if os.waitpid(pid, 0)[1]:
            raise Failure(f"{RESOLVER} was replaced, and the command now sees the machine's")

    def _mount(self) -> None:
        """A file that is not there yet will be seen as another one when it is."""
        assert self._resolver
        target = os.path.realpath(RESOLVER)
        if os.path.exists(target) and not os.path.samefile(target, self._resolver):
            checked(LIBC.mount(os.fsencode(self._resolver), os.fsencode(target), None, MS_BIND,
                               None), RESOLVER)


def _identity() -> tuple[int, ...] | None:
    try:
        found = os.stat(RESOLVER)
    except OSError:
        return None
    return found.st_dev, found.st_ino, found.st_ctime_ns


def checked(result: int, what: str) -> None:
    if result != 0:
        raise Failure(f"{what}: {os.strerror(ctypes.get_errno())}")
