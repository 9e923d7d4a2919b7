# SPDX-License-Identifier: Apache-2.0
"""What was measured, and the figures that are made of it."""

import statistics
from collections.abc import Sequence
from typing import Any, NamedTuple


class Measured(NamedTuple):
    """One measurement."""

    kind: str  # download, game
    way: str
    what: str  # the load and the change, or the case
    figures: dict[str, Any]  # or {"failed": why}


class Spread(NamedTuple):
    """The middle of some figures, and how far they lie apart; none is worse than all."""

    median: float
    least: float
    most: float
    count: int
    missing: int  # that failed, or never came

    def text(self, digits: int) -> str:
        if not self.count:
            return "never"
        words = f"{self.median:.{digits}f}"
        ends = f"{self.least:.{digits}f}–{self.most:.{digits}f}"
        if ends != f"{words}–{words}":
            words += f" ({ends})"
        return words + (f", {self.missing} never" if self.missing else "")


def spread(figures: Sequence[float | None]) -> Spread:
    known = [figure for figure in figures if figure is not None]
    missing = len(figures) - len(known)
    if not known:
        return Spread(float("nan"), float("nan"), float("nan"), 0, missing)
    return Spread(statistics.median(known), min(known), max(known), len(known), missing)


def percentile(values: Sequence[float], part: float) -> float:
    """The value that this part of them, of 1, does not exceed."""
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(part * len(ordered)))] if ordered else float("nan")


class Figures:
    """Everything measured, by kind, way and what."""

    def __init__(self, measured: Sequence[Measured]):
        self._all = measured

    def of(self, kind: str, way: str, what: str) -> list[dict[str, Any]]:
        return [one.figures for one in self._all
                if (one.kind, one.way, one.what) == (kind, way, what)]

    def whats(self, kind: str) -> list[str]:
        """What was measured, in the order of its first time."""
        return list(dict.fromkeys(one.what for one in self._all if one.kind == kind))

    def ways(self, kind: str) -> list[str]:
        return list(dict.fromkeys(one.way for one in self._all if one.kind == kind))

    def download(self, way: str, what: str, key: str) -> Spread:
        return spread([one.get(key) for one in self.of("download", way, what)])

    def game(self, way: str, case: str, protocol: str, key: str) -> Spread:
        """`key` is a figure of the socket's, or "p50" and the like of its round-trip times."""
        found: list[float | None] = []
        for one in self.of("game", way, case):
            own = one.get(protocol)
            if own and key.startswith("p"):
                found.append(percentile(own["rtt"], int(key[1:]) / 100))
            else:
                found.append(own[key] if own else None)
        return spread(found)

    def failures(self) -> list[str]:
        return [f"{one.way}, {one.what}: {one.figures['failed']}" for one in self._all
                if "failed" in one.figures]
