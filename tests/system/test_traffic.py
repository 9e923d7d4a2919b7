# SPDX-License-Identifier: Apache-2.0
"""Real connections, counted where they arrive."""

import socket
from collections import Counter
from pathlib import Path

from lab import web
from lab.driver import ALL_LINKS, DEADLINE, socket_of, wait_for_shares, wait_until
from lab.internet import WEB_SERVER
from lab.links import LINKS
from lab.steering import set_rates

UID, OTHER_UID = 10123, 10999


def start(phone, *lists):
    phone.start("mini_stale_interval=2000000000\n")  # ms: statistics of a test stay valid
    phone.order((2, ALL_LINKS), *((number, str(UID)) for number in lists))


def links_used(uid, connections, port=80):
    """By which links a UID's new connections reach the web server."""
    web.make_file("file", 20000)
    since = len(web.accesses())
    assert web.fetch(uid, "file", parts=connections, parallel=16, port=port).intact
    wait_until(lambda: len(web.accesses(since)) >= connections, "lines in the server's log")
    return Counter(access.link for access in web.accesses(since))


def sent_packets(link):
    return int(Path(f"/sys/class/net/{link}/statistics/tx_packets").read_text())


def test_a_thousand_connections_split_as_the_shares_say(phone):
    """What is not given to a link follows the default route."""
    start(phone, 1, 7)
    set_rates(wlan0=600, wlan1=400, rmnet_data0=1000)
    shares = {"wlan0": 0.1875, "wlan1": 0.125, "rmnet_data0": 0.375}
    wait_for_shares(**shares)
    used = links_used(UID, 1000)
    left = 1 - sum(shares.values())
    for link, share in shares.items():
        # Being on two lists, this application draws again when the first draw gave it no link.
        share += left * share + (left**2 if link == "wlan0" else 0)
        assert abs(used[link] - 1000 * share) < 4 * (1000 * share * (1 - share)) ** 0.5


def test_only_listed_applications_leave_the_default_link(phone):
    """A list opens its own links, for web ports, and closes them again."""
    start(phone, 1)
    set_rates(wlan0=0, wlan1=0, rmnet_data0=1000)
    wait_for_shares(wlan0=0, wlan1=0, rmnet_data0=1)
    for port in (80, 443, 8080):
        assert links_used(UID, 40, port) == {"rmnet_data0": 40}
        assert links_used(OTHER_UID, 40, port) == {"wlan0": 40}
    phone.order((7, str(OTHER_UID)))
    set_rates(wlan0=0, wlan1=1900, rmnet_data0=0)
    wait_for_shares(wlan0=0.1, wlan1=0.9, rmnet_data0=0)
    assert links_used(OTHER_UID, 100)["wlan1"] > 70
    assert links_used(UID, 40) == {"wlan0": 40}
    phone.order((1, "NULL"), (7, "NULL"))
    assert links_used(OTHER_UID, 40) + links_used(UID, 40) == {"wlan0": 80}


def test_a_connection_stays_on_its_link_while_the_shares_change(phone):
    """New rules and a link that goes are for new connections; a running one keeps its mark."""
    start(phone, 1, 7)
    web.make_file("long", 8 << 20)
    set_rates(wlan0=0, wlan1=0, rmnet_data0=1000)
    wait_for_shares(wlan0=0, wlan1=0, rmnet_data0=1)
    client = socket_of(UID)
    client.settimeout(DEADLINE)
    client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 16)
    client.connect((WEB_SERVER, 80))
    stream = client.makefile("rb")
    client.sendall(b"GET /long HTTP/1.0\r\n\r\n")
    others = sent_packets("wlan0") + sent_packets("wlan1")
    for rates in ({"wlan1": 1900}, {"rmnet_data0": 1000}) * 3:
        set_rates(**dict.fromkeys(LINKS, 0) | rates)
        wait_for_shares(**{"wlan0": 0.1, "wlan1": 0.9, "rmnet_data0": 0} if "wlan1" in rates else
                        {"wlan0": 0, "wlan1": 0, "rmnet_data0": 1})
        before = sent_packets("rmnet_data0")
        assert len(stream.read(1 << 20)) == 1 << 20
        assert sent_packets("rmnet_data0") > before
    phone.order((2, "wlan0,rmnet_data0"))
    assert len(stream.read()) > 2 << 20
    assert sent_packets("wlan0") + sent_packets("wlan1") == others
    assert wait_until(web.accesses, "line in the server's log")[0].link == "rmnet_data0"
