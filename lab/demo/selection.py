# SPDX-License-Identifier: Apache-2.0
"""Link selection in one comparison: the Wi-Fi grows slow under a game, with lnkd and without.

A part of the demo: runs in a world, in about a minute.
"""

from pathlib import Path
from typing import Any, NamedTuple

from lab.demo.aggregation import say
from lab.events import median, p95
from lab.scenarios import file, report
from lab.scenarios.player import Player


class Comparison(NamedTuple):
    rows: list[list[str]]  # for a table with the head ROWS_HEAD
    words: str  # the rest in one sentence
    good: bool
    figures: list[dict[str, Any]]  # with and without, all there is


ROWS_HEAD = ("the game's round-trip time", "median", "95 % below", "once moved", "95 % below")


def compare(out: Path, name: str = "wifi-degrades") -> Comparison:
    """Plays a scenario with link selection and without; writes OUT/selection.html and .svg."""
    scenario = file.read(name)
    played = []
    for selection in (True, False):
        say(f"A game while its Wi-Fi grows slow, {'with' if selection else 'without'} lnkd")
        played.append(Player(scenario, selection).play())
    out.mkdir(parents=True, exist_ok=True)
    (out / "selection.log").write_text("".join(f"{line}\n" for line in played[0].log))
    report.write_page(out / "selection.html", *played)
    (out / "selection.svg").write_text(report.picture(*played))

    figures = [report.figures(one) for one in played]
    event, moved = figures[0]["event_s"], figures[0]["first_packet_on_better_link_s"]
    recovery = max(when for when, action in scenario.actions if action.startswith("link "))
    spans = [(event, recovery), (recovery if moved is None else event + moved + 1, recovery)]
    rows = []
    for label, one in zip(("lnkd", "default link"), played):
        cells = [f"{value:.0f} ms" for span in spans for times in [one.events.times("game", *span)]
                 for value in (median(times), p95(times))]
        rows.append([f"  {label}, Wi-Fi slow", *cells])
    left = sum(len(one["left"]) for one in figures)
    words = ("the game never moved" if moved is None else
             f"the game moved {moved} s after its Wi-Fi began to slow")
    words += (f"; {figures[0]['sockets_killed']} sockets destroyed, {left or 'nothing'} left")
    return Comparison(rows, words, all(one["good"] for one in figures), figures)


def print_screen(comparison: Comparison) -> None:
    for row in (ROWS_HEAD, *comparison.rows):
        print(f"{row[0]:34}" + "".join(f"{cell:>12}" for cell in row[1:]))
