# SPDX-License-Identifier: Apache-2.0
"""The phone's network: addresses, routes and tables of its links."""

from collections.abc import Iterable, Sequence

from world import programs
from world.surroundings import Link


def set_up(links: Iterable[Link]) -> None:
    accept_detours()
    lines = ["link set lo up"]
    for number, link in enumerate(links):
        lines += [*bring_up(link.name), f"addr add {link.address}/24 dev {link.name}",
                  f"-4 rule add oif {link.name} lookup {link.name} pref 17000"]
        if link.address6:
            lines += [f"addr add {link.address6}/64 dev {link.name} nodad",
                      f"-6 rule add oif {link.name} lookup {link.name} pref 17000"]
        # The first link is the default; the others are reached by a table or a bound socket.
        for table in [link.name] + (["main"] if number == 0 else []):
            lines.append(f"route add 0.0.0.0/0 via {link.gateway} dev {link.name} table {table}")
            if link.address6:
                lines.append(f"route add ::/0 via {link.gateway6} dev {link.name} table {table}")
    batch(lines)


def accept_detours(prefix: Sequence[str] = ()) -> None:
    """Packets may come in on another link than the one that leads to their source."""
    programs.run(*prefix, "sh", "-c",
                 "for f in /proc/sys/net/ipv4/conf/*/rp_filter; do echo 0 >$f; done")


def bring_up(device: str) -> list[str]:
    # No link-local address: its router and multicast traffic would be counted as load.
    return [f"link set {device} addrgenmode none", f"link set {device} up txqueuelen 2000"]


def batch(lines: Sequence[str], prefix: Sequence[str] = ()) -> None:
    """Runs command lines of `ip`, each for both families or after "-4" or "-6" for one.

    `prefix` is a command that leads to another network namespace.
    """
    for family in ("-4", "-6"):
        own = [line.removeprefix(family).strip() for line in lines if line.startswith(family)]
        if own:
            programs.run(*prefix, "ip", family, "-batch", "-", text="\n".join(own))
    both = [line for line in lines if not line.startswith("-")]
    programs.run(*prefix, "ip", "-batch", "-", text="\n".join(both))
