# SPDX-License-Identifier: Apache-2.0
"""One download by one link, by a static split and by lnkd, and what lnkd leaves behind.

A part of the demo: runs in a world, in less than a minute.
"""

import math
import os
import re
import subprocess
import sys
import threading
import time
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass, field
from datetime import datetime
from pathlib import Path

import world
from lab import web
from lab.links import LINKS, received_bytes, set_links
from report import page, plot

RATES = {"wlan0": 20, "wlan1": 8, "rmnet_data0": 12}  # Mbit/s
DELAYS = {"wlan0": 5, "wlan1": 10, "rmnet_data0": 25}  # ms each way
QUEUE_MS = 300
SUM = sum(RATES.values())
DEFAULT = "wlan0"  # where the default route goes
UID, STRAY_UID = 10123, 10999  # an application on the list, and one that is not
FILE_BYTES, PARTS, PARALLEL = 50_000_000, 400, 24
STRAY_CONNECTIONS = 200
SAMPLE_S = 0.2
PLAIN_LINE_S = 3.0  # between two lines of progress where there is no terminal

TCP_LOOSE = Path("/proc/sys/net/netfilter/nf_conntrack_tcp_loose")

LIVE = sys.stdout.isatty()
COLOUR = LIVE and "NO_COLOR" not in os.environ and os.environ.get("TERM") != "dumb"


def paint(words: str, code: str) -> str:
    return f"\033[{code}m{words}\033[0m" if COLOUR else words


# --- measuring ------------------------------------------------------------------------------


@dataclass
class Way:
    """One way to download the file, and how it went."""

    name: str
    fetch: web.Fetch = web.Fetch(FILE_BYTES, math.inf, False)
    accesses: list[web.Access] = field(default_factory=list)
    times: list[float] = field(default_factory=list)  # s since the start
    rates: dict[str, list[float]] = field(default_factory=dict)  # by link, Mbit/s

    def connections(self, link: str) -> int:
        return sum(access.link == link for access in self.accesses)


@contextmanager
def sampling(way: Way) -> Iterator[None]:
    """Samples the links' counters into `way`, and shows them."""
    stop = threading.Event()

    def counters() -> tuple[float, dict[str, int]]:
        return time.monotonic(), {link: received_bytes(link) for link in RATES}

    def work() -> None:
        start, first = counters()
        then, before, shown = start, first, start
        way.times, way.rates = [0.0], {link: [0.0] for link in RATES}
        while not stop.wait(SAMPLE_S):
            now, after = counters()
            way.times.append(now - start)
            for link, rates in way.rates.items():
                rates.append((after[link] - before[link]) * 8e-6 / (now - then))
            then, before = now, after
            if LIVE or now - shown >= PLAIN_LINE_S:
                shown = now
                show(sum(after.values()) - sum(first.values()))

    def show(received: int) -> None:
        recent = {link: sum(rates[-5:]) / len(rates[-5:]) for link, rates in way.rates.items()}
        line = f"  {min(99, received * 100 // FILE_BYTES):2} %  Mbit/s: " + "  ".join(
            f"{link} {rate:4.1f}" for link, rate in recent.items())
        line += f"  sum {sum(recent.values()):4.1f}"
        print(f"\r{line}\033[K" if LIVE else line, end="" if LIVE else "\n", flush=True)

    thread = threading.Thread(target=work)
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join()
        print("\r\033[K" if LIVE else "", end="", flush=True)


def download(way: Way) -> Way:
    say(f"Download by the {way.name}" if way.name != "lnkd" else "Download with lnkd")
    before = len(web.accesses())
    with sampling(way):
        way.fetch = web.fetch(UID, "demo", PARTS, PARALLEL)
    way.accesses = web.accesses(before)
    print(f"  {way.fetch.seconds:.1f} s, {way.fetch.mbit:.1f} Mbit/s", flush=True)
    return way


def say(words: str) -> None:
    print(paint(words, "1"), flush=True)


def output(*argv: str) -> str:
    return subprocess.run(argv, check=True, text=True, stdout=subprocess.PIPE).stdout


