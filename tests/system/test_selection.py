# SPDX-License-Identifier: Apache-2.0
"""Games and calls: real probes over real links, rules that move them, sockets that die."""

import re
import socket
import subprocess
from errno import ECONNABORTED

import pytest
import world
from lab.client import CALL_UID, GAME_UID, Client
from lab.driver import ALL_LINKS, socket_of, wait_for_probes, wait_for_selection, wait_until
from lab.internet import CALL_PEER, GAME_SERVER, WEB_SERVER, WEB_SERVER6
from lab.links import LINKS, set_links

HIGH_RTT, START, STOP, CALL, BSSIDS, PAIR = 4, 5, 6, 8, 9, "wlan0,rmnet_data0"
GAME, STOPPED, CALLING = (START, str(GAME_UID)), (STOP, ""), (CALL, str(CALL_UID))


def sockets_of(uid):
    """Connected, connecting, listening and UDP sockets of an application, IPv4 and IPv6."""
    made = []
    for family, host in ((socket.AF_INET, WEB_SERVER), (socket.AF_INET6, WEB_SERVER6)):
        connected, connecting, listening = (socket_of(uid, family) for _ in range(3))
        made += connected, connecting, listening, socket_of(uid, family, socket.SOCK_DGRAM)
        connected.connect((host, 8080))
        connecting.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"wlan1")
        connecting.setblocking(False)
        connecting.connect_ex((host, 8080))
        listening.listen()
        made[-1].connect((host, 7000))
    return made


def fates(sockets):
    return [sock.getsockopt(socket.SOL_SOCKET, socket.SO_ERROR) for sock in sockets]


def test_a_game_moves_to_the_better_link_and_away_from_a_dead_one(phone):
    """Its flows connect again at once and reach the server by the selected link."""
    phone.start("min_ping_times=2\nalpha_percent=1\n")
    game = Client("game", f"{GAME_SERVER}:7000")
    phone.order((2, PAIR), GAME)
    for link, *changes in (("wlan0", "wlan0 delay 40", "rmnet_data0 delay 10"),
                           ("rmnet_data0", "wlan0 delay 110"),
                           ("wlan0", "wlan0 delay 20", "rmnet_data0 down")):
        set_links(*changes)
        wait_for_selection(GAME_UID, link)
        wait_until(lambda: f"on {link}," in game.line(), f"game on {link}")
    wait_for_probes(f"{GAME_SERVER}:7000")
    phone.order(STOPPED)
    wait_for_selection()


def test_only_the_sockets_of_a_selected_application_are_destroyed(phone):
    """In every state, at a choice and at the end; a text that is no UID is not the system's."""
    set_links("wlan1 down")
    phone.start()
    phone.order((2, PAIR))
    mine, others = sockets_of(GAME_UID), sockets_of(10999) + sockets_of(0)
    for uids in ("", "0", "-1,x,4294967296,4294977496, 10200,010200,0x27d8", "x," * 500):
        phone.choose((START, uids))
        phone.order(STOPPED)
        assert (uids, fates(mine + others)) == (uids, [0] * 24)
    for destroy in (lambda: phone.choose((START, f"x,{GAME_UID}")), phone.stop):
        destroy()
        assert (fates(mine), fates(others)) == ([ECONNABORTED] * 8, [0] * 16)
        mine = sockets_of(GAME_UID)


@pytest.mark.parametrize("interval, misses", [(20, 5), (0, 0), (-5, 1)])
def test_probes_follow_games_calls_and_interfaces(phone, interval, misses):
    """A thread a link and one for the signal, one more in a game, nothing left afterwards; the stop
    comes amid."""
    world.set_prop("vendor.sla.ifaces", PAIR)
    set_links(*(f"{link} delay 2" for link in LINKS))
    phone.start(f"ping_interval_ms={interval}\nmin_ping_times={misses}\n")
    phone.order((2, PAIR))
    idle = phone.held()[1]
    for threads, selection, messages in (
        (0, (), [(HIGH_RTT, text) for text in ("", "x", "4294967417", "120")]),
        (2, (), [(HIGH_RTT, "121"), (HIGH_RTT, "300")]),
        (4, (GAME_UID, "wlan0"), [GAME, GAME]), (5, (GAME_UID, "wlan0"), [(2, ALL_LINKS)]),
        (4, (GAME_UID, "wlan1"), [(2, "wlan1,rmnet_data0")]),
        (4, (CALL_UID, "wlan1"), [(CALL, "x"), (CALL, "12x"), CALLING, CALLING, GAME]),
        (1, (), [(CALL, "no UID\n"), (CALL, "0")]), (0, (), [STOPPED, STOPPED])):
        phone.order(*messages)
        wait_for_selection(*selection)
        wait_until(lambda: phone.held()[1] == idle + threads, f"{threads} threads, {messages}")
        if CALLING in messages:
            wait_for_probes(CALL_PEER)
    told = [line for line in world.statistics_commands() if "voip" in line]
    assert told == [f"voip_uid={CALL_UID}", "voip_enable=1", "voip_enable=0", "voip_uid=0"]
    held = phone.held()
    phone.order(*[GAME, STOPPED] * 50)
    assert phone.held() == held
    phone.choose(GAME)


def test_a_wifi_without_a_reading_counts_as_slow(phone):
    """This Wi-Fi is a cable; some kernels have no Wi-Fi at all."""
    world.set_prop("vendor.sla.ifaces", PAIR)
    phone.start()
    phone.order((BSSIDS, "02:00:00:00:01:00"), GAME)
    for found in (r"dvx-netlink: .*GET_STATION|Wrong command", "poll interface = wlan0, rssi = 0",
                  r"rtt is [6-9]\d,device is wlan0", r"rtt is [1-5]?\d,device is rmnet_data0"):
        phone.wait_for(found)
    phone.order(STOPPED, GAME, STOPPED)
    assert not [line for line in phone.daemon.log if "poll interface = rmnet_data0" in line]


def test_an_access_point_that_nobody_has_told_is_not_asked_for(phone):
    """Of the built-in record nothing is known; it must not be slow for ever."""
    world.set_prop("vendor.sla.ifaces", "a b")
    phone.start()
    phone.choose(GAME)
    phone.order(STOPPED)
    assert not [line for line in phone.daemon.log if "poll interface" in line]


def test_a_probe_measures_what_a_handshake_takes(phone):
    """On links of different length, within 1 ms or 5 %; load only adds, so the least counts."""
    set_links(*(f"{link} delay {ms}" for link, ms in zip(LINKS, (1, 8, 30))))
    world.set_prop("vendor.sla.ifaces", ALL_LINKS)
    phone.start()
    phone.order((HIGH_RTT, "121"))
    for link in LINKS:
        curl = ["curl", "-so/dev/null", "-w%{time_connect} ", "--interface", link]
        took = map(float, subprocess.check_output([*curl, f"{WEB_SERVER}/[1-19]"]).split())
        least = pytest.approx(min(took) * 1000, abs=1, rel=0.05)
        line = re.compile(rf"rtt is (\d+),device is {link}$", re.MULTILINE)
        wait_until(lambda: least in [min(map(int, line.findall("\n".join(phone.daemon.log))
                                             or [9999]))], f"probes of {least} over {link}")
