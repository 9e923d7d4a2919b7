# SPDX-License-Identifier: Apache-2.0
"""Every change to the machine, as data: what is done, and what undoes it.

All of it goes by names of its own, so that what a killed run left is found again: veths
"lnkdh-N", one priority for policy rules, one table for each lane, one table of the packet
filter. Only sysctls of the uplinks need their old values, which are kept in a file.
"""

import contextlib
import re
import shlex
import subprocess
import sys
from collections.abc import Iterable, Sequence
from dataclasses import dataclass
from pathlib import Path

from host import RUN
from host.lanes import NAMES, PRIORITY, TABLE, Lane
from host.uplinks import OURS, Uplink, ask
from world.programs import Failure

WORLD = "WORLD"  # in a step: the world's network namespace, which has no name before it exists
FILTER = ("ip", "lnkd_host")
CLOSED = " ".join((*FILTER, "closed"))  # the chain for uplinks that forward nothing but ours
FORWARDS = 2  # as 1 for the kernel, but what somebody else switches on is 1
OLD_SYSCTLS = RUN / "sysctls"
COMMENT = "-m comment --comment lnkd-host"


@dataclass(frozen=True)
class Step:
    do: tuple[str, ...]
    undo: tuple[str, ...] = ()  # nothing: it goes with another step


def step(do: str, undo: str = "") -> Step:
    return Step(tuple(do.split()), tuple(undo.split()))


def sysctl_path(device: str, key: str) -> str:
    return f"net/ipv4/conf/{device}/{key}"


def sysctl(path: str) -> int:
    return int(Path("/proc/sys", path).read_text())


def plan(lanes: Sequence[Lane], machine: dict[str, Uplink], accept: bool) -> list[Step]:
    """All steps of a run. A packet finds its way last of all, when everything else is there."""
    steps = [found for lane in lanes for found in _veth(lane, machine.get(lane.device))]
    steps += _packet_filter(lanes, accept)
    for lane in lanes:
        steps += _table(lane, machine.get(lane.device))
    for lane in lanes:
        steps += uplink_sysctls(lane.device)
    for lane in lanes:
        steps += _rules(lane)
    return steps


def _veth(lane: Lane, uplink: Uplink | None) -> list[Step]:
    mtu = uplink.mtu if uplink else 1500
    outer = lane.outer
    return [
        step(f"ip link add {outer} mtu {mtu} type veth "
             f"peer name {lane.name} mtu {mtu} netns {WORLD}", f"ip link delete {outer}"),
        step(f"ip link set {outer} addrgenmode none up"),
        step(f"ip address add {lane.near}/32 dev {outer}"),
        step(f"sysctl -qw {sysctl_path(outer, 'forwarding')}=1"),
        step(f"sysctl -qw {sysctl_path(outer, 'rp_filter')}=2"),
    ]


def _table(lane: Lane, uplink: Uplink | None) -> list[Step]:
    # Without the first route, a lane without an uplink would take the machine's own default.
    standing = [("unreachable", "default", "metric", "1000"), (lane.far, "dev", lane.outer)]
    steps = [set_route(lane, route) for route in [*standing, *routes(uplink)]]
    return [Step(steps[0].do, ("ip", "route", "flush", "table", lane.table)), *steps[1:]]


def set_route(lane: Lane, route: Sequence[str]) -> Step:
    return Step(("ip", "route", "replace", *route, "table", lane.table))


def routes(uplink: Uplink | None) -> list[tuple[str, ...]]:
    """Those of a lane's table that follow the uplink: its neighbours, and its gateway."""
    if not uplink or not uplink.routed:
        return []
    device = uplink.device
    found = [(network, "dev", device, "scope", "link") for network in uplink.networks]
    if uplink.gateway:
        return [*found, ("default", "via", uplink.gateway, "dev", device, "onlink")]
    return [*found, ("default", "dev", device)]


def _rules(lane: Lane) -> list[Step]:
    return [step(f"ip rule add {selector} lookup {lane.table} priority {PRIORITY}",
                 f"ip rule delete {selector} lookup {lane.table} priority {PRIORITY}")
            for selector in (f"to {lane.far}", f"iif {lane.outer}")]


def _packet_filter(lanes: Sequence[Lane], accept: bool) -> list[Step]:
    """Masquerading, and a guard: a lane's traffic takes its uplink, under its own address.

    A packet that the daemon's rules missed for a moment comes by another lane than its
    connection; dropped, it is sent again on the right one.
    """
    table = " ".join(FILTER)
    steps = [
        step(f"nft add table {table}", f"nft delete table {table}"),
        step(f"nft add chain {table} nat {{ type nat hook postrouting priority srcnat ; }}"),
        step(f"nft add chain {table} guard {{ type filter hook forward priority filter ; }}"),
        step(f"nft add chain {CLOSED} {{ type filter hook forward priority filter ; }}"),
    ]
    for lane in lanes:
        outer, device = f'"{lane.outer}"', f'"{lane.device}"'
        rules = [f"nat ip saddr {lane.far} oifname {device} masquerade",
                 f"guard iifname {outer} ip saddr != {lane.far} drop",
                 f"guard iifname {outer} oifname != {device} drop",
                 f"guard oifname {outer} ct state != {{ established, related }} drop"]
        steps += [step(f"nft add rule {table} {rule}") for rule in rules]
    steps += [close(device) for device in closed(lanes)]
    return steps + (accepting() if accept else [])


def accepting() -> list[Step]:
    rules = [f"FORWARD {way} {OURS}+ {COMMENT} -j ACCEPT" for way in ("-i", "-o")]
    return [step(f"iptables -w -I {rule}", f"iptables -w -D {rule}") for rule in rules]


