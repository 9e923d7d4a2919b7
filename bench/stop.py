# SPDX-License-Identifier: Apache-2.0
"""Measures how long a stop takes, from SIGTERM to the exit, and what it leaves.

Each time is the median of three, each in a world of its own. Exit status 1 when a limit is missed.
"""

import json
import os
import statistics
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT))
from lab import holders
from lab.driver import Phone
from measuring import Row, print_table
from lab.steering import kernel

LIMIT_S = 1.5
GRACE_S = 1.0  # of a tool that does not end
REPETITIONS = 3


def measure_here(holder: str) -> None:
    """In a world: one stop, its figures on standard output."""
    phone = Phone()
    with holders.held(phone, holder):
        begin = time.monotonic()
        phone.daemon.process.terminate()
        phone.daemon.process.wait()
        seconds = time.monotonic() - begin
    log = phone.daemon.log
    cleanup = next(n for n, line in enumerate(log) if "starting cleanup" in line)
    commands = sum("SEND SLA NDC COMMAND" in line for line in log[cleanup:])
    left = sum(1 + len(rules) for rules in kernel().values())
    print(json.dumps({"seconds": seconds, "commands": commands, "left": left}))


def rows(holder: str) -> list[Row]:
    phone = [str(ROOT / "lab/phone"), "--build", os.environ["LAB_BUILD"]]
    command = [*phone, sys.executable, str(Path(__file__).resolve()), holder]
    stops = [json.loads(subprocess.check_output(command, timeout=120)) for _ in range(REPETITIONS)]
    seconds = [stop["seconds"] for stop in stops]
    limit = LIMIT_S + (GRACE_S if holder in holders.TOOLS else 0)
    return [Row(f"SIGTERM to exit, held by: {holder}", statistics.median(seconds), "s", limit,
                f"{limit} s (worst {max(seconds):.2f}; {stops[0]['commands']} commands)"),
            Row("  chains and rules left", max(stop["left"] for stop in stops), "", 0, "none")]


if len(sys.argv) > 1:
    measure_here(sys.argv[1])
else:
    sys.exit(not print_table([row for holder in holders.HOLDERS for row in rows(holder)]))
