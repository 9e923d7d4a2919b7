#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Measures how long a status takes while a game runs on four links, and what reading alone takes.

Runs in a world; bench/status starts it there. Each time is the median of some runs. Exit status 1
when a limit is missed.
"""

import json
import os
import socket
import statistics
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import world
from lab.client import GAME_UID
from lab.driver import wait_for_selection
from lab.links import set_links
from measuring import DAEMON, Row, print_table

LINKS = ("wlan0", "wlan1", "rmnet_data0", "ccmni0")
CONNECTIONS = 20_000
RUNS = 31
LIMIT_MS = 100
LOG = "/run/lnkd.log"
SCRIPT = """
echo '1011 ccmni0' >>/etc/iproute2/rt_tables
ip link add ccmni0 type veth peer far0
ip link set far0 up
ip link set ccmni0 up
ip addr add 10.10.9.2/24 dev ccmni0
ip route add default via 10.10.9.1 dev ccmni0 table ccmni0
for n in 0 1 2 3; do
    iptables -w -t mangle -A OUTPUT -p udp --dport $((20000 + 5000 * n)):$((24999 + 5000 * n)) \
        -j CONNMARK --set-mark $((n ? 89 + n : 0))
done
"""


def prepare() -> None:
    """A game on four links, and connections of each mark in the kernel's own table."""
    subprocess.run(["sh", "-e", "-c", SCRIPT], check=True)
    world.Ring("ccmni0").write([(time.time_ns() // 10**6 + 3_600_000, 200, world.SAMPLE, 0)])
    set_links(*(f"{link} delay 10" for link in LINKS[:3]))
    world.CONFIGURATION.write_text("ping_interval_ms=50\n")
    with open(LOG, "w", encoding="ascii") as log:
        subprocess.Popen([DAEMON], stderr=log)
    control = world.connect_control()
    for number, text in ((1, "10123,10456"), (7, "10300"), (2, ",".join(LINKS)),
                         (5, str(GAME_UID))):
        world.send_message(control, number, text)
    wait_for_selection(GAME_UID, "wlan0")
    with socket.socket(type=socket.SOCK_DGRAM) as sender:
        for port in range(20_000, 20_000 + CONNECTIONS):
            try:
                sender.sendto(b"x", ("203.0.113.10", port))
            except OSError:
                pass  # an earlier one was answered: there is no such service


def times(*argv: str) -> list[float]:
    """What each run takes, in ms."""
    taken = []
    for _ in range(RUNS):
        begin = time.monotonic()
        subprocess.run(argv, stdout=subprocess.DEVNULL, check=True)
        taken.append((time.monotonic() - begin) * 1000)
    return taken


def main() -> int:
    prepare()
    subprocess.run(["lnkdctl", "status"], check=True)
    said = json.loads(subprocess.check_output(["lnkdctl", "status", "--json"]))
    seen = sum(mark["all"] for mark in said["connections"]["by_mark"])
    if seen < CONNECTIONS or len(said["links"]) != len(LINKS):
        print(f"status.py: {seen} connections, {len(said['links'])} links", file=sys.stderr)
        return 1
    rows = []
    for what, argv in (("status", ["lnkdctl", "status"]),
                       ("status --json", ["lnkdctl", "status", "--json"])):
        taken = times(*argv)
        rows.append(Row(f"{what}, {len(LINKS)} links, {seen} connections",
                        statistics.median(taken), "ms", LIMIT_MS,
                        f"{LIMIT_MS} ms (worst {max(taken):.0f})"))
    alone = statistics.median(times("cat", "/proc/net/nf_conntrack"))
    rows.append(Row("  the kernel's table of connections alone, by cat", alone, "ms", LIMIT_MS,
                    "-", None))
    return 0 if print_table(rows) else 1


sys.exit(main())