def network_state() -> set[str]:
    """Every chain, rule and route there is, less the kernel's own empty chains and counters."""
    lines = {f"packet filter: {line}" for line in output("iptables-save").splitlines()
             if line.startswith("-") or (line.startswith(":") and "ACCEPT" not in line)}
    lines = {re.sub(r" \[\d+:\d+\]$", "", line) for line in lines}
    for family in ("-4", "-6"):
        for what in (["rule"], ["route", "show", "table", "all"]):
            lines |= {f"ip {family} {what[0]}: {line.strip()}"
                      for line in output("ip", family, *what).splitlines()}
    return lines


def equal_cost_route() -> Way:
    """A third of the connections on each link, by the kernel's own multipath route."""
    before = output("ip", "route", "show", "default").split("\n")[0].split()
    masquerading = [["POSTROUTING", "-o", link, "-j", "MASQUERADE"] for link in RATES]
    hash_policy = Path("/proc/sys/net/ipv4/fib_multipath_hash_policy")
    old_policy = hash_policy.read_text()
    hash_policy.write_text("1")  # by addresses and ports
    hops = " ".join(f"nexthop via {link.gateway} dev {name} weight 1"
                    for name, link in LINKS.items())
    output("ip", "route", "replace", "default", *hops.split())
    for rule in masquerading:
        output("iptables", "-t", "nat", "-A", *rule)
    try:
        return download(Way("static equal-cost route"))
    finally:
        for rule in masquerading:
            output("iptables", "-t", "nat", "-D", *rule)
        output("ip", "route", "replace", *before)
        hash_policy.write_text(old_policy)


# --- the daemon -----------------------------------------------------------------------------


def control_session(daemon: world.Daemon) -> subprocess.Popen[str]:
    """Tells the daemon of the application and the links, and holds the one session it serves."""
    world.wait_until(lambda: any(line.split()[3] == "00010000" for line in
                                 Path("/proc/net/unix").read_text().splitlines()
                                 if line.endswith(world.CONTROL_SOCKET)), what="control socket")
    session = subprocess.Popen(["lnkdctl", "--period", "100"], stdin=subprocess.PIPE, text=True,
                               stderr=subprocess.PIPE)
    assert session.stdin
    session.stdin.write(f"whitelist {UID}\ndouble-wlan {UID}\ninterfaces {','.join(RATES)}\n")
    session.stdin.flush()
    daemon.wait_for(f"preinterfacelist is {list(RATES)[-1]}", 15)
    daemon.wait_for("nf_conntrack interface rmnet_data0", 15)  # the last rule of the first shares
    return session


Shares = dict[str, float]


def rebuilds(log: list[str]) -> list[tuple[float, Shares]]:
    """Each rebuild of the ratio rules: its time, s since the epoch, and the links' shares."""
    found: list[tuple[float, Shares]] = []
    for line in log:
        if "mangle -F zelk_SLA" in line:
            found.append((log_time(line), {}))
        match = re.search(r"interfaceRatio: (\S+) handle->interfaceName: (\S+)", line)
        if match and found:
            shares = found[-1][1]
            # In the rules' order a link cannot get more than the earlier ones left.
            shares[match[2]] = max(0.0, min(float(match[1]), 1 - sum(shares.values())))
    return [(when, shares) for when, shares in found if shares]


def log_time(line: str) -> float:
    year = datetime.now().year
    return datetime.strptime(f"{year}-{line[:18]}", "%Y-%m-%d %H:%M:%S.%f").timestamp()


@dataclass
class Expected:
    """Connections that the shares promise a link."""

    mean: float = 0
    variance: float = 0

    def add(self, share: float) -> None:
        self.mean += share
        self.variance += share * (1 - share)

    @property
    def margin(self) -> float:
        """Chance stays within it 19 times out of 20."""
        return 2 * math.sqrt(self.variance)


def expectations(way: Way, log: list[str]) -> dict[str, Expected]:
    """By link, and "unassigned" for what no link's share covers: that follows the default route."""
    expected = {name: Expected() for name in [*RATES, "unassigned", "default"]}
    history = rebuilds(log)
    for access in way.accesses:
        start = access.time - access.duration
        shares = next((shares for when, shares in reversed(history) if when <= start), {})
        rest = 1 - sum(shares.values())
        # The application is on both lists, and the entry filter sends it to the share rules once
        # for each: what the first passage leaves unassigned is dealt again.
        for link in RATES:
            expected[link].add(shares.get(link, 0) * (1 + rest))
        expected["unassigned"].add(rest**2)
        expected["default"].add(shares.get(DEFAULT, 0) * (1 + rest) + rest**2)
    return expected


