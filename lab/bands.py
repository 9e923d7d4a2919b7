# SPDX-License-Identifier: Apache-2.0
"""The links of a game over time: which one was chosen, and which ones the packets came over."""

import math

from lab.events import Events
from report import plot
from report.timeline import bands, runs

SAME_S = 0.5  # answers that are further apart leave a gap in a band


def link_bands(events: Events, scale: plot.Plot, end: float) -> tuple[list[str], int]:
    """A row for each, and the height of that."""
    chosen = [(max(when, 0), link) for when, link in events.chosen]
    seen = [("chosen", runs(chosen, math.inf, end))]
    for who, packets in events.packets.items():
        for protocol in sorted({packet.protocol for packet in packets}):
            arrivals = sorted((p.answered, p.link) for p in packets
                              if p.protocol == protocol and not p.lost and p.answered < end)
            seen.append((f"{who} {protocol}", runs(arrivals, SAME_S, end)))
    return bands("Link: chosen, and as the servers saw the packets", seen, scale)
