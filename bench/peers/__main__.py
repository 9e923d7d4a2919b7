# SPDX-License-Identifier: Apache-2.0
"""Measures lnkd beside its peers, round by round, each measurement in a world of its own.

bench/compare starts it; runs outside of any world.
"""

import argparse
import json
import os
import subprocess
import sys
import time
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from functools import partial
from pathlib import Path
from typing import Any, NamedTuple

from bench.peers import pictures, report, ways
from bench.peers.download import CHANGES, DEADLINE_S
from bench.peers.figures import Figures, Measured
from bench.peers.gaming import CASES
from bench.peers.gaming import WAYS as GAME_WAYS

REPOSITORY = Path(__file__).resolve().parents[2]
LOADS = (6, 12, 24)
# Ahead of the machine's other work, because emulated links live on time; and no longer than we do.
AHEAD = ("setpriv", "--pdeathsig", "TERM", "nice", "-n", "-10")
START_S = 15  # to make a world, and to end it
USUAL_S = {"none": 11, "falls": 38, "dies": 15}  # of a download, its world included


class Job(NamedTuple):
    usual_s: float
    measure: Callable[[], list[Measured]]


class Bench:
    def __init__(self, build: Path):
        self.build = build
        self.mptcp_problem = ways.mptcp_problem()

    def world(self, configuration: str, deadline: float, *command: str) -> dict[str, Any]:
        """What a program says last in a world of its own, or that it failed."""
        argv = [*AHEAD, REPOSITORY / "lab/phone", "--build", self.build, "--conf",
                REPOSITORY / configuration, sys.executable, "-m", *command]
        process = subprocess.Popen(argv, cwd=REPOSITORY, text=True, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        try:
            said, complaint = process.communicate(timeout=deadline + START_S)
            found = json.loads(said.splitlines()[-1])
        except subprocess.TimeoutExpired:
            process.terminate()  # the world's end waits for nothing in it
            process.communicate()
            return {"failed": f"no end within {deadline:.0f} s"}
        except (IndexError, ValueError):
            return {"failed": (complaint.strip().splitlines() or ["it said nothing"])[-1]}
        assert isinstance(found, dict)
        return found

    def download(self, way: ways.Way, load: int, change: str) -> list[Measured]:
        configuration = way.daemon or "lab/demo/demo.conf"  # which nothing else reads
        found = self.world(configuration, DEADLINE_S, "bench.peers.download", way.key,
                           str(load), change)
        return [Measured("download", way.key, f"{load} {change}", found)]

    def game(self, case: str) -> list[Measured]:
        """All ways side by side: a game is next to no load."""

        def one(key: str) -> Measured:
            return Measured("game", key, case, self.world(
                "bench/peers/ways/lnkd-game.conf", CASES[case].seconds, "bench.peers.gaming", key,
                case))

        keys = [way.key for way in GAME_WAYS if not (way.mptcp and self.mptcp_problem)]
        with ThreadPoolExecutor(len(keys)) as pool:
            return list(pool.map(one, keys))

    def jobs(self, args: argparse.Namespace, turn: int) -> list[Job]:
        """What one round measures; the ways begin in another order each time."""
        every = [way for way in ways.DOWNLOADS if not (way.mptcp and self.mptcp_problem)]
        every = every[turn % len(every):] + every[:turn % len(every)]
        runs = [(max(args.loads), change) for change in CHANGES
                if change != "none" and "changes" in args.only]
        runs += [(load, "none") for load in args.loads if "steady" in args.only]
        jobs = [Job(USUAL_S[change], partial(self.download, way, load, change))
                for load, change in runs for way in every]
        games = [Job(CASES[case].seconds + 5, partial(self.game, case)) for case in CASES
                 if "game" in args.only]
        # Among the downloads, so that few of them come together: each is many worlds.
        games.sort(reverse=True, key=lambda game: game.usual_s)
        step = len(jobs) // len(games) + 1 if games else 1
        for number, game in enumerate(games):
            jobs.insert(number * step, game)
        return jobs


def numbers(text: str) -> list[int]:
    return [int(word) for word in text.split(",")]


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="bench/compare", description="Measure lnkd beside its peers: downloads over three "
        "links, and a game whose Wi-Fi degrades. Ends with a table and a page. A whole run takes "
        "about 40 minutes, and never more than four hours: each measurement is ended when it "
        "takes too long. Everything happens in worlds of the lab, so nothing is left behind. "
        "Exit status 1 when a goal is missed.")
    parser.add_argument("--build", type=Path, default=REPOSITORY / "build/release", metavar="DIR",
                        help="folder with the compiled programs (default: build/release)")
    parser.add_argument("--rounds", type=int, default=7, metavar="N", help="(default: 7)")
    parser.add_argument("--loads", type=numbers, default=LOADS, metavar="N,...",
                        help="connections at a time (default: 6,12,24); links change under the "
                        "largest")
    parser.add_argument("--only", action="append", choices=("steady", "changes", "game"),
                        help="a part of it (repeatable)")
    parser.add_argument("--at-once", type=int, default=3, metavar="N",
                        help="measurements at the same time (default: 3)")
    parser.add_argument("--out", type=Path, metavar="DIR",
                        help="for the page and the figures (default: BUILD/compare)")
    args = parser.parse_args()
    args.only = args.only or ["steady", "changes", "game"]
    return args


def main() -> int:
    args = parse_arguments()
    if os.geteuid() != 0:
        print("bench/compare: only root can build a world: use sudo", file=sys.stderr)
        return 2
    out = args.out or args.build / "compare"
    out.mkdir(parents=True, exist_ok=True)
    bench = Bench(args.build.resolve())
    usual = args.rounds * sum(job.usual_s for job in bench.jobs(args, 0)) / args.at_once
    print(f"{args.rounds} rounds: about {usual / 60:.0f} minutes", file=sys.stderr, flush=True)
    measured: list[Measured] = []
    begin = time.monotonic()
    for turn in range(args.rounds):
        with ThreadPoolExecutor(args.at_once) as pool:
            for found in pool.map(lambda job: job.measure(), bench.jobs(args, turn)):
                measured += found
                report.progress(found)
        print(f"round {turn + 1} of {args.rounds}, {(time.monotonic() - begin) / 60:.0f} minutes",
              file=sys.stderr, flush=True)
        (out / "figures.json").write_text(json.dumps([one._asdict() for one in measured]))
    comparison = report.Comparison(Figures(measured), args.rounds, args.at_once,
                                   bench.mptcp_problem)
    good = report.print_table(comparison)
    pictures.write_page(comparison, out / "compare.html")
    print(f"Page: {out.resolve()}/compare.html; every figure: figures.json beside it")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
