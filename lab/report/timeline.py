# SPDX-License-Identifier: Apache-2.0
"""Pictures of what happened over time, one below the other, and the links that took part."""

import math
from collections.abc import Iterable, Sequence
from typing import Any

from lab.events import Events
from lab.report import plot

WIDTH = 860
SAME_S = 0.5  # answers that are further apart leave a gap in a band


class Timeline(plot.Plot):
    """A plot that can also hold many points, labels in rows, and bands with words."""

    def line(self, points: plot.Points, style: str, label: str) -> None:
        """As ever; a further piece of a line has no label."""
        super().line(points, style, label)
        if not label:
            self._legend.pop()

    def dots(self, points: Iterable[tuple[float, float]], style: str, size: float) -> None:
        path = "".join(f"M{self.x(x):.1f} {self.y(y):.1f}h0" for x, y in points)
        self._parts.append(f'<path d="{path}" stroke="{plot.STYLES[style].colour}" '
                           f'stroke-width="{size}" stroke-linecap="round" fill="none"/>')

    def dotted(self, points: Sequence[tuple[float, float]], style: str) -> None:
        self.dots(points, style, 3)
        self._legend.append((style, style, True))

    def along_top(self, times: Iterable[float], label: str) -> None:
        path = "".join(f"M{self.x(x):.1f} {plot.TOP - 6}v8" for x in times)
        self._parts.append(f'<path d="{path}" stroke="{plot.INK}" stroke-width="1"/>')
        self._parts.append(plot.text(self._right, 42, f"| {label}", "end", 11))

    def note(self, time: float, words: str, row: int) -> None:
        self._parts.append(self._rule(time, self._y_begin, time, self._y_end, plot.INK, "4 2"))
        late = time > 0.8 * self._x_end
        self._parts.append(plot.text(
            self.x(time) + (-5 if late else 5), plot.TOP + 18 + 15 * row, words,
            "end" if late else "start", 12, plot.INK,
            'paint-order="stroke" stroke="#fff" stroke-width="4"'))


def steps(levels: Sequence[tuple[float, float]], end: float) -> list[tuple[float, float]]:
    """A line through values that hold until the next one."""
    points: list[tuple[float, float]] = []
    for (when, level), (until, _) in zip(levels, [*levels[1:], (end, 0)]):
        points += [(max(when, 0), level), (until, level)]
    return points


def _runs(points: Sequence[tuple[float, str]], gap: float, end: float) -> list[list[Any]]:
    """[from, to, name] for each stretch of the same name."""
    runs: list[list[Any]] = []
    for when, name in points:
        if runs and when - runs[-1][1] <= gap:
            runs[-1][1] = when  # up to the next, whatever it is
            if runs[-1][2] == name:
                continue
        runs.append([when, when, name])
    if runs and math.isinf(gap):
        runs[-1][1] = end
    return runs


def link_bands(events: Events, scale: plot.Plot, end: float) -> tuple[list[str], int]:
    """Which link was chosen, and which ones the packets came over; and the height of that."""
    chosen = [(max(when, 0), link) for when, link in events.chosen]
    seen = [("chosen", _runs(chosen, math.inf, end))]
    for who, packets in events.packets.items():
        for protocol in sorted({packet.protocol for packet in packets}):
            arrivals = sorted((p.answered, p.link) for p in packets
                              if p.protocol == protocol and not p.lost and p.answered < end)
            seen.append((f"{who} {protocol}", _runs(arrivals, SAME_S, end)))
    parts = [plot.text(plot.LEFT, 22, "Link: chosen, and as the servers saw the packets", size=15,
                       extra='font-weight="600"')]
    for row, (label, runs) in enumerate(seen):
        y = 34 + 28 * row
        parts.append(plot.text(plot.LEFT - 6, y + 15, label, "end", 10,
                               plot.GREY))
        for start, until, name in runs:
            left, width = scale.x(start), scale.x(until) - scale.x(start)
            style = name if name in plot.STYLES else "other"
            parts.append(plot.filled(f'<rect x="{left:.1f}" y="{y}" width="{max(width, 1):.1f}" '
                                     'height="22"', style))
            if width > 8 * len(name):
                parts.append(plot.text(left + width / 2, y + 15, name, "middle", 12, plot.INK,
                                       'paint-order="stroke" stroke="#fff" stroke-width="4"'))
    return parts, 34 + 28 * len(seen) + 20


def stacked(panels: Sequence[tuple[list[str], int]]) -> list[str]:
    """Pictures one below the other, from their parts and heights."""
    parts, top = [], 0
    for body, size in panels:
        parts += [f'<g transform="translate(0 {top})">', *body, "</g>"]
        top += size
    return parts
