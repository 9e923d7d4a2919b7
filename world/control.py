# SPDX-License-Identifier: Apache-2.0
"""The daemon's control socket."""

import socket
import struct

from world.waiting import wait_until

CONTROL_SOCKET = "/dev/socket/lnkd"
# Numbers of messages.
SET_WHITELIST, UPDATE_INTERFACES, START_GAME, STOP_GAME = 1, 2, 5, 6
SET_DOUBLE_WLAN, VOIP_STATUS, SET_METERED = 7, 8, 18


def connect_control(deadline: float = 5.0, root: str = "") -> socket.socket:
    """Connects to the control socket as soon as it is there. The daemon serves one connection.

    `root` is the world's root directory, for who is not in it.
    """

    def attempt() -> socket.socket | None:
        client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            client.connect(root + CONTROL_SOCKET)
            return client
        except (FileNotFoundError, ConnectionRefusedError):
            client.close()
            return None

    client = wait_until(attempt, deadline, "control socket")
    assert client
    return client


def send_message(sock: socket.socket, number: int, text: str | bytes,
                 length: int | None = None) -> None:
    """Sends one control message; `length` is for lies about the text's length."""
    data = text.encode() if isinstance(text, str) else text
    sock.sendall(struct.pack("=ii1024s", number, len(data) if length is None else length, data))
