# SPDX-License-Identifier: Apache-2.0
"""Measures how long the log of a day takes, and how much memory: told, drawn, and replayed.

Exit status 1 when a limit is missed, or when the replay decides otherwise than the log.
"""

import gzip
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import drive
from measuring import Row, print_table

LNKDCTL = Path(os.environ["LAB_BUILD"]) / "lnkdctl"
REPETITIONS = 3
MOST_S, MOST_KIB = 10, 100 * 1024
REPLAY_S = 15  # twice: as it was, and as it would have been
SWEEP = "alpha_percent=0..100/10"
SWEEP_S = 60


def measured(log: Path, *options: str) -> tuple[float, int]:
    """Seconds, and the most KiB that it or a program of its own ever held; at least as many as this
    program holds, from which it is forked."""
    seconds, peak = [], 0
    for _ in range(REPETITIONS):
        begin = time.monotonic()
        process = subprocess.Popen([LNKDCTL, "explain", *options, log], stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        if status != 0:
            sys.exit(f"explain {' '.join(options)} ended with status {status}")
        seconds.append(time.monotonic() - begin)
        peak = max(peak, usage.ru_maxrss)
    return statistics.median(seconds), peak


def rows(title: str, limit_s: float, log: Path, *options: str) -> list[Row]:
    seconds, peak = measured(log, *options)
    return [Row(title, seconds, "s", limit_s, f"{limit_s} s"),
            Row("  the most memory of a process", peak, "KiB", MOST_KIB, "100 MiB")]


def main() -> int:
    with tempfile.TemporaryDirectory() as folder:
        log, packed = Path(folder, "day.log"), Path(folder, "day.log.gz")
        drive.write(log)
        with log.open("rb") as source, gzip.open(packed, "wb", 6) as target:
            shutil.copyfileobj(source, target)
        size = f"{log.stat().st_size / 1e6:.0f} MB"
        table = [
            *rows(f"the story of {size}", MOST_S, log),
            *rows(f"... from {packed.stat().st_size / 1e6:.0f} MB packed", MOST_S, packed),
            *rows("... with a page", MOST_S, log, "--page", str(Path(folder, "day.html"))),
            *rows("replayed with two tunables changed", REPLAY_S, log, "--with",
                  "t_hyst_s=5,alpha_percent=30"),
            *rows(f"swept, {SWEEP}", SWEEP_S, log, "--sweep", SWEEP),
            Row("the page", Path(folder, "day.html").stat().st_size / 1024, "KiB", 2048, "2 MiB"),
        ]
    return 0 if print_table(table) else 1


sys.exit(main())
