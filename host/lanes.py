# SPDX-License-Identifier: Apache-2.0
"""Lanes: which of the daemon's links leads to which uplink of the machine."""

import ipaddress
from collections.abc import Iterable, Sequence
from dataclasses import dataclass

from host import Refusal
from host.uplinks import MODEM, OURS, VIRTUAL, Uplink, ask
from world.surroundings import Link

NAMES = ("wlan0", "wlan1", "rmnet_data0")
PRIORITY = TABLE = 5210  # of our policy rules, and of the first lane's routing table
# Reserved for measurements between networks: the first of which the machine uses nothing.
RANGES = ("198.18", "198.19")


@dataclass(frozen=True)
class Lane:
    """A veth pair whose outer end the machine forwards to one uplink."""

    name: str  # in the world
    device: str  # the uplink
    metered: bool = False
    range: str = RANGES[0]

    @property
    def number(self) -> int:
        return NAMES.index(self.name)

    @property
    def outer(self) -> str:
        return f"{OURS}{self.number}"

    @property
    def table(self) -> str:
        return str(TABLE + self.number)

    @property
    def near(self) -> str:
        """The machine's address."""
        return f"{self.range}.{self.number}.1"

    @property
    def far(self) -> str:
        """The world's."""
        return f"{self.range}.{self.number}.2"

    def link(self) -> Link:
        return Link(self.name, 1001 + self.number, self.far, self.near)

    def __str__(self) -> str:
        return f"{self.name} over {self.device}{' (metered)' if self.metered else ''}"


def parse(text: str) -> Lane:
    """NAME=DEVICE or NAME=DEVICE,metered."""
    name, equals, rest = text.partition("=")
    device, comma, flag = rest.partition(",")
    if not (name and equals and device) or (comma and flag != "metered"):
        raise Refusal(f'--link "{text}": not NAME=DEVICE or NAME=DEVICE,metered')
    return Lane(name, device, metered=bool(comma))


def check(lanes: Sequence[Lane]) -> None:
    """Refuses what can never be, whatever the machine has."""
    for lane in lanes:
        if lane.name not in NAMES:
            raise Refusal(f'link "{lane.name}": not one of {", ".join(NAMES)}')
        if lane.metered and lane.name != "rmnet_data0":
            raise Refusal(f"{lane.name}: only rmnet_data0 can be metered; make {lane.device} that")
    for given, what in (([lane.name for lane in lanes], "link"),
                        ([lane.device for lane in lanes], "device")):
        for word in given:
            if given.count(word) > 1:
                raise Refusal(f"{what} {word} is given twice")


def choose(machine: dict[str, Uplink], modems: Iterable[str]) -> tuple[list[Lane], dict[str, str]]:
    """Lanes for what has a default route, by metric; for each device left out, why."""
    lanes: dict[str, Lane] = {}
    left_out = {}
    for uplink in sorted(machine.values(), key=lambda uplink: (not uplink.routed, uplink.metric)):
        modem = uplink.kind == MODEM or uplink.device in modems
        names = NAMES[2:] if modem else NAMES[:2]
        free = [name for name in names if name not in lanes]
        if not uplink.routed:
            left_out[uplink.device] = "no default route"
        elif uplink.kind == VIRTUAL and not modem:
            left_out[uplink.device] = "a tunnel, bridge or other virtual device; --link takes it"
        elif not free:
            left_out[uplink.device] = f"{' and '.join(names)} taken"
        else:
            lanes[free[0]] = Lane(free[0], uplink.device)
    return [lanes[name] for name in NAMES if name in lanes], left_out


def listing(machine: dict[str, Uplink], modems: Iterable[str]) -> str:
    """What would be taken and why, a line each."""
    lanes, left_out = choose(machine, modems)
    rows = [(lane.name, lane.device, machine[lane.device].kind, machine[lane.device].way())
            for lane in lanes]
    rows += [("-", device, machine[device].kind, f"left out: {why}")
             for device, why in left_out.items()]
    widths = [max(len(row[i]) for row in rows) for i in range(3)] if rows else []
    lines = ["  ".join([*(cell.ljust(width) for cell, width in zip(row, widths)), row[3]])
             for row in rows]
    return "\n".join(lines) or "no device but loopback"


def free_range() -> str:
    """The first range that no route of the machine touches, but for what a killed run left."""
    routes = [route["dst"] for route in ask("-4", "route", "show", "table", "all")
              if not route.get("dev", "").startswith(OURS)]
    networks = [ipaddress.ip_network(destination, strict=False) for destination in routes
                if destination != "default"]
    # A VPN's default comes as two halves.
    used = [network for network in networks if network.prefixlen >= 8]
    for candidate in RANGES:
        network = ipaddress.ip_network(f"{candidate}.0.0/16")
        if not any(network.overlaps(other) for other in used):
            return candidate
    raise Refusal(f"the machine uses {' and '.join(f'{r}.0.0/16' for r in RANGES)}, which we need")
