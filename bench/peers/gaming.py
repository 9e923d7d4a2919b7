# SPDX-License-Identifier: Apache-2.0
"""One game whose Wi-Fi degrades, in one way, in a world of its own: its figures as a line of JSON.

    gaming.py WAY CASE
"""

import contextlib
import json
import subprocess
import sys
import threading
import time
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any, NamedTuple

import world
from bench.peers import ways
from lab import RUN
from lab.client import GAME_UID, Client, Packet, read_packets
from lab.internet import COMMAND, RESPONDER, WEB_SERVER
from lab.links import set_links
from world import programs
from world.control import START_GAME, UPDATE_INTERFACES

FAILOVER = Path(__file__).resolve().parent / "ping_failover.py"
TICK_S = 1 / 30  # between two packets of a socket
WIFI, CELLULAR = "wlan0", "rmnet_data0"
MPTCP_PORT = 7100
# A game that gave a silent connection up after a second would not let MPTCP save it.
MPTCP_PATIENCE_S = 15
TRICKLE = 8  # packets on the backup link that are more than its set-up


class Way(NamedTuple):
    key: str
    title: str
    script: str = ""
    mptcp: bool = False


class Case(NamedTuple):
    title: str
    seconds: float
    actions: list[tuple[float, str]]  # the first is what the figures are counted from
    before: tuple[str, str] = (f"{WIFI} delay 10", f"{CELLULAR} delay 20")


WAYS = (
    Way("none", "no switching"),
    Way("averages", "ping, dpinger's numbers", "ping-failover.sh"),
    Way("tests", "ping, mwan3's numbers", "ping-failover.sh"),
    Way("mptcp", "MPTCP, cellular as backup", "mptcp-backup.sh", mptcp=True),
    Way("lnkd", "lnkd"),
)
CASES = {
    "100": Case("goes from 20 to 100 ms", 35, [(5, f"{WIFI} delay 50")]),
    "200": Case("goes from 20 to 200 ms", 35, [(5, f"{WIFI} delay 100")]),
    "400": Case("goes from 20 to 400 ms", 40, [(5, f"{WIFI} delay 200")]),
    "dead": Case("dies", 80, [(5, f"{WIFI} down")]),
    "flapping": Case("turns between 60 and 200 ms each 4 s", 37, [
        (4 * turn, f"{WIFI} delay {100 if turn % 2 else 30}") for turn in range(1, 9)],
        (f"{WIFI} delay 30", f"{CELLULAR} delay 15")),
}


@contextlib.contextmanager
def steering(way: Way) -> Iterator[Callable[[], None]]:
    """What may move the game; the call in it tells that the game has started."""
    if way.key == "lnkd":
        with world.start_daemon() as daemon, world.connect_control() as control:
            world.send_message(control, UPDATE_INTERFACES, f"{WIFI},{CELLULAR}")
            daemon.wait_for(f"preinterfacelist is {CELLULAR}")
            yield lambda: world.send_message(control, START_GAME, str(GAME_UID))
        return
    if way.script:
        ways.set_up(way.script)
    if way.key in ("averages", "tests"):
        monitor = subprocess.Popen([FAILOVER, way.key, WEB_SERVER], stdout=subprocess.DEVNULL)
        try:
            yield lambda: None
        finally:
            monitor.terminate()
            monitor.wait()
    else:
        yield lambda: None


class Backup:
    """When the backup link of an MPTCP connection began to carry it: the server only ever sees
    the address that the connection began with."""

    def __init__(self) -> None:
        self.moved: float | None = None
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._watch)
        self._thread.start()

    def _watch(self) -> None:
        counter = Path(f"/sys/class/net/{CELLULAR}/statistics/rx_packets")
        before = int(counter.read_text())
        while not self._stop.wait(0.1):
            now = int(counter.read_text())
            if self.moved is None and now - before >= TRICKLE:
                self.moved = time.time()

    def end(self) -> None:
        self._stop.set()
        self._thread.join()


def false_switches(packets: list[Packet]) -> int:
    """Moves to the Wi-Fi, which is the worse link all the time."""
    seen = [packet.link for packet in packets if not packet.lost]
    return sum(one != other and other == WIFI for one, other in zip(seen, seen[1:]))


def play(way: Way, case: Case) -> dict[str, Any]:
    if way.mptcp:
        programs.wait_ready(programs.start(
            RESPONDER, f"{RUN}/mptcp-responder.log", f"{WEB_SERVER}:{MPTCP_PORT}",
            prefix=(*COMMAND, *ways.MPTCPIZE)))
    with steering(way) as started:
        if way.mptcp:
            game = Client("game", f"{WEB_SERVER}:{MPTCP_PORT}", ways.MPTCPIZE,
                          f"--patience={MPTCP_PATIENCE_S}")
        else:
            game = Client("game", f"{WEB_SERVER}:7000")
        world.wait_until(game.line, what="the game's first second")
        begin = time.time()
        started()
        backup = Backup() if way.mptcp else None
        for when, order in [*case.actions, (case.seconds, "")]:
            time.sleep(max(0.0, begin + when - time.time()))
            if order:
                set_links(order)
        if backup:
            backup.end()
        game.end()
    return figures(read_packets(game.file), begin + case.actions[0][0], begin + case.seconds - 1,
                   backup)


def figures(packets: list[Packet], event: float, end: float,
            backup: Backup | None) -> dict[str, Any]:
    after = sorted(packet for packet in packets if event <= packet.sent < end)
    found: dict[str, Any] = {"seconds": end - event}
    for protocol in ("tcp", "udp"):
        own = [packet for packet in after if packet.protocol == protocol]
        found[protocol] = {
            "rtt": [round(packet.rtt, 1) for packet in own],
            "sent": [round(packet.sent - event, 3) for packet in own],
            "out_of_service_s": sum(packet.lost for packet in own) * TICK_S,
            "false_switches": false_switches(own),
            "moved_s": min((packet.answered - event for packet in own if packet.link == CELLULAR),
                           default=None),
        }
    if backup:
        found["tcp"]["moved_s"] = backup.moved and backup.moved - event
    return found


def main() -> int:
    key, case = sys.argv[1:]
    if not world.inside():
        print("gaming.py: not in a world: use bench/compare", file=sys.stderr)
        return 2
    set_links(*CASES[case].before)
    print(json.dumps(play(next(way for way in WAYS if way.key == key), CASES[case])))
    return 0


if __name__ == "__main__":
    sys.exit(main())
