# SPDX-License-Identifier: Apache-2.0
"""The table on the terminal: what each way reached, the limits beside it, and the goals."""

import itertools
import sys
from collections.abc import Sequence
from pathlib import Path
from typing import NamedTuple

from bench.peers import ways
from bench.peers.dealing import PAYLOAD, Link, reachable
from bench.peers.download import CHANGES, FILE_BYTES, PARTS
from bench.peers.figures import Figures, Measured
from bench.peers.gaming import CASES
from bench.peers.gaming import WAYS as GAME_WAYS
from lab.demo.aggregation import DELAYS, RATES, SUM

OF_STATIC, OF_MPTCP = 0.95, 1.15  # goals: of the static split's rate, of MPTCP's time
LINKS = [Link(RATES[name], DELAYS[name]) for name in RATES]
OURS = [way for way in ways.DOWNLOADS if way.daemon]
SERVERLESS = [way for way in ways.DOWNLOADS if not (way.mptcp or way.daemon)]


class Table(NamedTuple):
    title: str
    head: list[str]
    rows: list[list[str]]


class Comparison(NamedTuple):
    figures: Figures
    rounds: int
    at_once: int
    mptcp_problem: str

    def about(self) -> str:
        rounds = f"{self.rounds} rounds" if self.rounds != 1 else "one round"
        few = "" if self.rounds >= 7 else ": too few to tell what chance does"
        algorithm = Path("/proc/sys/net/ipv4/tcp_congestion_control").read_text().strip()
        return (f"Medians (least–most) of {rounds}{few}; TCP: {algorithm}; "
                f"{self.at_once} measured at the same time."
                + f" MPTCP is not measured: {self.mptcp_problem}." * bool(self.mptcp_problem))


def progress(found: Sequence[Measured]) -> None:
    for one in found:
        figures = one.figures
        if "failed" in figures:
            words = f"FAILED: {figures['failed']}"
        elif one.kind == "download":
            words = f"{figures['seconds']:.1f} s, {figures['mbit']:.1f} Mbit/s"
        else:
            moved = figures["tcp"]["moved_s"]
            words = f"moved after {moved:.1f} s" if moved else "stayed"
        print(f"  {one.kind}, {one.what}, {one.way}: {words}", file=sys.stderr, flush=True)


# --- tables ---------------------------------------------------------------------------------


def _loads(figures: Figures, change: str) -> list[int]:
    pairs = [what.split() for what in figures.whats("download")]
    return [int(load) for load, kind in pairs if kind == change]


def steady_table(comparison: Comparison) -> Table | None:
    figures = comparison.figures
    loads = _loads(figures, "none")
    if not loads:
        return None

    def cell(words: str, rate: float) -> str:
        return f"{words} {rate / SUM:4.0%}"

    rows = []
    for way in ways.DOWNLOADS:
        found = [figures.download(way.key, f"{load} none", "mbit") for load in loads]
        rows.append([way.title, way.told, *(cell(one.text(1), one.median) if one.count else "-"
                                            for one in found)])
    dealt = [reachable(LINKS, PARTS, FILE_BYTES / PARTS, load) for load in loads]
    rows.append(["limit: random dealing, median", "the rates", *(cell(f"{rate:.1f}", rate)
                                                          for rate in dealt)])
    whole = SUM * PAYLOAD
    rows.append(["limit: sum of the links", "", *(cell(f"{whole:.1f}", whole) for _ in loads)])
    links = " + ".join(map(str, RATES.values()))
    return Table(
        f"Download of {FILE_BYTES // 10**6} MB in {PARTS} parts over {links} Mbit/s: Mbit/s, and "
        f"share of {SUM}", ["way", "is told, has", *(f"{load} at a time" for load in loads)], rows)


def changes_table(comparison: Comparison) -> Table | None:
    figures = comparison.figures
    changes = [(load, change) for change in CHANGES if change != "none"
               for load in _loads(figures, change)]
    if not changes:
        return None
    rows = []
    for way in ways.DOWNLOADS:
        found = [figures.download(way.key, f"{load} {change}", "seconds")
                 for load, change in changes]
        rows.append([way.title, way.told, *(one.text(1) if one.count else "-" for one in found)])
    return Table(f"The same when a link changes half-way, {changes[0][0]} at a time: seconds",
                 ["way", "is told, has", *(CHANGES[change][0] for _, change in changes)], rows)


