# SPDX-License-Identifier: Apache-2.0
"""One download in one way, in a world of its own: its figures as a line of JSON.

    download.py WAY PARALLEL CHANGE
"""

import contextlib
import hashlib
import json
import subprocess
import sys
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import world
from bench.peers import ways
from lab import web
from lab.demo.aggregation import (DELAYS, QUEUE_MS, RATES, TCP_LOOSE, UID, control_session,
                                  rebuilds)
from lab.internet import WEB_SERVER
from lab.links import received_bytes, set_links

CLIENT = Path(__file__).resolve().parent / "client.py"
FILE_BYTES, PARTS = 30_000_000, 240
MPTCP_PORT = 81
SAMPLE_S = 0.2
DEADLINE_S = 120
CHANGES = {  # when half of the file has come
    "none": ("", ""),
    "falls": ("wlan0 falls to a tenth", "wlan0 rate 2"),
    "dies": ("wlan1 dies", "wlan1 down"),
}


@contextlib.contextmanager
def sampling() -> Iterator[list[tuple[float, dict[str, int]]]]:
    """The links' counters, over and over, with the time."""
    samples: list[tuple[float, dict[str, int]]] = []
    stop = threading.Event()

    def work() -> None:
        while True:
            samples.append((time.monotonic(), {link: received_bytes(link) for link in RATES}))
            if stop.wait(SAMPLE_S):
                return

    thread = threading.Thread(target=work)
    thread.start()
    try:
        yield samples
    finally:
        stop.set()
        thread.join()


def download(way: ways.Way, parallel: int, change: str) -> dict[str, Any]:
    path = web.make_file("compared", FILE_BYTES)
    port = MPTCP_PORT if way.mptcp else 80
    argv = [str(CLIENT), f"{WEB_SERVER}:{port}", path.name, str(FILE_BYTES), 
            str(parallel if way.long else PARTS), str(parallel)]
    prefix = ways.MPTCPIZE if way.mptcp else ()
    half_s, order = 0.0, CHANGES[change][1]
    with sampling() as samples:
        begin = time.monotonic()
        client = subprocess.Popen([*prefix, *argv], stdout=subprocess.PIPE, text=True, user=UID,
                                  group=UID, extra_groups=[])
        timer = threading.Timer(DEADLINE_S, client.kill)
        timer.start()
        assert client.stdout
        said: dict[str, Any] = {}
        for line in client.stdout:
            if line == "half\n":
                half_s = time.monotonic() - begin
                if order:
                    set_links(order)
            else:
                said = json.loads(line)
        timer.cancel()
        client.wait()
    if not said:
        raise TimeoutError(f"{way.title}: no file within {DEADLINE_S} s")
    if said.pop("digest") != hashlib.sha256(path.read_bytes()).hexdigest():
        raise ValueError(f"{way.title}: the file is not what the server has")
    (_, first), (_, last) = samples[0], samples[-1]
    return {
        **said, "half_s": half_s, "mbit": FILE_BYTES * 8e-6 / said["seconds"],
        "bytes": {link: last[link] - first[link] for link in RATES},
        "samples": [[when - begin, *(counts[link] - first[link] for link in RATES)]
                    for when, counts in samples],
    }


def with_daemon(way: ways.Way, parallel: int, change: str) -> dict[str, Any]:
    # A SYN that is repeated may go out by another link; its later packets are no new connection.
    TCP_LOOSE.write_text("0")
    with world.start_daemon() as daemon:
        session = control_session(daemon)
        if way.free:
            assert session.stdin
            since = len(daemon.log)
            session.stdin.write("metered 0\n")
            session.stdin.flush()
            daemon.wait_for("nf_conntrack interface wlan1", 15, since)  # all links have shares now
        since, begin = len(daemon.log), time.time()
        found = download(way, parallel, change)
        # The share that no link's rule takes is the default link's, and part of it is dealt again.
        found["rebuilds"] = [[when - begin, *(shares.get(link, 0.0) for link in RATES)]
                             for when, shares in rebuilds(daemon.log[since:])]
        session.communicate()
    return found


def main() -> int:
    key, parallel, change = sys.argv[1:]
    way = next(way for way in ways.DOWNLOADS if way.key == key)
    if not world.inside():
        print("download.py: not in a world: use bench/compare", file=sys.stderr)
        return 2
    set_links(*(f"{link} rate {RATES[link]} delay {DELAYS[link]} queue {QUEUE_MS}"
                for link in RATES))
    if way.script:
        ways.set_up(way.script)
    if way.mptcp:
        ways.start_in_internet(["nginx", "-c", str(ways.FOLDER / "mptcp-nginx.conf"), "-p",
                                web.SCRATCH, "-e", "/run/lab/mptcp-nginx.error.log"])
    measure = with_daemon if way.daemon else download
    print(json.dumps(measure(way, int(parallel), change)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
