# SPDX-License-Identifier: Apache-2.0
import struct

import world
from lab.driver import unread, wait_until
from lab.steering import kernel, steered

MESSAGE = struct.Struct("=ii1024s")
INT_MIN, INT_MAX = -(2**31), 2**31 - 1


def test_hostile_messages_do_no_harm(phone):
    """Each leaves a daemon that obeys the next good one; what is whole enough is obeyed itself."""
    phone.start()
    phone.order()
    unknown = (0, 3, *range(10, 18), 19, -1, INT_MIN, INT_MAX)
    for name, pieces, wanted in (
        ("unknown numbers", [MESSAGE.pack(n, 5, b"wlan0") for n in unknown], []),
        *((n, [MESSAGE.pack(2, n, b"wlan0")], []) for n in (1024, INT_MAX)),
        *((n, [MESSAGE.pack(2, n, b"wlan0")], ["wlan0"]) for n in (1023, -1, INT_MIN)),
        ("no end of text", [MESSAGE.pack(n, 5, b"w" * 1024) for n in (1, 2, 7, 9, 18)], []),
        ("all bits set", [b"\xff" * 8 * 1032], []),
        ("1 byte", [MESSAGE.pack(0, 5, b"wlan0"), b"\2"], ["wlan0"]),
        ("8 bytes", [MESSAGE.pack(0, 5, b"wlan1"), struct.pack("=ii", 2, 5)], ["wlan1"]),
        ("1031 bytes", [MESSAGE.pack(2, 5, b"wlan0")[:-1]], ["wlan0"]),
    ):
        for piece in pieces:
            phone.control.sendall(piece)
            wait_until(lambda: unread(phone.control) == 0, f"receipt of {name}")
        phone.order()
        assert (name, steered()) == (name, wanted)
        phone.order((2, "rmnet_data0"))
        assert (name, steered()) == (name, ["rmnet_data0"])
        phone.order((2, ""))


def test_only_the_first_client_is_served(phone):
    """Not a second one beside it, nor one after it has gone in the middle of a message."""
    phone.start()
    phone.order((2, "wlan1"))
    with world.connect_control() as second:
        world.send_message(second, 2, "wlan0")
        phone.order()
        phone.control.sendall(MESSAGE.pack(2, 11, b"rmnet_data0")[:500])
        phone.control.close()
        wait_until(lambda: kernel().get("policy") == ["fwmark 0x5c lookup rmnet_data0"], "links")
        phone.wait_for("preinterfacelist is rmnet_data0")
        assert unread(second) > 0
