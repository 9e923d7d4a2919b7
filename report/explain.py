#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Draws the story of a log as a page; lnkdctl explain starts it: explain.py PAGE < JSON."""

import json
import math
import sys
from pathlib import Path
from typing import Any

sys.path[0] = str(Path(__file__).resolve().parent.parent)

from report import page, plot  # noqa: E402
from report.timeline import WIDTH, Timeline, bands, stacked, steps  # noqa: E402

UNITS = ((3600 * 5, 3600, "time, h"), (60 * 5, 60, "time, min"), (0, 1, "time, s"))
MOST_MOMENTS = 2000  # lines of the list; plots show them all
MOST_NOTES, MOST_RULES = 12, 60
GAP_S = 60  # in which no probe came: the line breaks

Points = list[tuple[float, float]]


class Picture:
    """The plots of a story, one below the other."""

    def __init__(self, story: dict[str, Any]):
        self.story = story
        seconds = max(story["log"]["seconds"], 1)
        self.scale, self.unit = next((scale, unit) for least, scale, unit in UNITS
                                     if seconds >= least)
        self.end = seconds / self.scale
        self.links = story["links"]
        names = [link["name"] for link in self.links]
        # A style for each; further ones share the last.
        free = [name for name in plot.STYLES if name not in names]
        self.styles = {name: name if name in plot.STYLES else free.pop(0) if len(free) > 1
                       else free[0] for name in names}

    def panel(self, title: str, label: str, top: float, height: int = 230) -> Timeline:
        return Timeline(title, label, self.end, top, self.unit, width=WIDTH, height=height)

    def points(self, link: dict[str, Any], figure: str, column: int = 3) -> Points:
        return [(point[0] / self.scale, point[column]) for point in link[figure]]

    def turns(self, link: dict[str, Any], *kinds: str) -> list[float]:
        """When it came or went."""
        return [moment["t"] / self.scale for moment in self.story["moments"]
                if moment["kind"] in kinds and moment["link"] == link["name"]]

    def pieces(self, link: dict[str, Any], points: Points, gap: float) -> list[Points]:
        """Without the times in which the link was not there, or nothing came for longer."""
        found: list[Points] = []
        turns = self.turns(link, "link-added", "link-removed")
        for point in points:
            last = found[-1][-1][0] if found else math.nan
            if not found or point[0] - last > gap or any(last < time <= point[0]
                                                         for time in turns):
                found.append([])
            found[-1].append(point)
        return found

    def times(self, kind: str) -> list[float]:
        return [moment["t"] / self.scale for moment in self.story["moments"]
                if moment["kind"] == kind]

    def lines(self, chart: Timeline, figure: str, held: bool = False) -> None:
        for link in self.links:
            style = self.styles[link["name"]]
            gap = max(GAP_S / self.scale, self.end / 500)
            for number, piece in enumerate(self.pieces(link, self.points(link, figure), gap)):
                shown = steps(piece, piece[-1][0]) if held else piece
                chart.line(shown, style, "" if number else link["name"])

    def probes(self) -> Timeline:
        highs = [point[2] for link in self.links for point in link["rtt"]]
        chart = self.panel("Round-trip time of each link, as probed (dots) and as averaged",
                           "RTT, ms", min(max(highs, default=100) * 1.15, 1000), 270)
        for link in self.links:
            style = self.styles[link["name"]]
            chart.dots(self.points(link, "rtt", 2), style, 3)
        self.lines(chart, "average")
        misses = sorted(time for link in self.links for time, _ in self.points(link, "misses"))
        if misses:
            chart.along_top(misses, "a probe failed")
        switches = [m for m in self.story["moments"] if m["kind"] == "switch"]
        for number, moment in enumerate(switches if len(switches) <= MOST_NOTES else []):
            chart.note(moment["t"] / self.scale, f"to {moment['to']['link']}", number % 3)
        return chart

    def levels(self) -> Timeline:
        chart = self.panel("Network level: the highest wins", "level", 12, 200)
        self.lines(chart, "level", held=True)
        refused = self.times("refusal")
        if refused:
            chart.along_top(refused, "a switch was refused")
        return chart

    def shares(self) -> list[Timeline]:
        chart = self.panel("Share of new connections", "%", 105, 180)
        most = max((point[2] for link in self.links for point in link["rate"]), default=0)
        rates = self.panel("Rate of each link, where the log tells it", "kbit/s", 1.15 * most or 1,
                           180)
        for link in self.links:
            style = self.styles[link["name"]]
            share = [(when, 100 * value) for when, value in self.points(link, "share")]
            for number, piece in enumerate(self.pieces(link, share, math.inf)):
                until = min((when for when in self.turns(link, "link-removed")
                             if when > piece[-1][0]), default=self.end)
                chart.line(steps(piece, until), style, "" if number else link["name"])
            for number, piece in enumerate(self.pieces(link, self.points(link, "rate"), math.inf)):
                rates.line(piece, style, "" if number else link["name"])
        rebuilds = self.times("rebuild")
        if rebuilds:
            chart.along_top(rebuilds, "the rules were built")
        return [chart, rates] if most else [chart]

    def chosen(self, scale: Timeline) -> tuple[list[str], int]:
        stretches: list[list[Any]] = []
        for moment in self.story["moments"]:
            when = moment["t"] / self.scale
            kind = moment["kind"]
            ends = kind in ("game-end", "call-end", "daemon-end", "daemon-gone")
            if stretches and stretches[-1][1] is None and (ends or kind == "switch"):
                stretches[-1][1] = when
            if kind == "switch":
                stretches.append([when, None, moment["to"]["link"]])
        if stretches and stretches[-1][1] is None:
            stretches[-1][1] = self.end
        return bands("Link that was chosen", [("chosen", stretches)], scale, self.styles)

    def svg(self) -> str:
        probes = self.probes()
        selects = any(link["level"] for link in self.links)
        charts = [probes, *([self.levels()] if selects else []), *self.shares()]
        panels = [(chart.body(), chart.height) for chart in charts]
        panels.insert(1, self.chosen(probes))
        height = sum(size for _, size in panels)
        switches = self.times("switch")
        rules = [f'<path d="M{probes.x(when):.1f} 30V{height - 20}" stroke="#b9bfc8" '
                 'stroke-dasharray="1 3"/>'
                 for when in (switches if len(switches) <= MOST_RULES else [])]
        return plot.document(WIDTH, height, [*rules, *stacked(panels)], "the log over time")


