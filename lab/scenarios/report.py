# SPDX-License-Identifier: Apache-2.0
"""What came of a scenario: a screen, a page, and figures for programs."""

import math
import os
import sys
from collections.abc import Sequence
from pathlib import Path
from typing import Any

from lab.bands import link_bands
from lab.client import Packet
from lab.events import Events, median, p95
from lab.scenarios.file import Scenario, Verdict
from lab.scenarios.player import Played
from report import page, plot
from report.timeline import WIDTH, Timeline, stacked, steps

COLOUR = sys.stdout.isatty() and "NO_COLOR" not in os.environ
STEP_S = 0.5  # of the comparison's medians


def event_of(scenario: Scenario) -> float:
    """When it begins to matter."""
    if scenario.event is not None:
        return scenario.event
    return next((when for when, action in scenario.actions
                 if when > 0 and action.startswith("link ")), 0)


def rescue(played: Played) -> tuple[str, str, float] | None:
    """Who came first to the link of the first switch after the event, and how long after it."""
    event = event_of(played.scenario)
    for when, link in played.events.switches:
        if when >= event:
            arrivals = [(p.answered - event, who)
                        for who, packets in played.events.packets.items()
                        for p in packets if p.link == link and p.answered > when]
            delay, who = min(arrivals, default=(0.0, ""))
            return (who, link, delay) if who else None
    return None


def verdicts(played: Played) -> list[tuple[str, Verdict]]:
    ended = (played.status == 0, f"status {played.status}")
    return [*played.scenario.judge(played.events), ("the daemon ends in order", ended),
            ("its log gives its decisions again", played.replay)]


def good(played: Played) -> bool:
    """Without link selection there is nothing to judge but what is left."""
    if not played.selection:
        return not played.events.left and played.status == 0
    return all(met for _, (met, _) in verdicts(played))


def figures(played: Played) -> dict[str, Any]:
    events = played.events
    event = event_of(played.scenario)
    found = rescue(played)
    return {
        "scenario": played.scenario.name,
        "selection": played.selection,
        "event_s": event,
        "game_rtt_median_ms": round(median(events.times("game"))),
        "game_rtt_p95_ms": round(p95(events.times("game"))),
        "game_rtt_median_after_ms": round(median(events.times("game", event))),
        "game_rtt_p95_after_ms": round(p95(events.times("game", event))),
        "game_packets": len(events.packets["game"]),
        "game_lost": sum(packet.lost for packet in events.packets["game"]),
        "switches": [[round(when, 1), link] for when, link in events.switches],
        "sockets_killed": sum(count for _, count in events.killed),
        "first_packet_on_better_link_s": round(found[2], 1) if found else None,
        "left": events.left,
        "verdicts": [[text, met, figure] for text, (met, figure) in verdicts(played)],
        "good": good(played),
    }


# --- the screen -----------------------------------------------------------------------------


def paint(words: str, code: str) -> str:
    return f"\033[{code}m{words}\033[0m" if COLOUR else words


def rtt_rows(played: Played) -> list[list[str]]:
    event = event_of(played.scenario)
    rows = []
    for who, packets in played.events.packets.items():
        spans = [("whole", 0.0, math.inf)]
        if event:
            spans += [(f"before {event:g} s", 0.0, event), (f"after {event:g} s", event, math.inf)]
        for name, since, until in spans:
            times = played.events.times(who, since, until)
            chosen = [p for p in packets if since <= p.sent < until]
            lost = sum(p.lost for p in chosen)
            rows.append([f"{who}, {name}", f"{median(times):.0f}", f"{p95(times):.0f}",
                         f"{lost} of {len(chosen)}"])
    return rows


def outcome(played: Played) -> list[tuple[str, str]]:
    events = played.events
    first = [f"{when:.1f} s {link} (first choice)" for when, link in events.chosen[:1]]
    switches = [f"{when:.1f} s {link}" for when, link in events.switches]
    killed = sorted({round(when, 1) for when, _ in events.killed})
    found = rescue(played)
    return [
        ("chosen", ", ".join(first + switches) or "never"),
        ("refused", f"{len(events.refused)} times a better link, by the hysteresis"),
        ("sockets", f"{sum(count for _, count in events.killed)} destroyed"
         + (f", at {' '.join(f'{when:.1f}' for when in killed)} s" if killed else "")),
        ("rescue", f"first {found[0]} packet on {found[1]} {found[2]:.1f} s after "
         f"{event_of(played.scenario):g} s" if found else "none"),
        ("left", "; ".join(events.left) or "no chain, rule or route; the daemon held "
         f"{played.before} before the game, {played.after} after it"),
    ]


def screen(played: Played) -> str:
    head = ("RTT, ms", "median", "p95", "lost")
    lines = [f"{'link selection' if played.selection else 'WITHOUT link selection'}, "
             f"{played.seconds:.0f} s", ""]
    lines += [f"  {label:9} {words}" for label, words in outcome(played)]
    lines += [""] + [f"  {name:20}{middle:>8}{high:>8}{lost:>16}"
                     for name, middle, high, lost in [head, *rtt_rows(played)]] + [""]
    if not played.selection:
        return "\n".join(lines + ["  for comparison, not judged"])
    for text, (met, figure) in verdicts(played):
        mark = paint("ok  ", "32") if met else paint("FAIL", "1;31")
        lines.append(f"  {mark}  {text:48} {figure}")
    lines.append("\n  " + ("went as expected" if good(played) else "did NOT go as expected"))
    return "\n".join(lines)


# --- the page -------------------------------------------------------------------------------


