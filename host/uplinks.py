# SPDX-License-Identifier: Apache-2.0
"""What the machine has: its devices, and which of them lead to the internet."""

import ipaddress
import json
import re
import subprocess
from collections.abc import Iterator
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any

SYSFS = Path("/sys/class/net")
OURS = "lnkdh-"
WIFI, CABLE, MODEM, VIRTUAL = "Wi-Fi", "cable", "modem", "virtual"
PHONE_DRIVERS = {"rndis_host", "ipheth"}  # of phones that share their connection over USB
# What udev calls hardware; other names count when there is hardware behind them.
HARDWARE = re.compile(r"(en|eth|wl|ww|usb)[a-z0-9]*$")


@dataclass(frozen=True)
class Uplink:
    """A device, and its default route if it has one that works."""

    device: str
    kind: str
    mtu: int
    routed: bool = False
    gateway: str = ""  # none: a point-to-point device
    metric: int = 0
    networks: tuple[str, ...] = ()  # what is reached without the gateway

    def reaches(self, address: str) -> bool:
        """Whether that one is a neighbour."""
        return any(ipaddress.ip_address(address) in ipaddress.ip_network(network)
                   for network in self.networks)

    def way(self) -> str:
        if not self.routed:
            return "no default route"
        way = f"via {self.gateway}" if self.gateway else "point to point"
        return f"{way}, metric {self.metric}"


def ask(*words: str) -> Any:
    """What `ip` says, as JSON; nothing when there is nothing."""
    return json.loads(subprocess.check_output(["ip", "-j", *words], text=True) or "[]")


def look() -> dict[str, Uplink]:
    """All devices but loopback and our own."""
    found = {}
    for entry in ask("-d", "link", "show"):
        device = entry["ifname"]
        if "LOOPBACK" not in entry["flags"] and not device.startswith(OURS):
            found[device] = Uplink(device, _kind(device, entry), entry["mtu"])
    return _with_routes(found)


def _with_routes(devices: dict[str, Uplink]) -> dict[str, Uplink]:
    """The same devices with the routes that they have now."""
    found = {name: replace(uplink, routed=False, gateway="", metric=0, networks=())
             for name, uplink in devices.items()}
    for route in _next_hops(ask("-4", "route", "show")):
        uplink = found.get(route.get("dev", ""))
        if not uplink or {"dead", "linkdown"} & set(route["flags"]):
            continue
        if route["dst"] == "default":
            metric = route.get("metric", 0)
            if not uplink.routed or metric < uplink.metric:
                found[uplink.device] = replace(uplink, routed=True, metric=metric,
                                               gateway=route.get("gateway", ""))
        elif route.get("scope") == "link":
            networks = (*uplink.networks, route["dst"])
            found[uplink.device] = replace(uplink, networks=networks)
    return found


def _next_hops(routes: list[dict[str, Any]]) -> Iterator[dict[str, Any]]:
    for route in routes:
        for hop in route.get("nexthops", [route]):
            if "via" not in hop:  # an IPv4 route by way of an IPv6 neighbour
                yield {**route, **hop}


def _kind(device: str, entry: dict[str, Any]) -> str:
    folder = SYSFS / device
    virtual = entry.get("linkinfo", {}).get("info_kind", "")
    hardware = (folder / "device").exists() or (HARDWARE.match(device) and virtual != "veth")
    if not hardware:
        return VIRTUAL
    try:
        events = (folder / "uevent").read_text()
    except OSError:
        events = ""
    if "DEVTYPE=wwan" in events or _driver(folder) in PHONE_DRIVERS or device.startswith("ww"):
        return MODEM
    radio = (folder / "wireless").exists() or (folder / "phy80211").exists()
    return WIFI if radio or device.startswith("wl") else CABLE


def _driver(folder: Path) -> str:
    return (folder / "device/driver").resolve().name
