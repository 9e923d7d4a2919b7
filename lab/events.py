# SPDX-License-Identifier: Apache-2.0
"""What happened to a game: as the daemon logs it, and as its server and its player see it."""

import re
import statistics
from dataclasses import dataclass, field
from datetime import datetime

from lab.client import Packet

STAMP = re.compile(r"\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}")
PROBED = re.compile(r"TCPing cacla rtt is (\d+),device is (\S+)")
MISSED = re.compile(r"Ping (?:Miss|FAIL) for RTT interface \((\S+)\)")
LEVEL = re.compile(r"cacl Interface Level interface \((\S+)\) \(network level = (\d+)\)")
SWITCH = re.compile(r"SLA_RTT_SELECTED perform switch (\S+)")
BEST = re.compile(r"\(best Interface (\S+)\) \(networklevel")
REFUSED = "SLA_LINK in cycle, switch not allowed"
GONE = re.compile(r"m_slsInterfaceMap del (\S+)")
DESTROYED = re.compile(r"Destroyed (\d+) sockets for UID")


@dataclass
class Events:
    """What happened, times in s from the beginning."""

    rtt: dict[str, list[tuple[float, float]]] = field(default_factory=dict)  # link: ms, as probed
    misses: dict[str, list[float]] = field(default_factory=dict)  # link: failed probes
    levels: dict[str, list[tuple[float, int]]] = field(default_factory=dict)
    gone: dict[str, list[float]] = field(default_factory=dict)  # link: when it left the choice
    chosen: list[tuple[float, str]] = field(default_factory=list)  # the first choice included
    refused: list[tuple[float, str]] = field(default_factory=list)  # better, not yet allowed
    killed: list[tuple[float, int]] = field(default_factory=list)
    probed: list[tuple[float, str]] = field(default_factory=list)  # server, as seen there
    packets: dict[str, list[Packet]] = field(default_factory=dict)  # of "game" and "call"
    left: list[str] = field(default_factory=list)  # what is still there after the end

    @property
    def switches(self) -> list[tuple[float, str]]:
        """Choices of another link than the one before; the first is none."""
        return [now for before, now in zip(self.chosen, self.chosen[1:]) if before[1] != now[1]]

    def times(self, who: str, since: float = 0, until: float = 1e9) -> list[float]:
        """Answer times of what was sent then, in ms; a loss counts as all its patience."""
        return [p.rtt for p in self.packets.get(who, []) if since <= p.sent < until]


class Observer:
    """Reads the daemon's log into events, as far as it has come."""

    def __init__(self, log: list[str], begin: float):
        self.events = Events()
        self._log = log
        self._begin = begin
        self._year = datetime.fromtimestamp(begin).year
        self._next = 0
        self._best = ""

    def time(self, line: str) -> float:
        """When a line was written, in s from the beginning."""
        stamp = datetime.strptime(f"{self._year}-{line[:18]}", "%Y-%m-%d %H:%M:%S.%f")
        return stamp.timestamp() - self._begin

    def catch_up(self) -> Events:
        events = self.events
        while self._next < len(self._log):
            line = self._log[self._next]
            self._next += 1
            if not STAMP.match(line):
                continue
            if match := PROBED.search(line):
                events.rtt.setdefault(match[2], []).append((self.time(line), float(match[1])))
            elif match := MISSED.search(line):
                events.misses.setdefault(match[1], []).append(self.time(line))
            elif match := LEVEL.search(line):
                levels = events.levels.setdefault(match[1], [])
                levels.append((self.time(line), int(match[2])))
            elif match := SWITCH.search(line):
                events.chosen.append((self.time(line), match[1]))
            elif match := BEST.search(line):
                self._best = match[1]
            elif REFUSED in line and events.chosen and events.chosen[-1][1] != self._best:
                events.refused.append((self.time(line), self._best))
            elif match := GONE.search(line):
                events.gone.setdefault(match[1], []).append(self.time(line))
            elif match := DESTROYED.search(line):
                events.killed.append((self.time(line), int(match[1])))
        return events


def median(values: list[float]) -> float:
    return statistics.median(values) if values else float("nan")


def p95(values: list[float]) -> float:
    return statistics.quantiles(values, n=20)[-1] if len(values) > 1 else float("nan")
