#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Measures the running daemon and prints one table, the compiled benchmarks' figures included.

Runs in a world without statistics module, whose place it takes; bench/run starts it there.
The arguments are what Google Benchmark and the socket benchmark wrote as JSON. Exit status 1
when a limit is missed.
"""

import json
import os
import shutil
import subprocess
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import selection
import world
from measuring import DAEMON, Row, growth_rows, kib, print_table, run_time, sample

BUILD = Path(os.environ["LAB_BUILD"])
LINKS = ("wlan0", "wlan1", "rmnet_data0", "ccmni0")
STEADY_S = 20
CHANGES = 10_000
WARM_UP = 1_000
BATCHES = 10


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


def fill_rings() -> None:
    """Links that move, at a rate that stands still: samples from an hour ahead are never stale."""
    start = int(time.time() * 1000) + 3_600_000
    for name in LINKS:
        world.Ring(name).write(((start + i, 200, world.SAMPLE, 0)
                                for i in range(world.Ring.RECORDS)), write_index=0)


def steady_state() -> list[Row]:
    with subprocess.Popen([BUILD / "bench/empty_program"]) as empty:
        with world.start_daemon(str(DAEMON)) as daemon:
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
            playing = selection.memory_while_playing(daemon)
        floor = kib(empty.pid, "Private_Dirty")
        empty.kill()
    return [
        Row("resident memory, four links", resident, "KiB", 4096, "below 4 MiB"),
        Row("private dirty memory, four links", dirty, "KiB", 512,
            f"512 KiB (an empty program: {floor})"),
        Row("processor share in steady state", 100 * used / seconds, "%", 0.3,
            f"0.3 % of a core ({used / seconds * 1e6:.0f} µs a pass)"),
        *playing,
    ]


def replace_tools() -> None:
    """What the packet filter takes for a command is not the daemon's."""
    for tool in Path("/system/bin").iterdir():
        tool.unlink()
        shutil.copy(shutil.which("true"), tool)


def growth(commands: Commands) -> list[Row]:
    Path("/vendor/etc/sla/lnkd.conf").write_text("ping_interval_ms=1\n")
    done = commands.starts + 1  # with the one at the daemon's own start
    daemon = subprocess.Popen([str(DAEMON)], stderr=subprocess.DEVNULL)
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
    return growth_rows(f"{done - first} changes", before, after)


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
                f"grep -c, {locale}: {whole:.2f} ms", 1),
            Row("  against grep less its start", ms("markCount"), "ms", whole - startup,
                f"{whole - startup:.2f} ms", 1),
        ]
    return rows


def main() -> int:
    if not world.inside():
        print("daemon.py: not in a world: use bench/run", file=sys.stderr)
        return 2
    rows = compiled(sys.argv[1]) + selection.sockets(sys.argv[2]) + selection.station(sys.argv[3])
    world.set_prop("vendor.sla.ifaces", ",".join(LINKS))
    fill_rings()
    commands = Commands()
    rows += steady_state() + selection.switching()
    replace_tools()
    rows += selection.playing()
    world.set_prop("vendor.sla.ifaces", ",".join(LINKS))
    rows += growth(commands)
    return int(not print_table(rows))


sys.exit(main())