# --- the story ------------------------------------------------------------------------------


@dataclass
class Result:
    ways: list[Way]
    expected: dict[str, Expected]
    rebuilt: list[float]  # times of the rebuilds, s since the start of the download
    stray: dict[str, int]  # connections of the UID that is not on the list, by link
    left_behind: list[str]
    static_left: list[str]

    @property
    def lnkd(self) -> Way:
        return self.ways[-1]

    @property
    def speedup(self) -> float:
        return self.lnkd.fetch.mbit / self.ways[0].fetch.mbit

    def verdicts(self) -> list[tuple[bool, str]]:
        """What must hold, each with whether it does."""
        broken = [way.name for way in self.ways if not way.fetch.intact]
        stray = sum(self.stray.values())
        astray = {link: count for link, count in self.stray.items() if count and link != DEFAULT}
        left = self.static_left + self.left_behind
        return [
            (not broken, "the file arrived whole and unchanged " + (
                "each time" if not broken else f"but for: {', '.join(broken)}")),
            (self.speedup > 1, f"lnkd is {self.speedup:.2f} times as fast as the best single link"),
            (stray == STRAY_CONNECTIONS and not astray,
             f"UID {STRAY_UID}, not on the list: {self.stray[DEFAULT]} of {STRAY_CONNECTIONS} "
             f"connections on {DEFAULT}" + (f", others: {astray}" if astray else "")),
            (not left, "stopped with vendor.sla.enabled=2: "
             + (f"{len(left)} chains, rules or routes differ, the first: {left[0]}" if left
                else "no chain, rule or route left behind")),
        ]


def play(out: Path) -> Result:
    set_links(*(f"{link} rate {RATES[link]} delay {DELAYS[link]} queue {QUEUE_MS}"
                for link in RATES))
    web.make_file("demo", FILE_BYTES)
    web.make_file("stray", 1000 * STRAY_CONNECTIONS)
    before = network_state()
    ways = [download(Way(f"best single link ({DEFAULT})")), equal_cost_route()]
    static_left = sorted(before ^ network_state())

    say(f"Start lnkd, put UID {UID} on its list, tell it of the three links")
    before = network_state()
    # A SYN that has to be repeated may go out by another link, which costs it its connection
    # entry. Its later packets are not to be taken for a new connection and dealt once more.
    TCP_LOOSE.write_text("0")
    with world.start_daemon() as daemon:
        session = control_session(daemon)
        since, start = len(daemon.log), time.time()
        ways.append(download(Way("lnkd")))
        log = daemon.log[since:]

        say(f"{STRAY_CONNECTIONS} connections of UID {STRAY_UID}, which is not on the list")
        first = len(web.accesses())
        web.fetch(STRAY_UID, "stray", STRAY_CONNECTIONS, PARALLEL)
        strays = web.accesses(first)
        stray = {link: sum(access.link == link for access in strays) for link in RATES}

        say("Stop lnkd with vendor.sla.enabled=2")
        world.set_prop("vendor.sla.enabled", "2")
        daemon.wait_for("Lnkd exiting", 10)
        left_behind = sorted(before ^ network_state())
        session.communicate()
    world.set_prop("vendor.sla.enabled", None)
    TCP_LOOSE.write_text("1")
    (out / "lnkd.log").write_text("\n".join(daemon.log) + "\n")
    rebuilt = [when - start for when, _ in rebuilds(log)]
    return Result(ways, expectations(ways[-1], daemon.log), rebuilt, stray, left_behind,
                  static_left)


WAYS_HEAD = ("way", "time, s", "Mbit/s", f"of {SUM} Mbit/s")
LINKS_HEAD = ("connections with lnkd", "seen", "expected", "")


def ways_rows(result: Result) -> list[list[str]]:
    return [[way.name, f"{way.fetch.seconds:.1f}", f"{way.fetch.mbit:.1f}",
             f"{way.fetch.mbit / SUM:.0%}"] for way in result.ways]


