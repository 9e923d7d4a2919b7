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


class Report:
    def __init__(self, session: Session, lines: bool):
        self._session = session
        self._lines = lines
        self._traffic = {lane.name: Traffic(lane) for lane in session.setup.lanes}
        self._start = self._sampled = self._printed = time.monotonic()
        self._busy_s = 0.0
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
        for name, amount in self._take_bytes().items():
            each = self._traffic[name]
            each.rate = amount * 8 / 1e6 / passed
            if passed > SAMPLE_S / 2:  # a burst in a moment is no rate
                each.peak = max(each.peak, each.rate)
        if sum(each.rate for each in self._traffic.values()) > BUSY:
            self._busy_s += passed
        for count, spread, leaving in COUNTER.findall(self._session.phone.run("iptables-save", "-c")):
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
        shares = self._session.phone.shares()
        up = {lane.name for lane in self._session.up()}
        parts = []
        for name, each in self._traffic.items():
            share = f"{shares.get(name, 0):4.0%}" if name in up else "gone"
            parts.append(f"{name} {each.rate:6.1f} Mbit/s {share}")
        print(f"{now - self._start:6.0f} s  {'   '.join(parts)}", file=sys.stderr)

    def finish(self) -> None:
        self.sample(time.monotonic())
        game = self._session.setup.game
        rows = [("link", "uplink", "received, MB", "sent, MB", "peak, Mbit/s", "connections",
                 "spread")]
        for name, each in self._traffic.items():
            rows.append((name, each.lane.device, f"{each.received.sum / 1e6:.1f}",
                         f"{each.sent.sum / 1e6:.1f}", f"{each.peak:.1f}",
                         f"{each.connections.sum}", f"{each.spread.sum}"))
        if game:  # of which nothing is spread
            rows = [row[:-1] for row in rows]
        widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
        for row in rows:
            cells = [cell.ljust(width) if i < 2 else cell.rjust(width)
                     for i, (cell, width) in enumerate(zip(row, widths))]
            print("  ".join(cells).rstrip(), file=sys.stderr)
        verdict = _game(Path(self._session.setup.log)) if game else self._verdict()
        print(verdict, file=sys.stderr)

    def _verdict(self) -> str:
        traffic = self._traffic.values()
        moved = sum(each.received.sum + each.sent.sum for each in traffic)
        best = max(traffic, key=lambda each: each.peak)
        if not self._busy_s or not best.peak:
            return f"in all {moved / 1e6:.1f} MB, too little for a rate"
        mean = moved * 8 / 1e6 / self._busy_s
        return (f"mean {mean:.1f} Mbit/s in the {self._busy_s:.0f} s with traffic: "
                f"{mean / best.peak:.2f} times the best single link's peak ({best.lane.name})")


def _game(log: Path) -> str:
    """What the daemon did for it. The first choice of a link is no switch."""
    text = log.read_text(errors="replace")
    chosen = SWITCH.findall(text)
    switches = sum(now != before for before, now in zip(chosen, chosen[1:]))
    destroyed = sum(map(int, DESTROYED.findall(text)))
    last = f", last on {chosen[-1]}" if chosen else ", no link was chosen"
    return f"game: {switches} switches, {destroyed} sockets destroyed{last}"