def length(seconds: float) -> str:
    minutes = int(seconds // 60)
    return f"{seconds:.1f} s" if minutes == 0 else f"{minutes} min {int(seconds % 60):02d} s"


def summary(story: dict[str, Any]) -> list[tuple[str, str]]:
    found = story["summary"]
    delayed, passed = found["refusals_only_delayed"], found["refusals_passed_by_themselves"]
    worst = found["longest_no_good_link_seconds"]
    return [
        ("games and calls", f"{found['selecting']['count']}, "
         f"{length(found['selecting']['seconds'])}"),
        ("switches", f"{found['switches']}, {found['sockets_destroyed']} sockets destroyed"),
        ("on a worse link", length(found["worse_link_seconds"])),
        ("longest without a good link", length(worst) if worst else "never"),
        ("refused, and it cost more", f"{delayed['count']}, {length(delayed['seconds'])}: "
         "the switch came anyway"),
        ("refused, and it saved more", f"{passed['count']}, {length(passed['seconds'])}: "
         "it passed without a switch there and back"),
        ("rebuilds of the shares", f"{found['rebuilds']}, of them "
         f"{found['rebuilds_without_rates']} by rates that no line tells"),
    ]


def parts(story: dict[str, Any]) -> list[str]:
    log = story["log"]
    moments = story["moments"]
    shown = moments[:MOST_MOMENTS]
    found = [
        page.paragraph(f"{log['begin']} to {log['end']}, {length(log['seconds'])}; "
                       f"{log['daemon_lines']} lines of the daemon, "
                       f"{log['lines'] - log['daemon_lines']} others."),
        *([page.heading("Missing"), page.bullets(story["missing"])] if story["missing"] else []),
        page.figure(Picture(story).svg()),
        page.table(("", ""), summary(story), words=(1,)),
        page.heading("What happened"),
        page.table(("time", ""), [(moment["stamp"], moment["words"]) for moment in shown],
                   words=(1,)),
    ]
    if len(shown) < len(moments):
        found.append(page.paragraph(f"... and {len(moments) - len(shown)} more: "
                                    "lnkdctl explain --all"))
    found.append(page.heading("Failures"))
    found.append(page.table(("times", "first", "last", ""), [
        (str(row["count"]), row["first"], row["last"], row["text"])
        for row in story["failures"]], words=(1, 2, 3)) if story["failures"]
        else page.paragraph("None."))
    return found


def main() -> int:
    story = json.load(sys.stdin)
    try:
        page.write(Path(sys.argv[1]), f"lnkd: {Path(story['log']['name']).name}", parts(story))
    except OSError as error:
        print(f"{sys.argv[1]}: {error.strerror}", file=sys.stderr)
        return 1
    return 0


sys.exit(main())
