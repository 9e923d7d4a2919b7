# SPDX-License-Identifier: Apache-2.0
"""Measures link selection: sockets, the time of a switch, and what hours of play leave behind."""

import json
import os
import statistics
import sys
import time
from collections.abc import Callable
from functools import partial
from pathlib import Path

import world
from lab import links
from lab.client import CALL_UID, GAME_UID, Client
from lab.internet import GAME_SERVER, WEB_SERVER, in_internet
from measuring import DAEMON, MEMORY, Row, growth_rows, kib, sample
from world.control import START_GAME, STOP_GAME

LINKS = "wlan0,rmnet_data0"
GOOD = ("wlan0 up delay 10", "rmnet_data0 up delay 20")  # ms each way
RTT_MS = {"wlan0": 20, "rmnet_data0": 40}
SLOW_RTT_MS = 200
REPETITIONS = 3
ROUND_TRIPS = 11  # of a probe: the connect and ten exchanges
CONNECT_MS = 500  # and then a probe gives up
PING_MS, PASS_MS, ALPHA, MISSES = 100, 250, 20, 3
CELLULAR_IS_BETTER = 120  # ms, an average on Wi-Fi that is rated below a good cellular link

PROBES, SWITCHES, BATCHES = 20_000, 500, 10
PLAY_LIMIT_S = 300
TIMEOUT_EVERY = 10  # of the bad times, one by time-out, the others by refusal


def sockets(path: str) -> list[Row]:
    """The rows of what the socket benchmark wrote."""
    results = json.loads(Path(path).read_text())
    rows = []
    for key, title in (("near", "their peers here"), ("far", "their peers elsewhere")):
        one = results[key]
        rows += [
            Row(f"10,000 of 20,000 sockets destroyed, {title}", one["ours"], "ms", one["ss"],
                f"ss -K: {one['ss']:.1f} ms, wanted 2.5 times", 2.5),
            Row("  against the bare requests", one["ours"], "ms", one["requests"],
                f"{one['requests']:.1f} ms", None),
            Row("  sockets that were passed over", one["left"], "", 0, "none in 7 rounds"),
        ]
    poll = results["poll"]
    return rows + [
        Row("poll of the monitor, 20,000 sockets of others", poll["ours"], "ms", poll["ss"],
            f"ss -tin: {poll['ss']:.1f} ms, wanted 3 times", 3),
        Row("  growth over 100 polls: resident memory", poll["growth"], *MEMORY),
    ]


def station(path: str) -> list[Row]:
    """The rows of what the station benchmark wrote in the virtual machine."""
    result = json.loads(Path(path).read_text())
    iw, start = result["iw"], result["start"]
    return [
        Row("signal of a station, emulated machine", result["ours"], "ms", iw,
            f"iw station get: {iw:.0f} ms, wanted 5 times", 5),
        Row("  against iw less its start", result["ours"], "ms", iw - start,
            f"{iw - start:.1f} ms", None),
        Row("  growth over 10,000 queries: heap in use", result["heap"], "bytes", 0, "none"),
        Row("  growth over 10,000 queries: resident memory", result["resident"], *MEMORY),
    ]


def memory_while_playing(daemon: world.Daemon) -> list[Row]:
    """Of a daemon without a game yet: probes and the monitor are on from then."""
    control = world.connect_control()
    client = Client("game", f"{GAME_SERVER}:7000")
    world.send_message(control, START_GAME, str(GAME_UID))
    daemon.wait_for("map server is", 20)
    daemon.wait_for(r"\(wlan0\).*longpreviousSpeed size= 10", 60)
    pid = daemon.process.pid
    rows = [
        Row("resident memory, a game runs", kib(pid, "Rss"), "KiB", 4096, "below 4 MiB"),
        Row("private dirty memory, a game runs", kib(pid, "Private_Dirty"), "KiB", 512,
            f"512 KiB without a game ({len(os.listdir(f'/proc/{pid}/task'))} threads)", None),
    ]
    client.end()
    control.close()
    return rows


def probes_to_switch() -> int:
    """How many slow probes the averages need, after many good ones. A probe counts from the next
    one on."""
    samples = [RTT_MS["wlan0"]] * 10
    for count in range(1, 100):
        short, long = sum(samples[-3:]) // 3, sum(samples[-10:]) // 10
        if short * (100 - ALPHA) // 100 + long * ALPHA // 100 >= CELLULAR_IS_BETTER:
            return count
        samples.append(SLOW_RTT_MS)
    raise ValueError("never")


