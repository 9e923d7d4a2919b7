# SPDX-License-Identifier: Apache-2.0
"""lnkd-host on a stock kernel, with that kernel's packet filter, over a Wi-Fi and a cable."""

import os
import subprocess
from pathlib import Path

import pytest
from lab import host
from lab.client import GAME
from lab.driver import wait_until
from lab.internet import WEB_SERVER, in_internet

GAME_SERVER = f"{WEB_SERVER}:7000"
WIFI, CABLE = "10.10.1.2", "10.10.3.2"
LINKS = ("--link", "wlan0=wlan0", "--link", "rmnet_data0=rmnet_data0", "--log", "/tmp/lnkd.log")
CONNECT = f"""python3 -c '
import socket
for _ in range(40):
    with socket.create_connection(("{WEB_SERVER}", 80)) as client:
        client.sendall(b"web 1\\n")
        print(client.recv(99).split()[2].decode())
'"""


def set_delay(ms):
    in_internet(f"tc qdisc change dev net1 root netem delay {ms}ms".split(), check=True)


@pytest.fixture
def start():
    """Starts lnkd-host on two uplinks with default routes, and sees that nothing stays."""
    os.environ["LAB_BUILD"] = os.environ["LNKD_BUILD"]
    route = "default via 10.10.3.1 dev rmnet_data0 metric 700".split()
    subprocess.run(["ip", "route", "replace", *route], check=True)
    before, sessions = host.state(), []

    def started(*arguments):
        sessions.append(host.Session(*LINKS, *arguments))
        return sessions[-1]

    yield started
    set_delay(10)  # the machine is the next test's, too
    print(sessions[0].errors())
    assert (sessions[0].end(), host.changes(before)) == (0, {})


def test_connections_are_spread_over_a_wifi_and_a_cable(start):
    """The Wi-Fi is known for one, and the command's connections leave by both."""
    assert ["wlan0", "wlan0", "wifi"] in [line.lower().replace("-", "").split()[:3]
                                          for line in host.run("--list").stdout.splitlines()]
    assert set(start().type(CONNECT).split()) == {WIFI, CABLE}


def test_a_game_leaves_a_slow_wifi(start):
    conf, said = Path("/tmp/lnkd.conf"), Path("/tmp/game")
    conf.write_text("ping_interval_ms=100\nmini_est_interval=200\nalpha_percent=1\n")
    said.touch()
    said.chmod(0o666)
    session = start("--game", "--conf", str(conf))
    session.type(f"python3 {GAME} {GAME_SERVER} --uid 2001 > {said} &")
    for link, delay in (("wlan0", 10), ("rmnet_data0", 150)):
        set_delay(delay)
        wait_until(lambda: f"on {link}," in said.read_text()[-100:], f"the game on {link}")
    session.type("kill $!")
