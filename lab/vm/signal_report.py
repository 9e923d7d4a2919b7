# SPDX-License-Identifier: Apache-2.0
"""The page, and its picture, of a walk away from the access point and back."""

from collections.abc import Sequence
from pathlib import Path

from lab.bands import link_bands
from lab.events import Events
from report import page, plot
from report.timeline import WIDTH, Timeline, stacked, steps

WIFI = "wlan0"
STRONG, WEAK = -30.0, -100.0  # dBm


def write_page(path: Path, events: Events, readings: Sequence[tuple[float, float]],
               penalties: Sequence[tuple[float, float]], end: float) -> None:
    """Readings in dBm and penalties in ms, from their times on, over `end` seconds. The picture
    is also a file of its own beside the page."""
    high = max(rtt for points in events.rtt.values() for _, rtt in points)
    signal = Timeline(f"Signal of {WIFI}'s access point, as the daemon reads it", "dBm", end,
                      STRONG, width=WIDTH, y_begin=WEAK)
    signal.line(steps(readings, end), WIFI, WIFI)
    penalty = Timeline("What that signal costs", "penalty, ms", end, 350, width=WIDTH, height=200)
    penalty.line(steps(penalties, end), WIFI, WIFI)
    probed = Timeline("Round-trip time as the daemon probes it, the penalty included", "RTT, ms",
                      end, high * 1.15, width=WIDTH)
    for link, points in sorted(events.rtt.items(), reverse=True):
        shown = [point for point in points if 0 <= point[0] <= end]
        probed.line(shown, link, link)
        probed.dots(shown, link, 4)
    for when, link in events.switches:
        signal.note(when, f"the game to {link}", 0)
    panels = [*((chart.body(), chart.height) for chart in (signal, penalty, probed)),
              link_bands(events, probed, end)]
    picture = plot.document(WIDTH, sum(height for _, height in panels), stacked(panels),
                            "A walk away from the access point and back")
    path.with_suffix(".svg").write_text(picture)
    page.write(path, "lnkd: a walk away from the access point and back", [
        page.paragraph("A simulated radio, the kernel's own 802.11 code, and a game that plays "
                       "all the time."),
        page.figure(picture),
        page.bullets([f"{when:.1f} s: the game to {link}" for when, link in events.switches])])