def switching() -> list[Row]:
    """From the change of a link to the moment at which rules and sockets are done."""
    conf = {"ping_interval_ms": PING_MS, "mini_est_interval": PASS_MS, "alpha_percent": ALPHA,
            "min_ping_times": MISSES, "t_hyst_s": 0}
    Path("/vendor/etc/sla/lnkd.conf").write_text("".join(f"{k}={v}\n" for k, v in conf.items()))
    world.set_prop("vendor.sla.ifaces", LINKS)
    rows = []
    with world.start_daemon(str(DAEMON)) as daemon, world.connect_control() as control:
        tasks = Path(f"/proc/{daemon.process.pid}/task")
        daemon.wait_for("nf_conntrack interface rmnet_data0")
        idle = len(os.listdir(tasks))
        client = Client("game", f"{WEB_SERVER}:7000")

        def once(change: str) -> float:
            links.set_links(*GOOD)
            since = len(daemon.log)
            world.send_message(control, START_GAME, str(GAME_UID))
            # Then it plays on Wi-Fi, and the averages know nothing but good probes.
            daemon.wait_for(r"\(wlan0\).*longpreviousSpeed size= 10", 30, since)
            since, begin = len(daemon.log), time.monotonic()
            links.set_links(change)
            daemon.wait_for("perform switch rmnet_data0", 30, since)
            daemon.wait_for("resetting hystWindow", 5, since)
            seconds = time.monotonic() - begin
            links.set_links(*GOOD)
            world.send_message(control, STOP_GAME, "")
            world.wait_until(lambda: len(os.listdir(tasks)) <= idle, 10, "end of the probes")
            return seconds

        for what, change, count, slow_ms in (
                (f"{RTT_MS['wlan0']} to {SLOW_RTT_MS} ms", f"wlan0 delay {SLOW_RTT_MS / 2}",
                 probes_to_switch(), ROUND_TRIPS * SLOW_RTT_MS),
                ("link dies", "wlan0 down", MISSES, CONNECT_MS)):
            # An interval may pass while the other link is probed, so a little less is possible.
            floor = count * (PING_MS + slow_ms + ROUND_TRIPS * RTT_MS["rmnet_data0"]) + PASS_MS
            times = [once(change) for _ in range(REPETITIONS)]
            print(f"selection.py: {what}: switch after {', '.join(f'{t:.2f}' for t in times)} s",
                  file=sys.stderr)
            rows.append(Row(f"time to the switch, {what}", statistics.median(times), "s",
                            floor / 1000, f"floor: {floor / 1000:.2f} s, {count} probes", None))
        client.end()
    return rows


class Play:
    """A daemon with a game on two links, one of which is made bad and good again."""

    REFUSAL = ("INPUT", "-s", links.LINKS["wlan0"].address, "-p", "tcp", "--dport", "443",
               "-j", "REJECT", "--reject-with", "tcp-reset")

    def __init__(self, daemon: world.Daemon):
        self.daemon = daemon
        self.probes = self.switches = self.cycles = self._read = 0

    def cycle(self) -> None:
        """The Wi-Fi grows bad and good again, and the game moves twice."""
        self.cycles += 1
        if self.cycles % TIMEOUT_EVERY == 0:
            self._change("rmnet_data0", lambda: links.set_links("wlan0 down"))
            self._change("wlan0", lambda: links.set_links("wlan0 up"))
        else:
            for option, target in (("-I", "rmnet_data0"), ("-D", "wlan0")):
                command = ["iptables", "-w", option, *self.REFUSAL]
                self._change(target, partial(in_internet, command, check=True))
        wanted = -(-PROBES * self.cycles * 2 // SWITCHES)
        world.wait_until(lambda: self.count() >= wanted, 30, "probes")

    def _change(self, target: str, change: Callable[[], object]) -> None:
        since = len(self.daemon.log)
        change()
        self.daemon.wait_for(f"perform switch {target} ", 30, since)

    def count(self) -> int:
        """Probes so far; each is rated once."""
        end = len(self.daemon.log)
        for line in self.daemon.log[self._read:end]:
            self.probes += "cacl Interface Level" in line
            self.switches += "SLA_RTT_SELECTED perform switch" in line
        self._read = end
        return self.probes


def playing() -> list[Row]:
    """Two hours of play and more in a few minutes, by the number of probes and switches."""
    Path("/vendor/etc/sla/lnkd.conf").write_text(
        "ping_interval_ms=4\nmini_est_interval=10\nalpha_percent=0\nmin_ping_times=2\n"
        "t_hyst_s=0\n")
    world.set_prop("vendor.sla.ifaces", LINKS)
    # A time below 1 ms is not rated. The Wi-Fi has to be rated again and again, cellular once.
    links.set_links("wlan0 up delay 0.5", "rmnet_data0 up delay 0.5")
    # UDP only: there is a socket to destroy, and the probes stay with their default target.
    client = Client("call", f"{WEB_SERVER}:5060")
    with world.start_daemon(str(DAEMON)) as daemon, world.connect_control() as control:
        play, pid = Play(daemon), daemon.process.pid
        world.send_message(control, START_GAME, str(CALL_UID))
        daemon.wait_for(r"\(rmnet_data0\) \(network level = 10\)", 10)
        daemon.wait_for(r"\(wlan0\) \(network level = 11\)", 10)
        links.set_links("rmnet_data0 delay 0")
        for _ in range(SWITCHES // 20):
            play.cycle()  # until every thread has been everywhere
        before = sample(pid)
        play.probes = play.switches = play.cycles = 0
        begin = time.monotonic()
        for batch in range(1, BATCHES + 1):
            while play.switches < SWITCHES * batch // BATCHES:
                play.cycle()
                if time.monotonic() > begin + PLAY_LIMIT_S:
                    raise TimeoutError(f"play: {play.probes} probes, {play.switches} switches")
            after = sample(pid)
            print(f"selection.py: {play.probes} probes, {play.switches} switches in "
                  f"{time.monotonic() - begin:.0f} s, {after}", file=sys.stderr)
    client.end()
    return growth_rows(f"{play.probes} probes, {play.switches} switches", before, after)
