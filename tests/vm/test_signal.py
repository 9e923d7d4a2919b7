# SPDX-License-Identifier: Apache-2.0
"""A Wi-Fi whose signal falls and rises, that goes away and comes back, on the kernel's own
802.11 code."""

import json
import re
import subprocess
import time
from pathlib import Path

from lab.client import GAME_UID, Client, read_packets
from lab.driver import DEADLINE, wait_until
from lab.events import Observer
from lab.internet import WEB_SERVER, in_internet
from lab.vm import signal_report

GAME = f"{WEB_SERVER}:7000"
STATION, BSSID = "02:00:00:00:00:00", "02:00:00:00:01:00"
RADIO = Path("/sys/kernel/debug/ieee80211/phy1/hwsim/rx_rssi")  # the access point's
WINDOW_S = 12  # in which no second switch is made
INTERFACES, GAME_START, UPDATE_BSSID = 2, 5, 9
READING = r"poll interface = wlan0, rssi = (-?\d+)$"
PROBE = r"TCPing cacla rtt is (\d+),device is wlan0$"


def station():
    """What the kernel says of the access point; empty without one."""
    return subprocess.check_output(["iw", "dev", "wlan0", "station", "dump"], text=True)


def set_signal(dbm):
    RADIO.write_text(str(2**64 + dbm))
    wait_until(lambda: re.search(rf"signal:\s*{dbm} ", station()), f"signal {dbm}")


def doctor():
    """What it says of the Wi-Fi's signal."""
    run = subprocess.run(["lnkdctl", "doctor", "--json", "--no-probe", "--links=wlan0"],
                         stdout=subprocess.PIPE, check=False)
    return {need["thing"]: f"{need['state']} {need['found']}"
            for need in json.loads(run.stdout)["needs"] if need["subject"] == "Wi-Fi signal"}


def access_point(*command):
    in_internet(["hostapd_cli", "-p/run/hostapd", *command], check=True, capture_output=True)


def start(phone, conf="", bssid=BSSID):
    # As brisk as elsewhere it would leave this slow machine no time for anything else.
    phone.start(f"ping_interval_ms=100\nmini_est_interval=200\n{conf}")
    phone.order((INTERFACES, "wlan0,rmnet_data0"), (UPDATE_BSSID, bssid),
                (GAME_START, str(GAME_UID)))


def logged(phone, pattern, count):
    """The next `count` numbers that the daemon logs there."""
    since = len(phone.daemon.log)
    numbers = []

    def found():
        numbers[:] = re.findall(pattern, "\n".join(phone.daemon.log[since:]), re.MULTILINE)
        return len(numbers) >= count

    wait_until(found, pattern)
    return [int(number) for number in numbers[:count]]


def reading_and_penalty(phone, dbm):
    """The daemon's reading of a signal, and the step of the table that probes then get on top."""
    reading = logged(phone, READING, 1)[0]
    if reading != dbm:  # that one was asked for before
        reading = logged(phone, READING, 1)[0]
    # The first one may have begun before. A busy machine makes some of them slow, but none fast.
    rtt = min(logged(phone, PROBE, 4)[1:])
    return reading, max(step for step in (0, 60, 120, 300) if step <= rtt)


def penalty(dbm):
    return 0 if -64 <= dbm < 0 else 60 if dbm >= -75 else 120 if dbm >= -85 else 300


def test_the_signal_becomes_a_penalty(phone):
    set_signal(-40)
    start(phone)
    steps = (*range(-40, -90, -5), *range(-90, -39, 10))
    found = []
    for dbm in steps:
        set_signal(dbm)
        found.append((dbm, *reading_and_penalty(phone, dbm)))
    assert found == [(dbm, dbm, penalty(dbm)) for dbm in steps]


def test_a_game_leaves_a_weak_wifi_while_it_still_delivers_and_returns(phone):
    """A walk away from the access point and back, a step with each reading."""
    set_signal(-50)
    start(phone, f"alpha_percent=20\nt_hyst_s={WINDOW_S}\nn_hyst=1\n")
    player = Client("game", GAME)

    def wait_to_play_on(link):
        """Until both of the game's sockets do."""
        wait_until(lambda: f"on {link}," in player.line(), f"the game on {link}")

    def walk(*steps):
        for dbm in steps:
            set_signal(dbm)
            logged(phone, READING, 1)

    try:
        wait_to_play_on("wlan0")
        phone.daemon.wait_for("time elapsed", DEADLINE, len(phone.daemon.log))  # free to switch
        begin, first = time.time(), len(phone.daemon.log)
        walk(*range(-50, -91, -5))
        wait_to_play_on("rmnet_data0")
        walk(*range(-80, -49, 10))
        wait_to_play_on("wlan0")
    finally:
        player.end()
    end = time.time() - begin
    observer = Observer(phone.daemon.log, begin)
    events = observer.catch_up()
    events.packets["game"] = [p._replace(sent=p.sent - begin) for p in read_packets(player.file)
                              if p.sent >= begin]
    readings = [(observer.time(line), int(match[1])) for line in phone.daemon.log[first:]
                if (match := re.search(READING, line))]
    signal_report.write_page(Path("/results/signal.html"), events, readings,
                             [(when, penalty(dbm)) for when, dbm in readings], end)
    (left, to), (returned, back) = [switch for switch in events.switches if switch[0] > 0]
    assert (to, back, returned - left >= WINDOW_S) == ("rmnet_data0", "wlan0", True)
    # The answers to what was sent last before the switch died with the sockets.
    assert {p.link for p in events.packets["game"] if p.sent < left - 0.2} == {"wlan0"}


def test_a_wifi_that_goes_away(phone):
    """There is no reading, a penalty for that, and one line each time; then it is back. In the end
    it takes the radio with it, so this is the last test on its machine."""
    set_signal(-50)
    start(phone, bssid="02:00:00:00:02:00")  # an access point that it has left
    assert reading_and_penalty(phone, 0) == (0, 60)
    phone.order((UPDATE_BSSID, BSSID))
    assert reading_and_penalty(phone, -50) == (-50, 0)
    assert doctor() == {"nl80211": "ok nl80211", "wlan0": "ok wlan0: -50 dBm"}

    access_point("deny_acl", "ADD_MAC", STATION)
    access_point("deauthenticate", STATION)
    wait_until(lambda: not station(), "disassociation")
    assert doctor()["wlan0"] == "unknown wlan0: not connected to an access point"
    logged(phone, READING, 1)  # may have been asked for before
    since = len(phone.daemon.log)
    assert logged(phone, READING, 3) == [0] * 3
    whole = re.split(READING, "\n".join(phone.daemon.log[since:]), 3, re.MULTILINE)
    assert len(re.findall("E dvx-netlink: ", "".join(whole[:-1]))) == 3
    access_point("deny_acl", "DEL_MAC", STATION)
    wait_until(station, "association")
    assert reading_and_penalty(phone, -50) == (-50, 0)

    subprocess.run(["/busybox", "rmmod", "mac80211_hwsim"], check=True)  # in the middle of it all
    logged(phone, READING, 1)
    assert logged(phone, READING, 3) == [0] * 3
    phone.order()
