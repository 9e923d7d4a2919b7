# SPDX-License-Identifier: Apache-2.0
"""Starting the daemon, waiting for what it logs, ending it."""

import re
import signal
import subprocess
import threading
import time
from collections.abc import Sequence
from typing import Any


class Daemon:
    """A running daemon and what it has logged so far."""

    def __init__(self, argv: Sequence[str], **options: Any):
        self.log: list[str] = []
        self._more = threading.Condition()
        self._ended = False
        self.process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True, errors="replace",
                                        **options)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self) -> None:
        assert self.process.stdout
        for line in self.process.stdout:
            with self._more:
                self.log.append(line.rstrip("\n"))
                self._more.notify_all()
        with self._more:
            self._ended = True
            self._more.notify_all()

    def wait_for(self, pattern: str, deadline: float = 5.0, since: int = 0) -> re.Match[str]:
        """The first log line from number `since` on that matches.

        For what is logged again and again, take `since = len(daemon.log)` before the cause.
        """
        end = time.monotonic() + deadline
        with self._more:
            while True:
                for line in self.log[since:]:
                    match = re.search(pattern, line)
                    if match:
                        return match
                left = end - time.monotonic()
                if self._ended or left <= 0:
                    state = "ended" if self._ended else f"has not said it within {deadline} s"
                    tail = "\n  ".join(self.log[-15:])
                    raise TimeoutError(f"/{pattern}/: the daemon {state}; last:\n  {tail}")
                self._more.wait(left)

    def stop(self, deadline: float = 5.0) -> int:
        """Ends it as init would and returns its exit status; one that hangs is killed."""
        self.process.send_signal(signal.SIGTERM)
        try:
            status = self.process.wait(deadline)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise
        finally:
            self._reader.join(deadline)
        return status

    def __enter__(self) -> "Daemon":
        return self

    def __exit__(self, *_: object) -> None:
        if self.process.poll() is None:
            self.stop()


def start_daemon(path: str = "lnkd", *arguments: str, **options: Any) -> Daemon:
    return Daemon([path, *arguments], **options)
