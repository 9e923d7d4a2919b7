# SPDX-License-Identifier: Apache-2.0
"""The lab's links, which are emulated, and how they are set."""

import os
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from lab import RUN
from world import programs
from world.surroundings import Link

CONTROL = f"{RUN}/links"


@dataclass(frozen=True, kw_only=True)
class EmulatedLink(Link):
    far: str  # the device's other end, in the internet


LINKS = {
    name: EmulatedLink(name, 1001 + n, f"10.10.{n + 1}.2", f"10.10.{n + 1}.1",
                       f"fd00:10:{n + 1}::2", f"fd00:10:{n + 1}::1", far=f"net{n}")
    for n, name in enumerate(("wlan0", "wlan1", "rmnet_data0"))
}


def set_links(*lines: str) -> None:
    """Sets links, each line whole or not at all: "wlan0 rate 20 delay 10", "wlan1 down"."""
    with open(CONTROL, "w", encoding="ascii") as fifo:
        fifo.write("".join(f"{line}\n" for line in lines))


def received_bytes(link: str) -> int:
    return int(Path(f"/sys/class/net/{link}/statistics/rx_bytes").read_text())


def start_emulator(program: Path, namespace: str, devices: Sequence[str]) -> subprocess.Popen[str]:
    """Makes both ends of all links, "NEAR:FAR" or "NEAR:FAR:ethernet", the far ones in that
    network namespace."""
    os.mkfifo(CONTROL, 0o600)
    return programs.start(program, CONTROL, namespace, *devices)
