# SPDX-License-Identifier: Apache-2.0
"""A game or a call on the phone, as the one who starts it sees it: a process and its packets."""

import os
import subprocess
import sys
from collections.abc import Sequence
from pathlib import Path
from typing import NamedTuple

from lab import RUN

GAME_UID, CALL_UID = 10200, 10099
GAME = Path(__file__).resolve().parent / "game.py"


class Packet(NamedTuple):
    """One line of a packet file: what was sent, and what became of it."""

    sent: float  # s since the epoch
    protocol: str
    rtt: float  # ms; a second for one that was lost, or that could not even be sent
    link: str  # that the server saw it on, or "lost"

    @property
    def lost(self) -> bool:
        return self.link == "lost"

    @property
    def answered(self) -> float:
        return self.sent + self.rtt / 1000


def read_packets(path: str) -> list[Packet]:
    with open(path, encoding="ascii") as lines:
        fields = [line.split() for line in lines]
    return [Packet(float(sent), protocol, float(rtt), link) for sent, protocol, rtt, link in fields]


class Client:
    """A game or a call, in a process of its own; `prefix` is a command in front of it."""

    def __init__(self, kind: str, server: str, prefix: Sequence[str] = (), *options: str):
        self.kind = kind
        self.file = f"{RUN}/{kind}.packets"
        uid, flags = (CALL_UID, ["--call"]) if kind == "call" else (GAME_UID, [])
        self.process = subprocess.Popen(
            [*prefix, sys.executable, GAME, server, *flags, *options, f"--uid={uid}",
             f"--packets={self.file}"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        assert self.process.stdout
        os.set_blocking(self.process.stdout.fileno(), False)
        self.last = ""

    def line(self) -> str:
        """What it said last."""
        assert self.process.stdout
        for line in self.process.stdout:
            self.last = line.strip().partition("  ")[2]
        return self.last

    def move(self, server: str) -> None:
        assert self.process.stdin
        self.process.stdin.write(f"{server}\n")
        self.process.stdin.flush()

    def end(self) -> None:
        if self.process.poll() is None:
            assert self.process.stdin
            self.process.stdin.close()
            self.process.wait(5)