def missing(lanes: Sequence[Lane]) -> list[Step]:
    """What somebody took away: networkd the policy rules as it starts, "nft flush" all of ours."""
    steps = [] if _has_table() else _packet_filter(lanes, accept=False)
    present = {rule.get("iif") or rule.get("dst") for rule in ask("-4", "rule", "show")
               if rule["priority"] == PRIORITY}
    return steps + [each for lane in lanes for each in _rules(lane) if each.do[4] not in present]


def _has_table() -> bool:
    return subprocess.run(["nft", "list", "table", *FILTER], capture_output=True).returncode == 0


def closed(lanes: Iterable[Lane]) -> list[str]:
    """Uplinks that the machine itself forwards nothing from; one to come will be as the default."""
    def forwards(device: str) -> bool:
        with contextlib.suppress(FileNotFoundError):
            return sysctl(sysctl_path(device, "forwarding")) not in (0, FORWARDS)
        return device != "default" and forwards("default")

    return [lane.device for lane in lanes if not forwards(lane.device)]


def close(device: str) -> Step:
    return step(f'nft add rule {CLOSED} iifname "{device}" oifname != "{OURS}*" drop')


def uplink_sysctls(device: str) -> list[Step]:
    """What an uplink needs for answers to the world; nothing while it is not there."""
    wanted = {}
    try:
        if sysctl(sysctl_path(device, "forwarding")) == 0:
            wanted["forwarding"] = FORWARDS
        # A strict filter drops the answers on all uplinks but that of the default route.
        if max(sysctl(sysctl_path(each, "rp_filter")) for each in ("all", device)) == 1:
            wanted["rp_filter"] = 2
        return [step(f"sysctl -qw {path}={value}", f"sysctl -qw {path}={sysctl(path)}")
                for key, value in wanted.items() for path in [sysctl_path(device, key)]]
    except FileNotFoundError:
        return []


class Changes:
    """The steps that have been done, and their undoing in reverse."""

    def __init__(self, verbose: bool = False):
        self._verbose = verbose
        self._done: list[Step] = []

    def apply(self, steps: Iterable[Step], world: str = "") -> None:
        for each in steps:
            if each.do[0] == "sysctl" and each.undo:
                _remember(each.undo[-1])
            self.run(each.do, world)
            self._done.append(each)

    def run(self, words: Sequence[str], world: str = "") -> None:
        if self._verbose:
            with contextlib.suppress(OSError):  # a terminal that was closed
                print("+", shlex.join(words), file=sys.stderr)
        words = [world if word == WORLD else word for word in words]
        result = subprocess.run(words, text=True, stderr=subprocess.PIPE)
        if result.returncode != 0:
            raise Failure(f"{shlex.join(words)}: {result.stderr.strip()}")

    def undo(self) -> None:
        """A device that is gone took its settings with it; what is not goes by its name."""
        while self._done:
            each = self._done.pop()
            if each.undo and not (each.undo[0] == "sysctl" and _obsolete(each.undo[-1])):
                with contextlib.suppress(Failure):
                    self.run(each.undo)
        self.clean()

    def clean(self) -> bool:
        """Takes away whatever is there by our names; whether there was something.

        What fails keeps nothing else from being done, and old values until they are set.
        """
        commands, problems = leftovers(), []
        for words in commands:
            try:
                self.run(words)
            except Failure as failure:
                problems.append(str(failure))
        if problems:
            raise Failure("; ".join(problems))
        OLD_SYSCTLS.unlink(missing_ok=True)
        return bool(commands)


def _remember(setting: str) -> None:
    """The first value that a sysctl had is the one to go back to."""
    path = setting.split("=")[0]
    old = OLD_SYSCTLS.read_text() if OLD_SYSCTLS.exists() else ""
    if not any(line.startswith(f"{path}=") for line in old.splitlines()):
        new = OLD_SYSCTLS.with_suffix(".new")
        new.write_text(f"{old}{setting}\n")
        new.rename(OLD_SYSCTLS)


def _obsolete(setting: str) -> bool:
    """It is set, the device is gone, or somebody else has switched its forwarding meanwhile."""
    path, value = setting.split("=")
    try:
        now = sysctl(path)
    except FileNotFoundError:
        return True
    return now == int(value) or (path.endswith("/forwarding") and now != FORWARDS)


def leftovers() -> list[tuple[str, ...]]:
    """Commands that take away what a killed run left; none when it left nothing."""
    found: list[tuple[str, ...]] = []
    if OLD_SYSCTLS.exists():
        found += [("sysctl", "-qw", line) for line in OLD_SYSCTLS.read_text().splitlines()
                  if not _obsolete(line)]
    for rule in ask("-4", "rule", "show"):
        names = f"{rule.get('iif', '')} {rule.get('dst', '')}"
        if rule["priority"] == PRIORITY and re.search(rf"{OURS}|198\.1[89]\.", names):
            selector = ("iif", rule["iif"]) if "iif" in rule else ("to", rule["dst"])
            found.append(("ip", "rule", "delete", *selector, "lookup", rule["table"],
                          "priority", str(PRIORITY)))
    tables = {str(TABLE + number) for number in range(len(NAMES))}
    used = {str(route.get("table")) for route in ask("-4", "route", "show", "table", "all")}
    found += [("ip", "route", "flush", "table", table) for table in sorted(tables & used)]
    if _has_table():
        found.append(("nft", "delete", "table", *FILTER))
    forward = subprocess.run(["iptables", "-w", "-S", "FORWARD"], capture_output=True, text=True)
    found += [("iptables", "-w", "-D", *shlex.split(line)[1:])
              for line in forward.stdout.splitlines() if COMMENT in line]
    found += [("ip", "link", "delete", entry["ifname"]) for entry in ask("link", "show")
              if entry["ifname"].startswith(OURS)]
    return found
