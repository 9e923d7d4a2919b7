# SPDX-License-Identifier: Apache-2.0
"""Scenario files: their syntax, and their expectations against what happened.

    # What it shows.
    config KEY=VALUE             a line of the daemon's configuration
    link wlan0 delay 10          the links before it begins, as for /run/lab/links
    interfaces wlan0,rmnet_data0
    game ADDRESS:PORT            where the game's server is
    event TIME                   when it begins to matter (default: the first change of a link)
    TIME ACTION                  s from the beginning; the last action ends it
    expect WHAT

lab/README.md lists actions and expectations.
"""

import operator
import re
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from lab.events import Events, median, p95

FOLDER = Path(__file__).resolve().parent
COMPARE = {"<": operator.lt, "<=": operator.le, ">": operator.gt, ">=": operator.ge,
           "==": operator.eq}
ACTIONS = re.compile(r"(link \S+ .+|interfaces \S+|game (start|stop)|game to [\d.]+:\d+|"
                     r"call (start|stop))$")


def _first(times: list[float], since: float) -> float | None:
    return next((time for time in sorted(times) if time >= since), None)


# An expectation is a pattern and what to do with its groups: the answer is whether it was met,
# and the figure.
Verdict = tuple[bool, str]


def _switch(events: Events, link: str, limit: str, since: str) -> Verdict:
    return _within(_first([t for t, name in events.switches if name == link], float(since)),
                   limit, since)


def _seen(events: Events, who: str, link: str, limit: str, since: str) -> Verdict:
    arrivals = [p.answered for p in events.packets.get(who, [])
                if p.link == link and p.sent >= float(since)]
    return _within(_first(arrivals, float(since)), limit, since)


def _probes(events: Events, server: str, limit: str, since: str) -> Verdict:
    return _within(_first([t for t, name in events.probed if name == server], float(since)),
                   limit, since)


def _within(time: float | None, limit: str, since: str) -> Verdict:
    if time is None:
        return False, "never"
    delay = time - float(since)
    return delay <= float(limit), f"after {delay:.1f} s"


def _rtt(events: Events, who: str, figure: str, compare: str, limit: str, since: str,
         until: str | None) -> Verdict:
    values = events.times(who, float(since or 0), float(until or 1e9))
    value = median(values) if figure == "median" else p95(values)
    return COMPARE[compare](value, float(limit)), f"{value:.0f} ms"


def _switches(events: Events, compare: str, limit: str) -> Verdict:
    return COMPARE[compare](len(events.switches), int(limit)), str(len(events.switches))


def _refused(events: Events, compare: str, limit: str) -> Verdict:
    return COMPARE[compare](len(events.refused), int(limit)), str(len(events.refused))


def _killed(events: Events, compare: str, limit: str) -> Verdict:
    count = sum(number for _, number in events.killed)
    return COMPARE[compare](count, int(limit)), str(count)


def _left(events: Events) -> Verdict:
    return not events.left, f"{len(events.left)} left" if events.left else "nothing"


_NUMBER = r"([\d.]+)"
_WITHIN = rf" within {_NUMBER} s of {_NUMBER}"
_COMPARED = r" (<=?|>=?|==) "
EXPECTATIONS: dict[str, Callable[..., Verdict]] = {
    rf"switch to (\S+){_WITHIN}": _switch,
    rf"(game|call) on (\S+){_WITHIN}": _seen,
    rf"probes to (\S+){_WITHIN}": _probes,
    rf"(game|call) rtt (median|p95){_COMPARED}{_NUMBER}(?: after {_NUMBER})?"
    rf"(?: until {_NUMBER})?": _rtt,
    rf"switches{_COMPARED}(\d+)": _switches,
    rf"switches refused{_COMPARED}(\d+)": _refused,
    rf"sockets killed{_COMPARED}(\d+)": _killed,
    r"nothing left": _left,
}


@dataclass
class Scenario:
    name: str
    about: str = ""
    config: list[str] = field(default_factory=list)
    links: list[str] = field(default_factory=list)
    interfaces: str = "wlan0,rmnet_data0"
    server: str = "203.0.113.10:7000"
    event: float | None = None
    actions: list[tuple[float, str]] = field(default_factory=list)
    expectations: list[str] = field(default_factory=list)

    def judge(self, events: Events) -> list[tuple[str, Verdict]]:
        """Each expectation, whether it was met, and the figure."""
        return [(text, _expectation(text)(events)) for text in self.expectations]


def _expectation(text: str) -> Callable[[Events], Verdict]:
    for pattern, check in EXPECTATIONS.items():
        match = re.fullmatch(pattern, text)
        if match:
            return lambda events: check(events, *match.groups())
    raise ValueError(f'"{text}": not an expectation')


def names() -> list[str]:
    return sorted(path.stem for path in FOLDER.glob("*.scenario"))


def read(name: str) -> Scenario:
    """A scenario by name or path; ValueError names the line that is wrong."""
    path = Path(name) if name.endswith(".scenario") else FOLDER / f"{name}.scenario"
    if not path.is_file():
        raise ValueError(f'"{name}": no such scenario; there are: {" ".join(names())}')
    scenario = Scenario(path.stem)
    for number, line in enumerate(path.read_text().splitlines(), 1):
        try:
            _take(scenario, line.strip())
        except ValueError as error:
            raise ValueError(f"{path}: line {number}: {error}") from None
    return scenario


def _take(scenario: Scenario, line: str) -> None:
    word, _, rest = line.partition(" ")
    values: dict[str, Any] = {"config": scenario.config, "link": scenario.links}
    if not line or line.startswith("# SPDX-"):
        return
    if word == "#":
        scenario.about = f"{scenario.about} {rest}".strip()
    elif word in values and rest:
        values[word].append(rest)
    elif word == "interfaces" and rest:
        scenario.interfaces = rest
    elif word == "game" and re.fullmatch(r"[\d.]+:\d+", rest):
        scenario.server = rest
    elif word == "event":
        scenario.event = float(rest)
    elif word == "expect":
        _expectation(rest)
        scenario.expectations.append(rest)
    elif re.fullmatch(r"[\d.]+", word) and ACTIONS.fullmatch(rest.strip()):
        if scenario.actions and float(word) < scenario.actions[-1][0]:
            raise ValueError(f"{word}: earlier than the line before")
        scenario.actions.append((float(word), rest.strip()))
    else:
        raise ValueError(f'"{line}": neither a setting, an action nor an expectation')