def _pieces(events: Events, link: str, points: Sequence[tuple[float, float]],
            end: float) -> list[tuple[list[tuple[float, float]], float]]:
    """The points of each stay of a link in the choice, and when it ended."""
    cuts = [-math.inf, *(time for time in events.gone.get(link, []) if time < end), end]
    pieces = [([point for point in points if start <= point[0] < until], until)
              for start, until in zip(cuts, cuts[1:])]
    return [piece for piece in pieces if piece[0]]


def _medians(packets: Sequence[Packet], end: float) -> list[tuple[float, float]]:
    slots: dict[int, list[float]] = {}
    for packet in packets:
        if packet.sent < end:
            slots.setdefault(int(packet.sent / STEP_S), []).append(packet.rtt)
    return [((slot + 0.5) * STEP_S, median(values)) for slot, values in sorted(slots.items())]


def _actions(scenario: Scenario, scale: plot.Plot) -> tuple[list[str], int]:
    """What is done, above the plots, each in the first row that has room."""
    parts = [plot.text(plot.LEFT, 22, "What happens", size=15, extra='font-weight="600"')]
    together: dict[float, list[str]] = {}
    for when, action in scenario.actions:
        together.setdefault(when, []).append(action.removeprefix("link "))
    ends: list[float] = []
    for when, words in together.items():
        label = ", ".join(words)
        width = 6.2 * len(label) + 12
        left = min(scale.x(when), WIDTH - plot.RIGHT - width + 12)
        row = next((row for row, end in enumerate(ends) if end < left), len(ends))
        ends[row:row + 1] = [left + width]
        parts.append(plot.text(left + 3, 42 + 16 * row, label, size=11))
    return parts, 42 + 16 * len(ends)


def picture(played: Played, without: Played | None = None) -> str:
    scenario, events = played.scenario, played.events
    end = max(played.seconds, 1)
    links = _links(events, scenario)

    def panel(title: str, label: str, top: float, height: int = 240) -> Timeline:
        return Timeline(title, label, end, top, width=WIDTH, height=height)

    high = max((rtt for points in events.rtt.values() for _, rtt in points), default=100)
    probed = panel("Round-trip time of each link, as the daemon probes it", "RTT, ms", high * 1.15)
    for link in links:
        points = [point for point in events.rtt.get(link, []) if point[0] >= 0]
        for number, (piece, _) in enumerate(_pieces(events, link, points, end)):
            probed.line(piece, link, "" if number else link)
            probed.dots(piece, link, 5)
    misses = [when for times in events.misses.values() for when in times if 0 <= when <= end]
    if misses:
        probed.along_top(misses, "a probe failed")

    played_by = []
    for who, packets in events.packets.items():
        others = without.events.packets.get(who, []) if without else []
        high = p95([p.rtt for p in [*packets, *others] if not p.lost] or [100, 100])
        # Room for the words above the points.
        chart = panel(f"Round-trip time of the {who}, by the link on which its server saw it",
                      "RTT, ms", min(high * 1.8, 1000), 260)
        for link in links:
            chart.dotted([(p.answered, p.rtt) for p in packets if p.link == link and p.sent < end],
                         link)
        if others:
            chart.line(_medians(others, end), "plain", "without link selection, median")
        chart.along_top([p.sent for p in packets if p.lost and p.sent < end], "no answer")
        played_by.append(chart)
    for number, (when, link) in enumerate(events.chosen):
        killed = sum(count for time, count in events.killed if when <= time < when + 1)
        played_by[0].note(when, f"to {link}; sockets destroyed: {killed}", number % 3)

    level = panel("Network level: the highest wins", "level", 12, 200)
    for link in links:
        pieces = _pieces(events, link, events.levels.get(link, []), end)
        for number, (piece, until) in enumerate(pieces):
            level.line(steps(piece, until), link, "" if number else link)
    if events.refused:
        level.along_top([when for when, _ in events.refused], "a better link was refused")

    strip, strip_height = _actions(scenario, probed)
    panels = [(strip, strip_height), *((chart.body(), chart.height) for chart in
                                       (probed, *played_by, *([level] if events.levels else [])))]
    panels.append(link_bands(events, probed, end))
    height = sum(size for _, size in panels)
    rules = [f'<path d="M{probed.x(when):.1f} 30V{height - 20}" stroke="#b9bfc8" '
             'stroke-dasharray="1 3"/>' for when, _ in scenario.actions]
    return plot.document(WIDTH, height, [*rules, *stacked(panels)], f"{scenario.name} over time")


def _links(events: Events, scenario: Scenario) -> list[str]:
    """The links that take part, in the order of their styles."""
    named = set(scenario.interfaces.split(",")) | set(events.rtt)
    return [name for name in plot.STYLES if name in named]


def page_parts(played: Played, without: Played | None = None) -> list[str]:
    rows = rtt_rows(played)
    if without:
        rows += [[f"{row[0]}, without selection", *row[1:]] for row in rtt_rows(without)]
    parts = [
        page.paragraph(played.scenario.about),
        page.figure(picture(played, without)),
        page.table(("RTT, ms", "median", "95th percentile", "no answer"), rows),
        page.paragraph("A packet without an answer within a second counts as 1000 ms."),
        page.bullets([f"{label}: {words}" for label, words in outcome(played)]),
    ]
    if played.selection:
        parts += [page.heading("What must hold"), page.bullets(
            [f"{'ok' if met else 'FAIL'}: {text}: {figure}"
             for text, (met, figure) in verdicts(played)])]
    return parts + [page.heading("Settings"), page.paragraph(
        "; ".join([*played.scenario.config, *played.scenario.links]))]


def write_page(path: Path, played: Played, without: Played | None = None) -> None:
    title = f"lnkd: {played.scenario.name}" + ("" if played.selection
                                               else ", without link selection")
    page.write(path, title, page_parts(played, without))
