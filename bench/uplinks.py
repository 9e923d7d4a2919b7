#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Measures what a command in lnkd-host has of the machine's uplinks, and prints one table.

Runs on a laptop; bench/host starts it there. Each figure is the median of rounds in which the bare
uplink and lnkd-host take turns, and lnkd-host starts anew. Exit status 1 when a limit is missed.
"""

import json
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path
from statistics import median

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lab import host, web
from lab.debian import USERS, inside
from lab.internet import COMMAND, WEB_SERVER
from lab.links import set_links
from lab.uplinks import CABLE, WIFI
from measuring import Row, print_table

ROUNDS = 5
RATES_MBIT = {CABLE.name: 40, WIFI.name: 20}
FILE_BYTES = 48 << 20
PARTS, PARALLEL = 96, 12
EXCHANGES = 2000
ECHO = f"""
import socket, statistics, time
server = socket.socket(type=socket.SOCK_DGRAM)
server.connect(("{WEB_SERVER}", 7000))
times = []
for number in range({EXCHANGES}):
    begin = time.perf_counter()
    server.send(b"ping")
    server.recv(100)
    times.append(time.perf_counter() - begin)
print(statistics.median(times) * 1000)
"""
ONE = ("--quiet", "--force", "--link", f"wlan0={CABLE.name}")
TWO = ("--quiet", "--link", f"wlan0={CABLE.name}", "--link", f"wlan1={WIFI.name}")


def bare(command: str) -> str:
    """What it prints as the user's on the machine."""
    uid = USERS["anna"]
    return subprocess.run(["sh", "-c", command], text=True, stdout=subprocess.PIPE, check=True,
                          user=uid, group=uid, extra_groups=[]).stdout


def through(*links: str) -> Callable[[str], str]:
    """What it prints in lnkd-host."""

    def run(command: str) -> str:
        session = host.Session(*links)
        try:
            return session.type(command)
        finally:
            session.end()

    return run


def compare(what: str, command: str, figure: Callable[[str], float],
            links: tuple[str, ...]) -> tuple[float, float]:
    """The medians on the bare uplink and in lnkd-host."""
    found: tuple[list[float], list[float]] = ([], [])
    for _ in range(ROUNDS):
        for runner, figures in zip((bare, through(*links)), found):
            figures.append(figure(runner(command)))
    for name, figures in zip(("bare", "lnkd-host"), found):
        print(f"uplinks.py: {what}, {name}: {', '.join(f'{f:.3f}' for f in figures)}",
              file=sys.stderr)
    return median(found[0]), median(found[1])


def throughput() -> list[Row]:
    """Of one TCP connection; without a limit the emulator is what bounds it."""
    rows = []
    server = subprocess.Popen([*COMMAND, "iperf3", "-s"], stdout=subprocess.DEVNULL)
    for rate in (300, 0):
        set_links(f"{CABLE.name} rate {rate} delay 5 queue 50")
        for title, option in (("download", "-R"), ("upload", "")):
            what = f"{title}, {rate or 'no'} {'Mbit/s' if rate else 'limit'}"
            plain, ours = compare(
                what, f"iperf3 -J -t 4 -O 1 -c {WEB_SERVER} {option}",
                lambda text: json.loads(text)["end"]["sum_received"]["bits_per_second"] / 1e6, ONE)
            rows.append(Row(f"throughput lost, {what}", max(0.0, 100 * (1 - ours / plain)), "%", 3,
                            f"{'3 % ' * bool(rate)}({plain:.0f} Mbit/s bare, {ours:.0f} through)",
                            0 if rate else None))
    server.terminate()
    server.wait()
    return rows


def round_trip() -> list[Row]:
    set_links(f"{CABLE.name} rate 0 delay 0")
    plain, ours = compare("round trip, ms", f"python3 -c '{ECHO}'", float, ONE)
    return [Row("round-trip time added", ours - plain, "ms", 0.2,
                f"0.2 ms ({plain:.3f} ms bare, {ours:.3f} through)")]


def aggregation() -> list[Row]:
    """A download in parts, each a connection, over two unequal uplinks."""
    set_links(*(f"{name} rate {rate} delay 10 queue 100" for name, rate in RATES_MBIT.items()))
    web.make_file("file", FILE_BYTES)
    edges = [FILE_BYTES * part // PARTS for part in range(PARTS + 1)]
    config = "\n next\n".join(
        f'url = "http://{WEB_SERVER}/file"\nrange = {first}-{end - 1}\noutput = /dev/null\nfail'
        for first, end in zip(edges, edges[1:]))
    path = Path("/tmp/lnkd-host-bench.curl")
    path.write_text(f"no-progress-meter\nparallel\nparallel-immediate\n"
                    f"parallel-max = {PARALLEL}\n{config}\n")

    def seconds(said: str) -> float:
        begin, status, end = said.split()
        if status != "0":
            raise RuntimeError(f"download: curl ended with {status}")
        return float(end) - float(begin)

    try:
        plain, ours = compare(
            "download, s", f"date +%s.%N; curl --config {path}; echo $?; date +%s.%N", seconds, TWO)
    finally:
        path.unlink()
    ideal = FILE_BYTES * 8 / 1e6 / sum(RATES_MBIT.values())
    return [
        Row(f"{FILE_BYTES >> 20} MiB over {' and '.join(map(str, RATES_MBIT.values()))} Mbit/s",
            ours, "s", plain, f"the better one: {plain:.2f} s, wanted 1.2 times", 1.2),
        Row("  against the sum of their rates", ours, "s", ideal, f"{ideal:.2f} s", None),
    ]


def main() -> int:
    if not inside():
        print("uplinks.py: not on a laptop: use bench/host", file=sys.stderr)
        return 2
    return int(not print_table(throughput() + round_trip() + aggregation()))


sys.exit(main())
