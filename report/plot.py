# SPDX-License-Identifier: Apache-2.0
"""Pictures as plain SVG text: curves, stacked areas, bands and marks over time, and bars.

Each style is told apart without its colour as well: by its dashes, its hatching, its darkness.
"""

import math
from collections.abc import Sequence
from html import escape
from typing import NamedTuple

Points = Sequence[tuple[float, float]]


class Style(NamedTuple):
    colour: str
    dash: str = ""  # of lines, as in stroke-dasharray
    hatch: str = ""  # of areas: path in an 8 by 8 tile, drawn in white


STYLES = {
    "wlan0": Style("#1f4e86"),
    "wlan1": Style("#e08e0b", "7 3", "M-2 2l4-4M0 8l8-8M6 10l4-4"),
    "rmnet_data0": Style("#5fb3a1", "2 3", "M0 4h8"),
    "plain": Style("#8b929c", "9 4"),
    "other": Style("#c3c8cf", "4 4", "M4 0v8"),
}
INK, GREY, GRID = "#22272e", "#626a75", "#e4e7eb"
TOP, RIGHT, BOTTOM, LEFT = 64, 24, 46, 58  # margins around the plot, pixels


def text(x: float, y: float, words: str, anchor: str = "start", size: int = 12,
         colour: str = INK, extra: str = "") -> str:
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" '
            f'fill="{colour}" {extra}>{escape(words)}</text>')


def document(width: int, height: int, body: Sequence[str], title: str) -> str:
    """A whole picture, the hatchings of all styles included."""
    hatches = "".join(
        f'<pattern id="hatch-{name}" width="8" height="8" patternUnits="userSpaceOnUse">'
        f'<path d="{style.hatch}" stroke="#fff" stroke-width="1.4" fill="none"/></pattern>'
        for name, style in STYLES.items() if style.hatch)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'width="{width}" height="{height}" role="img" '
            'font-family="system-ui, -apple-system, Segoe UI, Liberation Sans, sans-serif">'
            f'<title>{escape(title)}</title><defs>{hatches}</defs>'
            f'<rect width="{width}" height="{height}" fill="#fff"/>' + "".join(body) + "</svg>\n")


def filled(shape: str, name: str) -> str:
    """A shape, an element less its "/>", in the colour and the hatching of a style."""
    parts = f'{shape} fill="{STYLES[name].colour}"/>'
    return parts + (f'{shape} fill="url(#hatch-{name})"/>' if STYLES[name].hatch else "")


def round_values(low: float, high: float, about: int) -> list[float]:
    """Round numbers from `low` to `high`."""
    rough = (high - low) / about
    power = 10 ** math.floor(math.log10(rough))
    step = next(power * factor for factor in (1, 2, 5, 10) if power * factor >= rough * 0.99)
    first = math.ceil(low / step)
    return [number * step for number in range(first, math.floor(high / step + 1e-9) + 1)]


