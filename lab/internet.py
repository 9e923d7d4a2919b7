# SPDX-License-Identifier: Apache-2.0
"""The internet behind the links: a network namespace with the servers' addresses."""

import subprocess
from collections.abc import Iterable, Sequence
from pathlib import Path
from typing import Any, Protocol

from lab import RUN
from world import network, programs

NAME = "internet"
NAMESPACE = f"/run/netns/{NAME}"
COMMAND = ("nsenter", f"--net={NAMESPACE}")  # in front of another, which then runs there
WEB_SERVER = "203.0.113.10"
GAME_SERVER = "203.0.113.20"  # a second one for games
WEB_SERVER6 = "2001:db8::10"
PROBE_SERVER = "8.8.8.8"
CALL_PEER = f"{WEB_SERVER}:5060"
GAME_PORTS = (7000, 7001)
SLOW_TARGETS = {"silent": f"{GAME_SERVER}:7010", "drip": f"{GAME_SERVER}:7011"}  # by manner
RESPONDER = Path(__file__).resolve().parent / "responder.py"
RESPONDER_LOG = Path(f"{RUN}/responder.log")


class Near(Protocol):
    """A link, as far as the internet knows it."""

    far: str  # the device on this side
    gateway: str  # its address, with 24 bits of network
    gateway6: str  # with 64 bits; empty: no IPv6


def in_internet(argv: Sequence[str], **options: Any) -> subprocess.CompletedProcess[Any]:
    """subprocess.run on the servers' side of the links."""
    return subprocess.run([*COMMAND, *argv], **options)


def make_namespace() -> None:
    programs.run("ip", "netns", "add", NAME)


def set_up(links: Iterable[Near]) -> None:
    """Gives the far ends of the links and the servers their addresses."""
    network.accept_detours(COMMAND)
    lines = ["link set lo up"]
    lines += [f"addr add {server}/32 dev lo"
              for server in (WEB_SERVER, GAME_SERVER, PROBE_SERVER)]
    lines += [f"addr add {WEB_SERVER6}/128 dev lo nodad"]
    for link in links:
        lines += [*network.bring_up(link.far), f"addr add {link.gateway}/24 dev {link.far}"]
        if link.gateway6:
            lines.append(f"addr add {link.gateway6}/64 dev {link.far} nodad")
    network.batch(lines, COMMAND)


def start_responder() -> subprocess.Popen[str]:
    addresses = [f"{PROBE_SERVER}:443", CALL_PEER]
    addresses += [f"{server}:{port}" for server in (WEB_SERVER, GAME_SERVER) for port in GAME_PORTS]
    addresses += [f"{target}/{manner}" for manner, target in SLOW_TARGETS.items()]
    return programs.start(RESPONDER, str(RESPONDER_LOG), *addresses, prefix=COMMAND)


def slow_down_probes(manner: str) -> None:
    """Puts a slow target in the place of the one that is probed by default."""
    rule = f"-d {PROBE_SERVER} -p tcp -j DNAT --to-destination {SLOW_TARGETS[manner]}"
    in_internet(["iptables", "-w", "-t", "nat", "-A", "PREROUTING", *rule.split()], check=True)
