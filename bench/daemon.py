#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Measures the running daemon and prints one table, the compiled benchmarks' figures included.

Runs in a world without statistics module, whose place it takes; bench/run starts it there.
The only argument is what Google Benchmark wrote as JSON. Exit status 1 when a limit is missed.
"""

import json
import os
import shutil
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "lab"))
import world

BUILD = Path(os.environ["LAB_BUILD"])
LINKS = ("wlan0", "wlan1", "rmnet_data0", "ccmni0")
STEADY_S = 20
CHANGES = 10_000
WARM_UP = 1_000
BATCHES = 10
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
    is_peer: bool = False  # a program to be faster than, not a limit


class Sample(NamedTuple):
    descriptors: int
    threads: int
    resident: int  # KiB
    dirty: int  # KiB, private


class Commands:
    """What the daemon tells the statistics module: read and counted, so that it never waits."""

    def __init__(self) -> None:
        self.starts = 0
        self._fifo = os.open("/proc/sla/config", os.O_RDONLY)
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self) -> None:
        rest = b""
        while data := os.read(self._fifo, 65536):
            *whole, rest = (rest + data).split(b"\0")
            self.starts += whole.count(b"enable=1")


def kib(pid: int, key: str) -> int:
    """An exact figure: VmRSS lags behind by some pages a processor."""
    text = Path(f"/proc/{pid}/smaps_rollup").read_text()
    return next(int(line.split()[1]) for line in text.splitlines() if line.startswith(f"{key}:"))


def run_time(pid: int) -> float:
    """Seconds on a processor, all threads together."""
    return sum(int((task / "schedstat").read_text().split()[0])
               for task in Path(f"/proc/{pid}/task").iterdir()) / 1e9


def sample(pid: int) -> Sample:
    """The lowest count of several: the main loop may have a pipe or a file open just now."""
    descriptors, threads = [], []
    for _ in range(50):
        descriptors.append(len(os.listdir(f"/proc/{pid}/fd")))
        threads.append(len(os.listdir(f"/proc/{pid}/task")))
        time.sleep(0.005)
    return Sample(min(descriptors), min(threads), kib(pid, "Rss"), kib(pid, "Private_Dirty"))


def fill_rings() -> None:
    """Links that move, at a rate that stands still: samples from an hour ahead are never stale."""
    start = int(time.time() * 1000) + 3_600_000
    for name in LINKS:
        world.Ring(name).write(((start + i, 200, world.SAMPLE, 0)
                                for i in range(world.Ring.RECORDS)), write_index=0)


def steady_state() -> list[Row]:
    with subprocess.Popen([BUILD / "bench/empty_program"]) as empty:
        with world.start_daemon(f"{world.LAB}/lnkd") as daemon:
            # The first pass made its rules, the last link's at last; from now on nothing moves.
            daemon.wait_for("nf_conntrack interface rmnet_data0")
            pid = daemon.process.pid
            daemon.wait_for("SLA_RATIO", 10, len(daemon.log))
            rules, begin, used = len(daemon.log), time.monotonic(), run_time(pid)
            time.sleep(STEADY_S)
            used, seconds = run_time(pid) - used, time.monotonic() - begin
            if any("zelk_SLA" in line for line in daemon.log[rules:]):
                print("daemon.py: the rules changed, this was no steady state", file=sys.stderr)
            resident, dirty = kib(pid, "Rss"), kib(pid, "Private_Dirty")
        floor = kib(empty.pid, "Private_Dirty")
        empty.kill()
    return [
        Row("resident memory, four links", resident, "KiB", 4096, "below 4 MiB"),
        Row("private dirty memory, four links", dirty, "KiB", 512,
            f"512 KiB (an empty program: {floor})"),
        Row("processor share in steady state", 100 * used / seconds, "%", 0.3,
            f"0.3 % of a core ({used / seconds * 1e6:.0f} µs a pass)"),
    ]


def growth(commands: Commands) -> list[Row]:
    for tool in Path("/system/bin").iterdir():
        tool.unlink()
        shutil.copy(shutil.which("true"), tool)
    Path("/vendor/etc/sla/lnkd.conf").write_text("ping_interval_ms=1\n")
    done = commands.starts + 1  # with the one at the daemon's own start
    daemon = subprocess.Popen([f"{world.LAB}/lnkd"], stderr=subprocess.DEVNULL)
    control = world.connect_control()
    world.wait_until(lambda: commands.starts == done, 10, "first start of the module")

    def change(count: int) -> None:
        """Three links come, three go: a batch ends with a removal, whose last step is a start."""
        nonlocal done
        pairs = -(-count // 6)
        for _ in range(pairs):
            world.send_message(control, 2, ",".join(LINKS))
            world.send_message(control, 2, LINKS[0])
        done += 6 * pairs
        world.wait_until(lambda: commands.starts >= done, 300, "changes of interfaces")

    world.send_message(control, 1, "10123,10124")
    world.send_message(control, 2, LINKS[0])
    done += 1
    change(WARM_UP)
    before = after = sample(daemon.pid)
    first, begin = done, time.monotonic()
    for batch in range(1, BATCHES + 1):
        change(CHANGES // BATCHES)
        after = sample(daemon.pid)
        print(f"daemon.py: {done - first} changes in {time.monotonic() - begin:.0f} s, {after}",
              file=sys.stderr)
    daemon.terminate()
    daemon.wait(10)
    title = f"growth over {done - first} changes:"
    return [Row(f"{title} {name}", new - old, unit, noise, f"{text} ({new} now)")
            for name, old, new, (unit, noise, text) in zip(
                ("descriptors", "threads", "resident memory", "private dirty memory"),
                before, after, (COUNT, COUNT, MEMORY, MEMORY))]


def compiled(path: str) -> list[Row]:
    results = {entry["run_name"].removesuffix("/real_time"): entry
               for entry in json.loads(Path(path).read_text())["benchmarks"]
               if entry["aggregate_name"] == "median"}

    def ms(name: str) -> float:
        return float(results[name]["real_time"]) * {"ns": 1e-6, "ms": 1}[results[name]["time_unit"]]

    counts = {int(entry["count"]) for entry in results.values() if "count" in entry} - {0}
    if len(counts) != 1:  # 0 is the empty grep's
        print(f"daemon.py: the counts differ: {counts}", file=sys.stderr)
    rows = [
        Row("rate estimate, full ring", 1000 * ms("rateEstimate"), "µs", 10, "10 µs"),
        Row("  allocations", results["rateEstimate"]["allocations"], "", 0, "none"),
        Row("main-loop pass, four full rings", 1000 * ms("ratioPass"), "µs", 50, "50 µs"),
    ]
    for locale in "C", "C.UTF-8":
        name = f"grep/utf8:{int(locale != 'C')}/empty:"
        whole, startup = ms(f"{name}0"), ms(f"{name}1")
        rows += [
            Row("mark count, 100,000 connections", ms("markCount"), "ms", whole,
                f"grep -c, {locale}: {whole:.2f} ms", True),
            Row("  against grep less its start", ms("markCount"), "ms", whole - startup,
                f"{whole - startup:.2f} ms", True),
        ]
    return rows


def verdict(row: Row) -> tuple[str, str]:
    """The ratio of measured to bound, and what it means."""
    ratio = f"{row.measured / row.bound:.2f}" if row.bound else "-"
    if row.is_peer:
        faster = row.measured < row.bound
        times = row.bound / row.measured if faster else row.measured / row.bound
        return ratio, f"{times:.1f} times {'as fast' if faster else 'as slow: MISSED'}"
    return ratio, "within" if row.measured <= row.bound else "MISSED"


def main() -> int:
    if not world.inside():
        print("daemon.py: not in a world: use bench/run", file=sys.stderr)
        return 2
    rows = compiled(sys.argv[1])
    subprocess.run(["strip", "-o", f"{world.LAB}/lnkd", BUILD / "lnkd"], check=True)
    world.set_prop("vendor.sla.ifaces", ",".join(LINKS))
    fill_rings()
    commands = Commands()
    rows += steady_state() + growth(commands)
    table = [("what", "measured", "limit or peer", "ratio", "verdict")]
    for row in rows:
        digits = 0 if row.unit in ("", "KiB") else 3 if row.unit == "%" else 2
        table.append((row.what, f"{row.measured:.{digits}f} {row.unit}".strip(), row.bound_text,
                      *verdict(row)))
    widths = [max(map(len, column)) for column in zip(*table)]
    for line in table:
        print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())
    return int(any("MISSED" in line[4] for line in table))


sys.exit(main())
