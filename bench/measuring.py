# SPDX-License-Identifier: Apache-2.0
"""What the measuring programs share: figures of a process, and the table."""

import os
import time
from pathlib import Path
from typing import NamedTuple

DAEMON = Path(os.environ["LAB_BUILD"]) / "stripped" / "lnkd"  # as it is installed

# How a growth is judged: unit, limit, and its text. Noise is over all changes: a leak of 7 bytes a
# change is more.
COUNT = ("", 0, "none")
MEMORY = ("KiB", 64, "noise, 64 KiB")


class Row(NamedTuple):
    what: str
    measured: float
    unit: str
    bound: float
    bound_text: str
    # As fast as a peer it must be; 0: the bound is a limit; None: it is there for comparison.
    times: float | None = 0


class Sample(NamedTuple):
    descriptors: int
    threads: int
    resident: int  # KiB
    dirty: int  # KiB, private


def kib(pid: int, key: str) -> int:
    """An exact figure: VmRSS lags behind by some pages a processor."""
    text = Path(f"/proc/{pid}/smaps_rollup").read_text()
    return next(int(line.split()[1]) for line in text.splitlines() if line.startswith(f"{key}:"))


def run_time(pid: int) -> float:
    """Seconds on a processor, all threads together."""
    return sum(int((task / "schedstat").read_text().split()[0])
               for task in Path(f"/proc/{pid}/task").iterdir()) / 1e9


def sample(pid: int) -> Sample:
    """The lowest count of many: the daemon may have a pipe, a file or a probe open just now."""
    descriptors, threads = [], []
    for _ in range(200):
        descriptors.append(len(os.listdir(f"/proc/{pid}/fd")))
        threads.append(len(os.listdir(f"/proc/{pid}/task")))
        time.sleep(0.005)
    return Sample(min(descriptors), min(threads), kib(pid, "Rss"), kib(pid, "Private_Dirty"))


def verdict(row: Row) -> tuple[str, str]:
    """The ratio of measured to bound, and what it means."""
    ratio = f"{row.measured / row.bound:.2f}" if row.bound else "-"
    if row.times is None:
        return ratio, "for comparison"
    if row.times:
        times = row.bound / row.measured
        text = f"{times:.1f} times as fast" if times > 1 else f"{1 / times:.1f} times as slow"
        return ratio, text if times >= row.times else f"{text}: MISSED"
    return ratio, "within" if row.measured <= row.bound else "MISSED"


def growth_rows(title: str, before: Sample, after: Sample) -> list[Row]:
    return [Row(f"growth over {title}: {name}", new - old, unit, noise, f"{text} ({new} now)")
            for name, old, new, (unit, noise, text) in zip(
                ("descriptors", "threads", "resident memory", "private dirty memory"),
                before, after, (COUNT, COUNT, MEMORY, MEMORY))]


def print_table(rows: list[Row]) -> bool:
    """Whether nothing was missed."""
    table = [("what", "measured", "limit or peer", "ratio", "verdict")]
    for row in rows:
        digits = 0 if row.unit in ("", "KiB", "bytes") else 3 if row.unit == "%" else 2
        table.append((row.what, f"{row.measured:.{digits}f} {row.unit}".strip(), row.bound_text,
                      *verdict(row)))
    widths = [max(map(len, column)) for column in zip(*table)]
    for line in table:
        print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())
    return not any("MISSED" in line[4] for line in table)
