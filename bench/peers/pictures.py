# SPDX-License-Identifier: Apache-2.0
"""The page: the tables, and what the downloads and the games looked like over time."""

import math
import statistics
from pathlib import Path
from typing import Any

from bench.peers import report, ways
from bench.peers.dealing import PAYLOAD, reachable
from bench.peers.download import CHANGES, FILE_BYTES, PARTS
from bench.peers.gaming import CASES
from bench.peers.gaming import WAYS as GAME_WAYS
from lab.demo.aggregation import RATES, SUM
from report import page, plot

STEP_S = 0.5
SHOWN = ("static-split", "mptcp-long", "lnkd", "lnkd-free")  # over time
LOOKS = {"none": ("other", "no switching"), "averages": ("plain", "dpinger's"),
         "tests": ("wlan1", "mwan3's"), "mptcp": ("rmnet_data0", "MPTCP"),
         "lnkd": ("wlan0", "lnkd")}  # of a game's ways: style, label
LONGEST_S = 40  # of the time axis


def _bars(comparison: report.Comparison, load: int) -> str:
    rows = []
    for way in ways.DOWNLOADS:
        found = comparison.figures.download(way.key, f"{load} none", "mbit")
        if found.count:
            rows.append((way.title, found.median, f"{found.text(1)} Mbit/s",
                         "wlan0" if way.daemon else "wlan1" if way.mptcp else "other"))
    dealt = reachable(report.LINKS, PARTS, FILE_BYTES / PARTS, load)
    rows += [("limit: random dealing", dealt, f"{dealt:.1f} Mbit/s", "plain"),
             ("limit: sum of the links", SUM * PAYLOAD, f"{SUM * PAYLOAD:.1f} Mbit/s", "plain")]
    body = plot.bars(f"{load} connections at a time", rows, SUM)
    return plot.document(760, 50 + 30 * len(rows), body, f"Rates with {load} at a time")


def _middle(found: list[dict[str, Any]]) -> dict[str, Any]:
    """The measurement whose time is the median."""
    known = sorted((one for one in found if "seconds" in one), key=lambda one: one["seconds"])
    return known[len(known) // 2] if known else {}


def _throughput(one: dict[str, Any], title: str, change: str) -> str:
    samples = one["samples"]
    times, rates = [0.0], {link: [0.0] for link in RATES}
    for before, after in zip(samples, samples[1:]):
        if after[0] > LONGEST_S:
            break
        times.append(after[0])
        for number, link in enumerate(RATES, start=1):
            bits = 8e-6 * (after[number] - before[number])
            rates[link].append(bits / (after[0] - before[0]))
    chart = plot.Plot(f"{title}: {one['seconds']:.1f} s", "throughput, Mbit/s",
                      math.ceil(times[-1]) + 1, SUM * 1.15)
    chart.stack(times, rates)
    chart.mark(one["half_s"], change)
    return chart.svg()


def _changes(comparison: report.Comparison) -> list[str]:
    parts = []
    for what in comparison.figures.whats("download"):
        change = CHANGES[what.split()[1]][0]
        for way in ways.DOWNLOADS if change else ():
            one = _middle(comparison.figures.of("download", way.key, what))
            if one and way.key in SHOWN:
                parts.append(page.figure(_throughput(one, f"{way.title}, {change}", change)))
    return parts


def _game(comparison: report.Comparison, case: str) -> str:
    """What the game felt, the first round."""
    lines = []
    for way in GAME_WAYS:
        one = next((one for one in comparison.figures.of("game", way.key, case) if "tcp" in one),
                   None)
        if one:
            slots: dict[int, list[float]] = {}
            for sent, rtt in zip(one["tcp"]["sent"], one["tcp"]["rtt"]):
                slots.setdefault(int(sent / STEP_S), []).append(rtt)
            lines.append((way, [((slot + 0.5) * STEP_S, statistics.median(values))
                                for slot, values in sorted(slots.items())]))
    end = max((points[-1][0] for _, points in lines if points), default=1)
    high = max((rtt for _, points in lines for _, rtt in points), default=100)
    chart = plot.Plot(f"Wi-Fi {CASES[case].title}: round-trip time of the game's TCP part",
                      "RTT, ms", math.ceil(end), high * 1.1, "time since the change, s")
    for way, points in lines:
        chart.line(points, *LOOKS[way.key])
    return chart.svg()


def write_page(comparison: report.Comparison, path: Path) -> None:
    parts = [page.paragraph(comparison.about())]
    for table in report.tables(comparison):
        parts += [page.heading(table.title), page.table(table.head, table.rows, words=(1,))]
    parts += [page.heading("Goals of lnkd"), page.bullets(
        [f"{'ok' if good else 'MISSED'}: {words}" for good, words in report.goals(comparison)])]
    loads = [what.split()[0] for what in comparison.figures.whats("download") if "none" in what]
    parts += [page.heading("Pictures"), *(page.figure(_bars(comparison, int(load)))
                                          for load in loads)]
    parts += _changes(comparison)
    parts += [page.figure(_game(comparison, case)) for case in CASES
              if case in comparison.figures.whats("game")]
    page.write(path, "lnkd and its peers", parts)
