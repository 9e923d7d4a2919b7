# SPDX-License-Identifier: Apache-2.0
"""From what is wished to what is done: lanes, settings, steps; or a refusal."""

import shlex
from collections.abc import Iterator, Sequence
from dataclasses import replace
from pathlib import Path

from host import Refusal, checks, lanes, uplinks
from host.configuration import Wish
from host.lanes import Lane
from host.session import Setup
from world.options import Options

SETTINGS = Path(__file__).resolve().parent / "settings"


def setup(wish: Wish, build: Path, force: bool, waits: bool) -> Setup:
    """`waits`: whether uplinks may come later."""
    checks.tools()
    machine = uplinks.look()
    checks.modems(wish.modems if not waits else (), machine)
    found = wish.lanes or lanes.choose(machine, wish.modems)[0]
    lanes.check(found)
    checks.uplinks(found, machine, force, waits)
    ours = lanes.free_range()
    found = sorted((replace(lane, range=ours) for lane in found), key=lambda lane: lane.number)
    options = Options(build.resolve(), wish.conf or _settings(found, wish.game))
    if problem := options.problem():
        raise Refusal(problem)
    checks.kernel()
    checks.firewall(force)
    return Setup(options, found, machine, wish.game)


def _settings(found: Sequence[Lane], game: bool) -> Path:
    """The daemon's configuration, unless the user brings one."""
    metered = any(lane.metered for lane in found)
    return SETTINGS / f"{'game' if game else 'metered' if metered else 'spreading'}.conf"


def dry_run(prepared: Setup) -> Iterator[str]:
    """Every change, as it is then made, and what undoes it."""
    prepared.prepare()
    yield from (f"# {lane}" for lane in prepared.lanes)
    yield from (shlex.join(step.do) for step in prepared.steps)
    yield "# at the end"
    yield from (shlex.join(step.undo) for step in reversed(prepared.steps) if step.undo)
