# SPDX-License-Identifier: Apache-2.0
"""What a person sees: a line every few seconds, and one screen at the end. To standard error."""

import re
import sys
import time
from dataclasses import dataclass
from pathlib import Path

from host.lanes import Lane
from host.session import Session
from host.uplinks import ask

SAMPLE_S, LINE_S = 1.0, 3.0
BUSY = 0.1  # Mbit/s from which on there is traffic worth the name
COUNTER = re.compile(r"^\[(\d+):\d+\] -A (?:zelk_fw_(\w+) -j MARK|"
                     r"zelk_nat_POSTROUTING_DVX -o (\w+) -j MASQUERADE)", re.MULTILINE)
SWITCH = re.compile(r"SLA_RTT_SELECTED perform switch (\S+)")
DESTROYED = re.compile(r"Destroyed (\d+) sockets for UID")


@dataclass
class Total:
    """A count that may begin anew: what it had then is kept."""

    sum: int = 0
    last: int = 0

    def take(self, value: int) -> int:
        """How much was added."""
        added = value - self.last if value >= self.last else value
        self.sum += added
        self.last = value
        return added


class Traffic:
    """One lane's."""

    def __init__(self, lane: Lane):
        self.lane = lane
        self.received, self.sent = Total(), Total()
        self.connections, self.spread = Total(), Total()
        self.rate = self.peak = 0.0  # Mbit/s, both ways


class Game:
    """What the daemon's log says about it, as far as it has come."""

    def __init__(self, log: Path):
        self._log = log.open(errors="replace")
        self._rest = ""
        self._switches = self._destroyed = 0
        self._on = ""

    def read(self) -> None:
        *lines, self._rest = (self._rest + self._log.read()).split("\n")
        for line in lines:
            if match := SWITCH.search(line):
                # The first choice of a link is no switch.
                self._switches += self._on not in ("", match[1])
                self._on = match[1]
            elif match := DESTROYED.search(line):
                self._destroyed += int(match[1])

    def __str__(self) -> str:
        self.read()
        on = f"on {self._on}" if self._on else "no link chosen"
        switches = "1 switch" if self._switches == 1 else f"{self._switches} switches"
        return f"game {on}, {switches}, sockets destroyed: {self._destroyed}"


class Report:
    def __init__(self, session: Session, lines: bool):
        self._session = session
        self._lines = lines
        self._game = Game(Path(session.setup.log)) if session.setup.game else None
        self._traffic = {lane.name: Traffic(lane) for lane in session.setup.lanes}
        self._start = self._sampled = self._printed = time.monotonic()
        self._busy_s = self._busy_bits = 0.0
        self._shares: dict[str, float] = {}
        self._take_bytes()  # what the set-up moved is not the command's
        for each in self._traffic.values():
            each.received.sum = each.sent.sum = 0

    def turn(self) -> None:
        now = time.monotonic()
        if now - self._sampled >= SAMPLE_S:
            self.sample(now)
        if self._lines and now - self._printed >= LINE_S:
            self._printed = now
            self._print_line(now)

    def sample(self, now: float) -> None:
        passed = now - self._sampled
        self._sampled = now
        moved = self._take_bytes()
        if passed > SAMPLE_S / 2:  # a burst in a moment is no rate
            for name, amount in moved.items():
                each = self._traffic[name]
                each.rate = amount * 8 / 1e6 / passed
                each.peak = max(each.peak, each.rate)
            if sum(moved.values()) * 8 / 1e6 / passed > BUSY:
                self._busy_s += passed
                self._busy_bits += sum(moved.values()) * 8
        rules = self._session.phone.run("iptables-save", "-c")
        for count, spread, leaving in COUNTER.findall(rules):
            if spread in self._traffic:
                self._traffic[spread].spread.take(int(count))
            if leaving in self._traffic:
                self._traffic[leaving].connections.take(int(count))

    def _take_bytes(self) -> dict[str, int]:
        """What each lane moved since the last time; the veth's outer end sends what it receives."""
        counters = {entry["ifname"]: entry["stats64"] for entry in ask("-s", "link", "show")}
        moved = {}
        for name, each in self._traffic.items():
            if stats := counters.get(each.lane.outer):
                moved[name] = (each.received.take(stats["tx"]["bytes"])
                               + each.sent.take(stats["rx"]["bytes"]))
        return moved

    def _print_line(self, now: float) -> None:
        up = {lane.name for lane in self._session.up()}
        shares = {} if self._game else self._session.phone.shares()
        if up <= shares.keys():  # else the daemon is just writing them
            self._shares = shares
        parts = []
        for name, each in self._traffic.items():
            share = f" {self._shares[name]:4.0%}" if name in self._shares else ""
            parts.append(f"{name} {each.rate:5.1f} Mbit/s{share if name in up else ' gone'}")
        if self._game:
            parts.append(str(self._game))
        print(f"{now - self._start:6.0f} s  {'   '.join(parts)}", file=sys.stderr)

    def finish(self) -> None:
        self.sample(time.monotonic())
        rows = [("link", "uplink", "received, MB", "sent, MB", "peak, Mbit/s", "connections",
                 "spread")]
        for name, each in self._traffic.items():
            rows.append((name, each.lane.device, f"{each.received.sum / 1e6:.1f}",
                         f"{each.sent.sum / 1e6:.1f}", f"{each.peak:.1f}",
                         f"{each.connections.sum}", f"{each.spread.sum}"))
        if self._game:  # of which nothing is spread
            rows = [row[:-1] for row in rows]
        widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
        for row in rows:
            cells = [cell.ljust(width) if i < 2 else cell.rjust(width)
                     for i, (cell, width) in enumerate(zip(row, widths))]
            print("  ".join(cells).rstrip(), file=sys.stderr)
        print(self._game or self._verdict(), file=sys.stderr)

    def _verdict(self) -> str:
        traffic = self._traffic.values()
        moved = sum(each.received.sum + each.sent.sum for each in traffic)
        best = max(traffic, key=lambda each: each.peak)
        if not self._busy_s or not best.peak:
            return f"in all {moved / 1e6:.1f} MB, too little for a rate"
        mean = self._busy_bits / 1e6 / self._busy_s
        return (f"mean {mean:.1f} Mbit/s in the {self._busy_s:.0f} s with traffic: "
                f"{mean / best.peak:.2f} times the best single link's peak ({best.lane.name})")
