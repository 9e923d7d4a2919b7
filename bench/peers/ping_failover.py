#!/usr/bin/python3 -IS
# SPDX-License-Identifier: Apache-2.0
"""Failover by ping, as gateway monitors do it, with the thresholds that they have by default.

    ping_failover.py averages|tests ADDRESS

Pings ADDRESS over the first link, and moves the default route to the other one and back. Prints
"down" or "up" with the time whenever it does.

"averages" has dpinger's numbers, as firewalls start it: a ping each 500 ms, lost after 2 s; down
when over the last minute more than 20 % were lost or the average took more than 500 ms, which is
looked at once a second. It behaves as if it had run for a minute when it starts.

"tests" has mwan3's: a ping each 10 s, which is answered within 4 s, or has failed; down after 5
that failed in a row, up after 5 that did not. How long an answer took does not matter.
"""

import os
import random
import select
import socket
import struct
import subprocess
import sys
import time

FIRST, OTHER = ("10.10.1.1", "wlan0"), ("10.10.3.1", "rmnet_data0")

SEND_S, LOST_S, MEMORY_S, LOOK_S = 0.5, 2.0, 60.0, 1.0
LOSS_LIMIT, AVERAGE_LIMIT_S = 0.20, 0.500
TEST_S, ANSWER_S, FAILURES, SUCCESSES = 10.0, 4.0, 5, 5


class Pings:
    def __init__(self, address: str):
        self.address = address
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, FIRST[1].encode())
        self.number = 0

    def send(self) -> int:
        self.number += 1
        content = struct.pack("!HH48x", os.getpid() & 0xFFFF, self.number)
        total = sum(struct.unpack(f"!{len(content) // 2}H", content)) + 0x0800
        total = (total & 0xFFFF) + (total >> 16)
        packet = struct.pack("!BBH", 8, 0, ~(total + (total >> 16)) & 0xFFFF) + content
        self.socket.sendto(packet, (self.address, 0))
        return self.number

    def answers(self, until: float) -> "list[tuple[int, float]]":
        """Numbers of those answered by then, or one of them as soon as there is one."""
        while (left := until - time.monotonic()) > 0:
            if select.select([self.socket], [], [], left)[0]:
                kind, identity, number = struct.unpack_from("!B3xHH", self.socket.recv(2048), 20)
                if kind == 0 and identity == os.getpid() & 0xFFFF:
                    return [(number, time.monotonic())]
        return []


def move(down: bool) -> None:
    gateway, device = OTHER if down else FIRST
    subprocess.run(["ip", "route", "replace", "default", "via", gateway, "dev", device], check=True)
    print("down" if down else "up", time.time(), flush=True)


def by_averages(pings: Pings) -> None:
    sent: dict[int, float] = {}
    times: dict[int, float] = {}
    down, tick, look = False, time.monotonic(), time.monotonic() + LOOK_S
    while True:
        now = time.monotonic()
        if now >= tick:
            tick += SEND_S
            sent[pings.send()] = now
        for number, when in pings.answers(min(tick, look)):
            if number in sent:
                times[number] = when - sent[number]
            if len(times) == 1:  # the minute before is taken to have been like this
                for before in range(1, int(MEMORY_S / SEND_S)):
                    sent[-before] = now - before * SEND_S
                    times[-before] = times[number]
        now = time.monotonic()
        if now >= look:
            look += LOOK_S
            for number in [number for number, when in sent.items() if when < now - MEMORY_S]:
                sent.pop(number)
                times.pop(number, None)
            lost = sum(number not in times and when < now - LOST_S
                       for number, when in sent.items())
            average = sum(times.values()) / len(times) if times else 0
            over = lost > LOSS_LIMIT * len(sent) or average > AVERAGE_LIMIT_S
            if over != down:
                down = over
                move(down)


def by_tests(pings: Pings) -> None:
    down, streak = False, 0
    time.sleep(random.uniform(0, TEST_S))  # a change comes at any time between two tests
    while True:
        number, until, answered = pings.send(), time.monotonic() + ANSWER_S, False
        while not answered and (came := pings.answers(until)):
            answered = came[0][0] == number
        streak = streak + 1 if answered == down else 0
        if streak == (SUCCESSES if down else FAILURES):
            down, streak = not down, 0
            move(down)
        time.sleep(TEST_S)


def main() -> None:
    kind, address = sys.argv[1:]
    {"averages": by_averages, "tests": by_tests}[kind](Pings(address))


main()
