#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A game, or a call, as its server and its player see it.

Sends 30 lines a second on a TCP and a UDP socket (a call: UDP only), measures how long each
answer takes, learns from it by which link the server saw it, and connects again at once when
a socket dies or says nothing for a second (or --patience). An answer after more than a second
is none. Prints a line a second. When standard input is a pipe, ADDRESS:PORT on it moves the
game to another server, and its end ends it.
"""

import argparse
import os
import select
import socket
import stat
import statistics
import sys
import time
from pathlib import Path
from typing import TextIO

sys.path[0] = str(Path(__file__).resolve().parents[1])

from lab.client import Packet  # noqa: E402
from lab.links import LINKS  # noqa: E402

TICK_S = 1 / 30
ANSWER_S = 1.0  # what comes later is of no use
LINK_OF = {link.address: link.name for link in LINKS.values()}


class Flow:
    """One socket to the server and the lines that are on their way."""

    def __init__(self, kind: str, protocol: str, server: tuple[str, int], patience: float):
        self.kind = kind
        self.patience = patience
        self.protocol = protocol
        self.server = server
        self.link = "-"
        self.reconnects = -1
        self.done: list[Packet] = []
        self.number = 0
        self.sent: dict[int, float] = {}
        self.rest = b""
        self.sock: socket.socket | None = None
        self.connect()

    def connect(self) -> None:
        if self.sock:
            self.sock.close()
        for when in self.sent.values():
            self.lose(when)
        self.sent.clear()
        self.rest = b""
        self.heard = time.time()
        self.reconnects += 1
        stream = self.protocol == "tcp"
        self.sock = socket.socket(type=socket.SOCK_STREAM if stream else socket.SOCK_DGRAM)
        self.sock.setblocking(False)
        if stream:
            self.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        try:
            self.sock.connect(self.server)
        except OSError:  # on its way, or refused, which the next receive or send will say
            pass

    def lose(self, when: float) -> None:
        self.done.append(Packet(when, self.protocol, ANSWER_S * 1000, "lost"))

    def send(self, now: float) -> None:
        assert self.sock
        while self.sent and now - next(iter(self.sent.values())) > ANSWER_S:
            self.lose(self.sent.pop(next(iter(self.sent))))
        if now - self.heard > self.patience:
            self.connect()
        self.number += 1
        try:
            self.sock.send(f"{self.kind} {self.number}\n".encode())
            self.sent[self.number] = now
        except BlockingIOError:  # still connecting, or nothing gets out
            self.lose(now)
        except OSError:
            self.lose(now)
            self.connect()

    def receive(self) -> None:
        assert self.sock
        try:
            data = self.sock.recv(65536)
            if not data:
                raise ConnectionResetError
        except BlockingIOError:
            return
        except OSError:
            self.connect()
            return
        self.heard = time.time()
        *lines, self.rest = (self.rest + data).split(b"\n")
        for line in lines:
            _, number, address = line.decode().split()
            sent = self.sent.pop(int(number), None)
            if sent:
                self.link = LINK_OF.get(address, address)
                rtt = (self.heard - sent) * 1000
                self.done.append(Packet(sent, self.protocol, rtt, self.link))


def summary(flows: list[Flow], packets: list[Packet]) -> str:
    times = [packet.rtt for packet in packets if not packet.lost]
    middle, worst = (statistics.median(times), max(times)) if times else (0, 0)
    seen = {flow.link for flow in flows}
    where = seen.pop() if len(seen) == 1 else ", ".join(f"{f.link} ({f.protocol})" for f in flows)
    return (f"{time.time():.1f}  {middle:4.0f} ms, max {worst:3.0f}, "
            f"lost {len(packets) - len(times):2}, on {where}, "
            f"reconnects {sum(flow.reconnects for flow in flows)}")


def play(flows: list[Flow], out: TextIO | None) -> None:
    tick = second = time.time()
    recent: list[Packet] = []
    # A game in the background of a shell must not touch the terminal.
    orders = [sys.stdin] if stat.S_ISFIFO(os.fstat(0).st_mode) else []
    while True:
        wait = max(0.0, tick - time.time())
        readable = select.select([*orders, *(flow.sock for flow in flows)], [], [], wait)[0]
        for flow in flows:
            if flow.sock in readable:
                flow.receive()
        if sys.stdin in readable:
            target = sys.stdin.readline().strip()
            if not target:
                return
            for flow in flows:
                flow.server = parse_server(target)
                flow.connect()
        now = time.time()
        if now >= tick:
            tick += TICK_S
            for flow in flows:
                flow.send(now)
        for flow in flows:
            if out:
                out.writelines(f"{p.sent:.4f} {p.protocol} {p.rtt:.1f} {p.link}\n"
                               for p in flow.done)
            recent += flow.done
            flow.done.clear()
        if now >= second + 1:
            second += 1
            print(summary(flows, recent), flush=True)
            recent.clear()


def parse_server(text: str) -> tuple[str, int]:
    address, port = text.rsplit(":", 1)
    return address, int(port)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("server", metavar="ADDRESS:PORT", type=parse_server)
    parser.add_argument("--uid", type=int, default=10200, help="whose sockets they are")
    parser.add_argument("--call", action="store_true", help="UDP only, as a call")
    parser.add_argument("--patience", type=float, default=1.0, metavar="S",
                        help="with a silent socket, or one that does not connect (default: 1)")
    parser.add_argument("--packets", help="a file for one line a packet")
    args = parser.parse_args()
    out = open(args.packets, "w", encoding="ascii") if args.packets else None
    os.setresgid(args.uid, args.uid, args.uid)
    os.setresuid(args.uid, args.uid, args.uid)
    kind, protocols = ("call", ["udp"]) if args.call else ("game", ["tcp", "udp"])
    play([Flow(kind, protocol, args.server, args.patience) for protocol in protocols], out)


main()
