# SPDX-License-Identifier: Apache-2.0
"""Pictures of what happened over time, one below the other, and the links that took part."""

import math
from collections.abc import Iterable, Sequence
from typing import Any

from report import plot

WIDTH = 860


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


def runs(points: Sequence[tuple[float, str]], gap: float, end: float) -> list[list[Any]]:
    """[from, to, name] for each stretch of the same name."""
    found: list[list[Any]] = []
    for when, name in points:
        if found and when - found[-1][1] <= gap:
            found[-1][1] = when  # up to the next, whatever it is
            if found[-1][2] == name:
                continue
        found.append([when, when, name])
    if found and math.isinf(gap):
        found[-1][1] = end
    return found


def bands(title: str, rows: Sequence[tuple[str, list[list[Any]]]], scale: plot.Plot,
          styles: dict[str, str] | None = None) -> tuple[list[str], int]:
    """Rows of a label and runs, in the styles of their names, or those given to them; and the
    height of that."""
    parts = [plot.text(plot.LEFT, 22, title, size=15, extra='font-weight="600"')]
    for row, (label, stretches) in enumerate(rows):
        y = 34 + 28 * row
        parts.append(plot.text(plot.LEFT - 6, y + 15, label, "end", 10,
                               plot.GREY))
        for start, until, name in stretches:
            left, width = scale.x(start), scale.x(until) - scale.x(start)
            style = (styles or {}).get(name, name if name in plot.STYLES else "other")
            parts.append(plot.filled(f'<rect x="{left:.1f}" y="{y}" width="{max(width, 1):.1f}" '
                                     'height="22"', style))
            if width > 8 * len(name):
                parts.append(plot.text(left + width / 2, y + 15, name, "middle", 12, plot.INK,
                                       'paint-order="stroke" stroke="#fff" stroke-width="4"'))
    return parts, 34 + 28 * len(rows) + 20


def stacked(panels: Sequence[tuple[list[str], int]]) -> list[str]:
    """Pictures one below the other, from their parts and heights."""
    parts, top = [], 0
    for body, size in panels:
        parts += [f'<g transform="translate(0 {top})">', *body, "</g>"]
        top += size
    return parts
