# SPDX-License-Identifier: Apache-2.0
"""One run at a time on a machine."""

import contextlib
import fcntl
import os

from host import RUN, Refusal
from host.changes import OLD_SYSCTLS


class Lock:
    """It ends with the process, however that ends."""

    def __init__(self) -> None:
        self._path = RUN / "lock"
        while True:
            RUN.mkdir(mode=0o755, exist_ok=True)
            try:
                self._file = open(self._path, "a+", encoding="ascii", opener=_private)
            except FileNotFoundError:  # the run before has just removed the folder
                continue
            try:
                fcntl.flock(self._file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                self._file.seek(0)
                raise Refusal(f"already running, as process {self._file.read()}; --join runs "
                              "a command in a world that is up") from None
            if self._is_current():
                break
        self._file.truncate(0)
        self._file.write(str(os.getpid()))
        self._file.flush()

    def _is_current(self) -> bool:
        """Whether the run before has not removed the file meanwhile."""
        try:
            return os.path.samestat(os.fstat(self._file.fileno()), os.stat(self._path))
        except FileNotFoundError:
            return False

    def leave_to_parent(self) -> None:
        """In a child: it may outlive the run by a moment, the lock may not."""
        self._file.close()

    def release(self) -> None:
        """Leaves nothing below /run but what a cleaning that failed has still to restore."""
        for file in RUN.iterdir():
            if file != OLD_SYSCTLS:
                file.unlink()
        with contextlib.suppress(OSError):  # the next run is already there
            RUN.rmdir()
        self._file.close()


def _private(path: str, flags: int) -> int:
    """Whoever may open it can lock it."""
    return os.open(path, flags, 0o600)
