# SPDX-License-Identifier: Apache-2.0
"""What a front end puts around the phone: its links, and what lies behind them."""

from collections.abc import Sequence
from dataclasses import dataclass


@dataclass(frozen=True)
class Link:
    """A link of the phone, as the world sets up its device."""

    name: str  # of the device, and of its routing table
    table: int  # the number of that one
    address: str  # with 24 bits of network
    gateway: str
    address6: str = ""  # with 64 bits of network; empty: no IPv6 on this link
    gateway6: str = ""


class Surroundings:
    """What one front end builds. It derives from this class and makes an object outside, where
    it may open what it needs of the machine, such as its network namespace. `connect` and
    `furnish` run inside, as root, in the world's first process: paths are the phone's there.
    """

    links: Sequence[Link] = ()  # the first is the default
    devices: Sequence[str] = ()  # of /dev, beside those that every phone has
    voip_peer: str = ""  # "A.B.C.D:PORT": whom a call is with, until the module is told another

    def problem(self) -> str:
        """What keeps this from being built, in a sentence; empty when nothing does."""
        return ""

    def connect(self) -> None:
        """Makes a device for each link; the world gives it its addresses, routes and table."""

    def furnish(self) -> None:
        """Builds what else there is, once the phone's side of the links is up."""
