# SPDX-License-Identifier: Apache-2.0
"""What a download in finite parts can reach when each part's link is drawn by chance.

The parts are dealt in the true ratio of the links' rates, so many at a time. Each is a connection,
which moves nothing for the two round trips until its first byte; then it has an even part of its
link. Nothing that draws links does better for long, whatever it knows.
"""

import heapq
import math
import random
import statistics
from collections.abc import Sequence
from typing import NamedTuple

PAYLOAD = 0.965  # of a link's rate: the rest is headers
SILENT_ROUND_TRIPS = 2  # the handshake, and the request
REPETITIONS = 201


class Link(NamedTuple):
    rate: float  # Mbit/s
    delay: float  # ms each way


class Line:
    """A link and the parts on it, one unit each, which have even parts of its rate."""

    def __init__(self, rate: float, silence: float):
        self.rate, self.silence = rate, silence  # units a second; seconds
        self.served = 0.0  # what a part that was here all the time has had
        self.silent: list[float] = []  # when parts begin to move
        self.ends: list[float] = []  # where `served` will be when a part is through

    def next_event(self, now: float) -> float:
        """When a part begins to move, or is through."""
        begin = self.silent[0] if self.silent else math.inf
        if not self.ends:
            return begin
        return min(begin, now + (self.ends[0] - self.served) * len(self.ends) / self.rate)

    def advance(self, now: float, then: float) -> int:
        """How many parts are through by the time of the next event of any line."""
        if self.ends:
            self.served += (then - now) * self.rate / len(self.ends)
        through = 0
        while self.ends and self.ends[0] <= self.served + 1e-9:
            heapq.heappop(self.ends)
            through += 1
        while self.silent and self.silent[0] <= then:
            heapq.heappop(self.silent)
            heapq.heappush(self.ends, self.served + 1)
        return through


def deal(links: Sequence[Link], parts: int, part_mbit: float, parallel: int,
         chance: random.Random) -> float:
    """How many seconds it takes."""
    lines = [Line(link.rate * PAYLOAD / part_mbit, SILENT_ROUND_TRIPS * 2e-3 * link.delay)
             for link in links]
    odds = [link.rate for link in links]
    now, free, dealt = 0.0, parallel, 0
    while True:
        for line in chance.choices(lines, odds, k=min(free, parts - dealt)):
            heapq.heappush(line.silent, now + line.silence)
            dealt += 1
        then = min(line.next_event(now) for line in lines)
        if then == math.inf:
            return now
        free = sum(line.advance(now, then) for line in lines)
        now = then


def reachable(links: Sequence[Link], parts: int, part_bytes: float, parallel: int) -> float:
    """The median rate of the download, Mbit/s."""
    chance = random.Random(parallel)  # the same in each run
    part_mbit = part_bytes * 8e-6
    seconds = statistics.median(deal(links, parts, part_mbit, parallel, chance)
                                for _ in range(REPETITIONS))
    return parts * part_mbit / seconds
