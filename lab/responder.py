#!/usr/bin/python3 -IS
# SPDX-License-Identifier: Apache-2.0
"""The probe's, the games' and the calls' server, over TCP and UDP.

    responder.py LOG ADDRESS:PORT[/MANNER]...

A line, such as a game sends, comes back with the address it was sent from, so that the
sender learns by which link it was seen. Anything else on TCP is answered with as much as
a probe waits for, or, in the manner "drip", with less, and in the manner "silent" not at
all. LOG gets a line for each TCP connection that has ended: the client's
address, the time it began, its seconds, the bytes it sent, the server, and the first word
of its lines, or "probe" if it sent none.
"""

import selectors
import socket
import sys
import time

ANSWER = b"." * 60  # as much as a probe waits for, so it never has to time out
ANSWERS = {"": ANSWER, "drip": ANSWER[:4], "silent": b""}


def answer(line: bytes, address: str) -> bytes:
    return (line + b" " + address.encode()).ljust(len(ANSWER)) + b"\n"


class Connection:
    def __init__(self, sock: socket.socket, server: str):
        sock.setblocking(False)
        # An answer that waited for an acknowledgement would look like a slow link.
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.sock = sock
        self.server, _, manner = server.partition("/")
        self.answer = ANSWERS[manner]
        self.address = sock.getpeername()[0]
        self.begin = time.time()
        self.received = 0
        self.kind = "probe"
        self.rest = b""  # of a line

    def serve(self) -> bool:
        """Answers what has come; false when the connection is over."""
        try:
            data = self.sock.recv(4096)
            self.received += len(data)
            if b"\n" in data and self.kind == "probe":
                self.kind = data.split()[0].decode(errors="replace")
            if self.kind == "probe":
                return bool(data) and self.sock.send(self.answer) == len(self.answer)
            *lines, self.rest = (self.rest + data).split(b"\n")
            self.sock.send(b"".join(answer(line, self.address) for line in lines))
            return bool(data)
        except OSError:
            return False

    def __str__(self) -> str:
        return (f"{self.address} {self.begin:.3f} {time.time() - self.begin:.3f} "
                f"{self.received} {self.server} {self.kind}\n")


def bound(kind: socket.SocketKind, target: str) -> socket.socket:
    address, port = target.split("/")[0].rsplit(":", 1)
    server = socket.socket(socket.AF_INET, kind)
    server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    server.bind((address, int(port)))
    return server


def main() -> None:
    selector = selectors.DefaultSelector()
    log = open(sys.argv[1], "a", buffering=1, encoding="ascii")
    for target in sys.argv[2:]:
        listener = bound(socket.SOCK_STREAM, target)
        listener.listen(512)
        selector.register(listener, selectors.EVENT_READ, target)
        selector.register(bound(socket.SOCK_DGRAM, target), selectors.EVENT_READ, "udp")
    print("ready", flush=True)
    while True:
        for key, _ in selector.select():
            sock = key.fileobj
            assert isinstance(sock, socket.socket)
            try:
                if key.data == "udp":
                    text, peer = sock.recvfrom(4096)
                    sock.sendto(answer(text.rstrip(b"\n"), peer[0]), peer)
                elif isinstance(key.data, str):
                    client = sock.accept()[0]
                    selector.register(client, selectors.EVENT_READ, Connection(client, key.data))
            except OSError:
                continue  # the client is gone already
            if isinstance(key.data, Connection) and not key.data.serve():
                selector.unregister(sock)
                sock.close()
                log.write(str(key.data))


main()