class Plot:
    """One picture with a time axis; draw from the back to the front, then take body()."""

    def __init__(self, title: str, y_label: str, x_end: float, y_end: float,
                 x_label: str = "time, s", width: int = 760, height: int = 256,
                 y_begin: float = 0):
        self.title, self.width, self.height = title, width, height
        self._x_end, self._y_begin, self._y_end = x_end, y_begin, y_end
        self._right, self._bottom = width - RIGHT, height - BOTTOM
        self._legend: list[tuple[str, str, bool]] = []
        self._parts = [
            text(LEFT, 22, title, size=15, extra='font-weight="600"'),
            text((LEFT + self._right) / 2, height - 8, x_label, "middle", colour=GREY),
            text(0, 0, y_label, "middle", colour=GREY, extra='transform="translate'
                 f'(16 {(TOP + self._bottom) / 2:.0f}) rotate(-90)"'),
        ]
        for value in round_values(y_begin, y_end, 4):
            self._parts.append(self._rule(0, value, x_end, value, GRID))
            self._parts.append(text(LEFT - 8, self.y(value) + 4, f"{value:g}", "end", colour=GREY))
        for value in round_values(0, x_end, 10):
            self._parts.append(text(self.x(value), self._bottom + 18, f"{value:g}", "middle",
                                    colour=GREY))

    def x(self, value: float) -> float:
        return LEFT + value / self._x_end * (self._right - LEFT)

    def y(self, value: float) -> float:
        part = (min(value, self._y_end) - self._y_begin) / (self._y_end - self._y_begin)
        return self._bottom - part * (self._bottom - TOP)

    def _rule(self, x1: float, y1: float, x2: float, y2: float, colour: str,
              dash: str = "") -> str:
        return (f'<line x1="{self.x(x1):.1f}" y1="{self.y(y1):.1f}" x2="{self.x(x2):.1f}" '
                f'y2="{self.y(y2):.1f}" stroke="{colour}" stroke-dasharray="{dash}"/>')

    def _path(self, points: Points) -> str:
        return " ".join(f"{self.x(x):.1f},{self.y(y):.1f}" for x, y in points)

    def line(self, points: Points, style: str, label: str) -> None:
        self._parts.append(
            f'<polyline points="{self._path(points)}" fill="none" stroke-width="2" '
            f'stroke="{STYLES[style].colour}" stroke-dasharray="{STYLES[style].dash}"/>')
        self._legend.append((label, style, False))

    def stack(self, times: Sequence[float], layers: dict[str, Sequence[float]]) -> None:
        """Areas on top of each other, each named for its style, the first lowest."""
        floor = [0.0] * len(times)
        for name, values in layers.items():
            ceiling = [low + value for low, value in zip(floor, values)]
            outline = [*zip(times, ceiling), *reversed([*zip(times, floor)])]
            self._parts.append(filled(f'<polygon points="{self._path(outline)}" stroke="#fff" '
                                      'stroke-width="0.7"', name))
            self._legend.append((name, name, True))
            floor = ceiling

    def band(self, start: float, end: float, style: str) -> None:
        """A stretch of a state, along the top of the plot."""
        left = self.x(start)
        self._parts.append(filled(f'<rect x="{left:.1f}" y="{TOP - 9}" height="7" '
                                  f'width="{self.x(end) - left:.1f}"', style))

    def level(self, value: float, label: str) -> None:
        self._parts.append(self._rule(0, value, self._x_end, value, INK, "1 3"))
        self._parts.append(text(LEFT + 6, self.y(value) - 5, label, "start", 11))

    def mark(self, time: float, label: str) -> None:
        """A moment, with a word beside it."""
        self._parts.append(self._rule(time, self._y_begin, time, self._y_end, INK, "4 2"))
        late = time > 0.8 * self._x_end
        self._parts.append(text(self.x(time) + (-5 if late else 5), TOP + 12, label,
                                "end" if late else "start", 12, INK,
                                'paint-order="stroke" stroke="#fff" stroke-width="4"'))

    def ticks(self, times: Sequence[float], label: str) -> None:
        """Moments too many to name one by one: small triangles along the top."""
        for x in map(self.x, times):
            self._parts.append(f'<path d="M{x - 4:.1f} {TOP - 9}h8l-4 8z" fill="{INK}"/>')
        self._parts.append(text(self._right, TOP - 16, f"\u25bc {label}", "end", 11))

    def body(self) -> list[str]:
        axis = self._rule(0, self._y_begin, self._x_end, self._y_begin, GREY)
        return [*self._parts, axis, *self._legend_parts()]

    def _legend_parts(self) -> list[str]:
        parts, left = [], float(LEFT)
        for label, style, is_area in self._legend:
            if is_area:
                parts.append(filled(f'<rect x="{left:.1f}" y="32" width="22" height="11"', style))
            else:
                parts.append(f'<path d="M{left:.1f} 38h22" stroke="{STYLES[style].colour}" '
                             f'stroke-width="2" stroke-dasharray="{STYLES[style].dash}"/>')
            parts.append(text(left + 28, 42, label))
            left += 28 + 7 * len(label) + 22
        return parts

    def svg(self) -> str:
        return document(self.width, self.height, self.body(), self.title)


def bars(title: str, rows: Sequence[tuple[str, float, str, str]], end: float, width: int = 760,
         top: float = 0) -> list[str]:
    """Horizontal bars from (label, value, words behind the bar, style)."""
    left, room = 190, width - 190 - 170
    parts = [text(LEFT, top + 22, title, size=15, extra='font-weight="600"')]
    for number, (label, value, words, style) in enumerate(rows):
        y = top + 38 + 30 * number
        length = max(value / end, 0) * room
        parts.append(text(left - 10, y + 14, label, "end"))
        parts.append(filled(f'<rect x="{left}" y="{y}" width="{length:.1f}" height="20"', style))
        parts.append(text(left + length + 8, y + 14, words))
    return parts