def game_tables(comparison: Comparison) -> list[Table]:
    figures = comparison.figures
    tables = []
    for case in (case for case in CASES if case in figures.whats("game")):
        rows = []
        for way in GAME_WAYS:
            if not figures.of("game", way.key, case):
                continue

            def get(protocol: str, key: str, digits: int, name: str = way.key,
                    what: str = case) -> str:
                return figures.game(name, what, protocol, key).text(digits)

            rtt = [f"{figures.game(way.key, case, 'tcp', key).median:.0f}"
                   for key in ("p50", "p95", "p99")]
            rows.append([way.title, *rtt, get("tcp", "out_of_service_s", 1),
                         get("udp", "out_of_service_s", 1), get("tcp", "moved_s", 1),
                         get("tcp", "false_switches", 0)])
        tables.append(Table(
            f"A game whose Wi-Fi {CASES[case].title}; figures from then on",
            ["way", "RTT, ms", "95 %", "99 %", "out of service, s", "its UDP, s", "moved after, s",
             "false moves"], rows))
    return tables


# --- goals ----------------------------------------------------------------------------------


def _steady_goals(figures: Figures) -> list[tuple[bool, str]]:
    goals = []
    for way, load in itertools.product(OURS, _loads(figures, "none")):
        rate, static, single = (figures.download(key, f"{load} none", "mbit").median
                                for key in (way.key, "static-split", "single"))
        goals += [
            (rate >= OF_STATIC * static, f"{way.title}, {load} at a time: {rate / static:.2f} of "
             f"the static split's rate, wanted {OF_STATIC}"),
            (rate >= single, f"{way.title}, {load} at a time: {rate / single:.2f} of the best "
             "single link's rate, wanted 1")]
    return goals


def _change_goals(comparison: Comparison) -> list[tuple[bool, str]]:
    figures, goals = comparison.figures, []
    runs = [(load, change) for change in CHANGES if change != "none"
            for load in _loads(figures, change)]

    def best(rivals: Sequence[ways.Way], what: str) -> tuple[float, str]:
        return min((figures.download(way.key, what, "seconds").median, way.title)
                   for way in rivals)

    for way, (load, change) in itertools.product(OURS, runs):
        what, title = f"{load} {change}", f"{way.title}, {CHANGES[change][0]}"
        ours = figures.download(way.key, what, "seconds").median
        serverless = best(SERVERLESS, what)
        goals.append((ours < serverless[0], f"{title}: {ours / serverless[0]:.2f} of the time of "
                      f"the best without a server ({serverless[1]}), wanted less than 1"))
        if not comparison.mptcp_problem:
            peer = best([way for way in ways.DOWNLOADS if way.mptcp], what)
            goals.append((ours <= OF_MPTCP * peer[0], f"{title}: {ours / peer[0]:.2f} of the time "
                          f"of {peer[1]}, wanted {OF_MPTCP}"))
    return goals


def goals(comparison: Comparison) -> list[tuple[bool, str]]:
    """What lnkd is to reach, each with whether it does."""
    failures = [(False, f"failed: {words}") for words in comparison.figures.failures()]
    return _steady_goals(comparison.figures) + _change_goals(comparison) + failures


# --- the screen -----------------------------------------------------------------------------


def tables(comparison: Comparison) -> list[Table]:
    found = [steady_table(comparison), changes_table(comparison), *game_tables(comparison)]
    return [table for table in found if table]


def print_table(comparison: Comparison) -> bool:
    """Whether lnkd reached its goals."""
    print(comparison.about())
    for table in tables(comparison):
        print(f"\n{table.title}")
        lines = [table.head, *table.rows]
        widths = [max(len(line[n]) for line in lines if n < len(line))
                  for n in range(len(table.head))]
        for line in lines:
            cells = [cell.ljust(width) if number == 0 else cell.rjust(width)
                     for number, (cell, width) in enumerate(zip(line, widths))]
            print("  " + "  ".join(cells).rstrip())
    reached = goals(comparison)
    if reached:
        print("\nGoals of lnkd")
    for good, words in reached:
        print(f"  {'ok    ' if good else 'MISSED'}  {words}")
    return all(good for good, _ in reached)
