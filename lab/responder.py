#!/usr/bin/python3 -IS
# SPDX-License-Identifier: Apache-2.0
"""Answers whatever arrives on a TCP connection with 60 bytes: the probe's and the games' server.

    responder.py ADDRESS:PORT...
"""

import selectors
import socket
import sys

ANSWER = b"." * 60  # as much as a probe waits for, so it never has to time out


def listen(target: str) -> socket.socket:
    address, port = target.rsplit(":", 1)
    server = socket.socket()
    server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    # The address may come a moment later than this program.
    server.setsockopt(socket.IPPROTO_IP, 15, 1)  # IP_FREEBIND
    server.bind((address, int(port)))
    server.listen(512)
    return server


def main() -> None:
    selector = selectors.DefaultSelector()
    for target in sys.argv[1:]:
        selector.register(listen(target), selectors.EVENT_READ, "server")
    print("ready", flush=True)
    while True:
        for key, _ in selector.select():
            sock = key.fileobj
            assert isinstance(sock, socket.socket)
            if key.data == "server":
                client = sock.accept()[0]
                client.setblocking(False)
                selector.register(client, selectors.EVENT_READ)
                continue
            try:
                alive = bool(sock.recv(4096)) and sock.send(ANSWER) > 0
            except OSError:
                alive = False
            if not alive:
                selector.unregister(sock)
                sock.close()


main()
