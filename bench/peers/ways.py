# SPDX-License-Identifier: Apache-2.0
"""The ways to use several links that are compared, each with its configuration in ways/."""

import subprocess
from collections.abc import Sequence
from pathlib import Path
from typing import NamedTuple

from lab.internet import in_internet

FOLDER = Path(__file__).resolve().parent / "ways"
MPTCPIZE = ("mptcpize", "run")


class Way(NamedTuple):
    key: str
    title: str
    script: str = ""  # in ways/: sets it up
    mptcp: bool = False  # the client's and the server's sockets are
    long: bool = False  # the file comes in as few connections as there are at a time
    daemon: str = ""  # its configuration file, in the repository
    free: bool = False  # the daemon is told that cellular costs nothing
    told: str = ""  # what it has to know or to have that others need not


DOWNLOADS = (
    Way("single", "best single link"),
    Way("equal-cost", "equal-cost route", "equal-cost.sh"),
    Way("weighted", "weighted route", "weighted.sh", told="the rates"),
    Way("static-split", "static random split", "static-split.sh", told="the rates"),
    Way("mptcp", "MPTCP, a connection a part", "mptcp.sh", mptcp=True, told="the server's help"),
    Way("mptcp-long", "MPTCP, long connections", "mptcp.sh", mptcp=True, long=True,
        told="the server's help"),
    Way("lnkd", "lnkd, cellular charged", daemon="lab/demo/demo.conf"),
    Way("lnkd-free", "lnkd, cellular free", daemon="bench/peers/ways/lnkd-free.conf", free=True),
)


def mptcp_problem() -> str:
    """What this machine lacks for MPTCP; empty when nothing."""
    if not Path("/proc/sys/net/mptcp/enabled").exists():
        return "this kernel has none" + virtual_machine()
    if subprocess.run(["which", "mptcpize"], stdout=subprocess.DEVNULL).returncode:
        return "mptcpize is not installed"
    return ""


def virtual_machine() -> str:
    """Whether the kernel of lab/vm would have it."""
    boot = FOLDER.parents[2] / "build/vm/system/boot"
    configs = [path.read_text() for path in boot.glob("config-*")]
    if not configs:
        return "; that of lab/vm is not here to ask (scripts/setup vm)"
    return f"; that of lab/vm has {'it' if 'CONFIG_MPTCP=y' in configs[0] else 'none either'}"


def set_up(script: str) -> None:
    subprocess.run(["sh", "-eu", FOLDER / script], check=True)


def start_in_internet(command: Sequence[str]) -> None:
    """A server's twin whose sockets are MPTCP's; it says when it is ready by returning."""
    in_internet([*MPTCPIZE, *command], check=True)
