# SPDX-License-Identifier: Apache-2.0
"""Name servers that can be reached from the world: the machine's own addresses are not there."""

import ipaddress
import re
from pathlib import Path

# The first that names a server elsewhere; the others hold what a stub on this machine asks.
SOURCES = ("/etc/resolv.conf", "/run/systemd/resolve/resolv.conf",
           "/run/NetworkManager/no-stub-resolv.conf", "/run/NetworkManager/resolv.conf")
SERVER = re.compile(r"^nameserver\s+(\S+)")


def servers(text: str) -> list[str]:
    """The IPv4 name servers of a resolv.conf that are not this machine."""
    found = []
    for line in text.splitlines():
        match = SERVER.match(line)
        try:
            address = ipaddress.ip_address(match[1]) if match else None
        except ValueError:
            continue
        if address and address.version == 4 and not address.is_loopback:
            found.append(str(address))
    return found


def contents() -> str:
    """A resolv.conf for the world; empty when no server is known."""
    for source in SOURCES:
        try:
            text = Path(source).read_text()
        except OSError:
            continue
        if usable := servers(text):
            rest = [line for line in text.splitlines()
                    if not SERVER.match(line) and not line.startswith(("#", ";"))]
            return "\n".join([*rest, *(f"nameserver {server}" for server in usable)]) + "\n"
    return ""
