# SPDX-License-Identifier: Apache-2.0
"""Plays a scenario against the real daemon, inside a world, and tells what happened."""

import os
import re
import subprocess
import time
from dataclasses import dataclass, field

import world
from lab.client import CALL_UID, GAME_UID, Client, read_packets
from lab.events import Events, Observer
from lab.internet import CALL_PEER, RESPONDER_LOG
from lab.links import LINKS, set_links
from lab.replay import replayed
from lab.scenarios.file import Scenario
from world.control import START_GAME, STOP_GAME, UPDATE_INTERFACES, VOIP_STATUS

MESSAGES = {"game start": (START_GAME, str(GAME_UID)), "game stop": (STOP_GAME, ""),
            "call start": (VOIP_STATUS, str(CALL_UID)), "call stop": (VOIP_STATUS, "0")}


def kernel_state() -> set[str]:
    """Chains, packet-filter rules, policy rules and routes, a line each."""
    def lines(*argv: str) -> list[str]:
        return subprocess.run(argv, capture_output=True, text=True, check=True).stdout.splitlines()

    # The built-in chains appear with the first use of a table and stay.
    filters = [line.split(" [")[0] for line in lines("iptables-save")
               if line.startswith("-A") or re.match(r":\S+ -", line)]
    return {*filters, *lines("ip", "-4", "rule"), *lines("ip", "-4", "route", "show", "table",
                                                         "all")}


@dataclass
class Process:
    """What the daemon holds beside memory."""

    descriptors: int
    threads: int

    @staticmethod
    def of(pid: int) -> "Process":
        return Process(len(os.listdir(f"/proc/{pid}/fd")), len(os.listdir(f"/proc/{pid}/task")))

    def __str__(self) -> str:
        return f"{self.descriptors} descriptors, {self.threads} threads"


class DaemonEnded(Exception):
    """It did so in the middle of a scenario."""


@dataclass
class Played:
    scenario: Scenario
    selection: bool
    events: Events
    seconds: float
    before: Process
    after: Process
    status: int  # of the daemon
    replay: tuple[bool, str]  # whether its log gives its decisions again
    log: list[str] = field(repr=False)


class Player:
    def __init__(self, scenario: Scenario, selection: bool):
        self.scenario = scenario
        self.selection = selection
        self.clients: dict[str, Client] = {}
        self.files: list[Client] = []
        self.latest = ""  # what was done last
        self.daemon: world.Daemon | None = None

    def play(self) -> Played:
        world.CONFIGURATION.write_text(
            "".join(f"{line}\n" for line in self.scenario.config))
        world.set_prop("vendor.sla.enabled", None)
        set_links(*(f"{link} up rate 0 delay 0 loss 0" for link in LINKS),
                  *self.scenario.links)
        clean = kernel_state()
        with world.start_daemon() as daemon, world.connect_control() as self.control:
            self.daemon = daemon  # before all else: its log says why, if anything goes wrong
            self._tell(UPDATE_INTERFACES, self.scenario.interfaces)
            daemon.wait_for("preinterfacelist is " + self.scenario.interfaces.split(",")[-1])
            self._start("game", self.scenario.server)
            world.wait_until(self.clients["game"].line, what="the game's first second")
            before = self._settled(daemon.process.pid)
            self.begin = time.time()
            self.observer = Observer(daemon.log, self.begin)
            for when, action in self.scenario.actions:
                self._watch_until(when)
                self._do(action)
            seconds = time.time() - self.begin
            for client in self.clients.values():
                client.end()
            # It keeps the socket on which it asks for the signal of a Wi-Fi.
            wanted = Process(before.descriptors + self.selection, before.threads)
            after = self._settled(daemon.process.pid, wanted)
            try:
                world.wait_until(lambda: not self._left_running(), 3)
            except TimeoutError:
                pass  # and is reported
            left = self._left_running()
            status = daemon.stop(10)
        events = self.observer.catch_up()
        events.left = left + sorted(kernel_state() - clean)
        if after.descriptors > wanted.descriptors or after.threads > wanted.threads:
            events.left.append(f"{after} after, {wanted} wanted")
        self._read_files(events)
        return Played(self.scenario, self.selection, events, seconds, before, after, status,
                      replayed(daemon.log), daemon.log)

    def _tell(self, number: int, text: str) -> None:
        world.send_message(self.control, number, text)

    def _start(self, kind: str, server: str) -> None:
        self.clients[kind] = Client(kind, server)
        self.files.append(self.clients[kind])

    def _do(self, action: str) -> None:
        self.latest = action
        word, _, rest = action.partition(" ")
        if word == "link":
            set_links(rest)
        elif word == "interfaces":
            self._tell(UPDATE_INTERFACES, rest)
        elif rest.startswith("to "):
            self.clients["game"].move(rest.split()[1])
        else:
            if action == "call start":
                self._start("call", CALL_PEER)
            elif action == "call stop":
                self.clients["call"].end()
            if self.selection:
                self._tell(*MESSAGES[action])

    def _watch_until(self, when: float) -> None:
        """Lets the time pass, with a line a second."""
        while (now := time.time() - self.begin) < when:
            time.sleep(min(when - now, 1 - now % 1))
            now = time.time() - self.begin
            assert self.daemon
            status = self.daemon.process.poll()
            if status is not None:
                raise DaemonEnded(f"the daemon ended {now:.1f} s after the beginning, with status "
                                  f"{status}, which is a defect")
            if now % 1 < 0.1:
                print(self._state(now), flush=True)

    def _state(self, now: float) -> str:
        events = self.observer.catch_up()
        levels = "  ".join(f"{link} {levels[-1][1]}" for link, levels in
                           sorted(events.levels.items())
                           if events.gone.get(link, [-1])[-1] < levels[-1][0])
        chosen = events.chosen[-1][1] if events.chosen else "none"
        clients = "  ".join(f"{client.kind} {client.line()}" for client in self.clients.values()
                            if client.process.poll() is None)
        return f"{now:4.0f} s  {clients}  chosen {chosen}  level {levels or '-'}  [{self.latest}]"

    @staticmethod
    def _settled(pid: int, wanted: Process | None = None) -> Process:
        """What the daemon holds, once it is what is wanted; else after a while."""
        least = Process.of(pid)

        def seen() -> bool:
            nonlocal least
            now = Process.of(pid)
            least = Process(min(least.descriptors, now.descriptors),
                            min(least.threads, now.threads))
            return wanted is not None and least == wanted

        try:
            world.wait_until(seen, 0.7 if wanted is None else 5)
        except TimeoutError:
            pass  # the caller compares
        return least

    @staticmethod
    def _left_running() -> list[str]:
        """Link-selection chains that outlive the game in a daemon that goes on."""
        return sorted(f"while the daemon runs: {line}" for line in kernel_state()
                      if re.match(r":zelk_sls_|-A zelk_SLS ", line))

    def _read_files(self, events: Events) -> None:
        for client in self.files:
            packets = events.packets.setdefault(client.kind, [])
            packets += [packet._replace(sent=packet.sent - self.begin)
                        for packet in read_packets(client.file)
                        if packet.sent >= self.begin]
        for line in RESPONDER_LOG.read_text().splitlines():
            _, begin, _, _, server, kind = line.split()
            if kind == "probe" and float(begin) >= self.begin:
                events.probed.append((float(begin) - self.begin, server))