def links_rows(result: Result) -> list[list[str]]:
    rows = []
    for link in RATES:
        own, note = result.expected[link], ""
        total = result.expected["default"] if link == DEFAULT else own
        seen = result.lnkd.connections(link)
        if link == DEFAULT:
            note = f"{own.mean:.0f} by its share, the rest unassigned"
        if abs(seen - total.mean) > 1.5 * total.margin:
            note = "further off than chance explains"
        rows.append([link, str(seen), f"{total.mean:.0f} ± {total.margin:.0f}", note])
    rest = result.expected["unassigned"].mean
    return [*rows, ["unassigned", "", f"{rest:.0f}", f"by the default route: part of {DEFAULT}"]]


def print_screen(result: Result) -> None:
    say(f"Aggregation: {FILE_BYTES // 10**6} MB in {PARTS} connections; links of "
        f"{' + '.join(map(str, RATES.values()))} = {SUM} Mbit/s")
    print(f"{WAYS_HEAD[0]:26}{WAYS_HEAD[1]:>8}{WAYS_HEAD[2]:>9}{WAYS_HEAD[3]:>14}")
    for way, row in zip(result.ways, ways_rows(result)):
        bar = "#" * round(20 * way.fetch.mbit / SUM)
        line = f"{row[0]:26}{row[1]:>8}{row[2]:>9}{row[3]:>14}  {bar}"
        print(paint(line, "1;32") if way is result.lnkd else line)
    rebuilt = f"{len(result.rebuilt)} rebuilds of the share rules"
    print(f"{LINKS_HEAD[0]:26}{LINKS_HEAD[1]:>8}{LINKS_HEAD[2]:>12}  {rebuilt}")
    for name, seen, expected, note in links_rows(result):
        print(f"  {name:24}{seen:>8}{expected:>12}  {note}".rstrip())


def throughput(way: Way, x_end: float, title: str) -> plot.Plot:
    chart = plot.Plot(title, "throughput, Mbit/s", x_end, SUM * 1.15)
    chart.stack(way.times, way.rates)
    chart.level(SUM, f"the links together: {SUM}")
    return chart


def write_report(result: Result, out: Path) -> None:
    x_end = math.ceil(max(way.fetch.seconds for way in result.ways)) + 1
    charts = []
    for way in result.ways:
        title = f"{way.name}: {way.fetch.seconds:.1f} s, {way.fetch.mbit:.1f} Mbit/s"
        charts.append(throughput(way, x_end, title))
        charts[-1].mark(way.times[-1], "done")
        if way is result.lnkd:
            charts[-1].ticks(result.rebuilt, "rules rebuilt")
    bars = [(row[0], way.fetch.mbit, f"{row[2]} Mbit/s, {row[1]} s", style) for way, row, style in
            zip(result.ways, ways_rows(result), ("other", "plain", "wlan0"))]
    picture = charts[-1]
    comparison = plot.bars(f"The same file, three ways ({SUM} Mbit/s in all)", bars, SUM,
                           top=picture.height)
    title = f"lnkd: three links, {result.speedup:.2f} times as fast as one"
    (out / "demo.svg").write_text(plot.document(
        picture.width, picture.height + 140, [*picture.body(), *comparison], title))
    page.write(out / "report.html", title, [
        page.paragraph(
            f"One file of {FILE_BYTES // 10**6} MB, fetched in {PARTS} ranges, each a connection, "
            f"{PARALLEL} at a time. Links: " + ", ".join(
                f"{link} {RATES[link]} Mbit/s and {DELAYS[link]} ms each way" for link in RATES)
            + f", each with a queue of {QUEUE_MS} ms. With lnkd, connection tracking adopts no "
            "connection midway (nf_conntrack_tcp_loose=0). Throughput counts whole packets as they "
            f"arrive, sampled every {SAMPLE_S * 1000:.0f} ms; the tables count the file."),
        *(page.figure(chart.svg()) for chart in charts),
        page.heading("The three ways"), page.table(WAYS_HEAD, ways_rows(result)),
        page.heading("Where lnkd's connections went"),
        page.table(LINKS_HEAD, links_rows(result), words=(3,)),
        page.paragraph(
            "Seen by the server, from the address each connection came from. Expected from the "
            "shares in force when each connection started, dealt twice because the application is "
            "on two lists, the whitelist and that of the second Wi-Fi; chance stays within the "
            f"margin 19 times out of 20. The rules were rebuilt {len(result.rebuilt)} times."),
        page.heading("What must hold"),
        page.bullets([f"{'ok' if good else 'FAIL'}: {words}"
                        for good, words in result.verdicts()]),
    ])
