# SPDX-License-Identifier: Apache-2.0
import random
import socket
import subprocess
import time

import world
from lab import web
from lab.client import Client
from lab.driver import ALL_LINKS, gate
from lab.internet import GAME_SERVER, WEB_SERVER, slow_down_probes
from lab.links import LINKS, set_links
from lab.steering import kernel

STORM_S = 5
TEXTS = ["0", "1", "x", "NULL", "10123", "10456", "123456", "aa:bb:cc:dd:ee:ff", "1.2.3.4", ""]
FORTY = [f"rmnet_data{n}" for n in range(40)]
WORDS = {2: [*LINKS, "usb0", "a;b", ""], 4: ["300"], 5: ["10200", "10123"], 8: ["10123", "0"]}


def test_storm_of_messages_with_traffic(phone):
    """Every message as fast as it is taken, passes without pause, a game whose probes drip, then a
    stop while a tool hangs."""
    for name in FORTY:
        world.Ring(name)  # or each start of the statistics would wait for its file
    phone.start("ping_interval_ms=1\nmini_est_interval=1\nmin_ratio_change=0\n")
    web.make_file("file", 1 << 20)
    loop = f"while :; do curl -s -m 1 -o /dev/null http://{WEB_SERVER}/file; done"
    traffic = [subprocess.Popen(["sh", "-c", loop], user=10123) for _ in range(3)]
    game = Client("game", f"{GAME_SERVER}:7000")
    rng = random.Random(12)
    phone.order()
    phone.control.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1)  # a short queue
    end = time.monotonic() + STORM_S
    while time.monotonic() < end:
        number = rng.choice([1, 2, 2, 2, 5, 5, 6, 8, 8, *range(20)])
        words = WORDS.get(number, TEXTS)
        some = rng.sample(words, rng.randint(0, min(5, len(words))))
        names = FORTY if number == 2 and rng.random() < 0.03 else some
        world.send_message(phone.control, number, ",".join(names))
    slow_down_probes("drip")
    phone.order((2, ""), (2, ALL_LINKS), (6, ""), (5, "10200"))
    assert phone.daemon.process.poll() is None and len(kernel()["policy"]) == 3
    log = "\n".join(phone.daemon.log)
    seen = ("TCPing cacla", "map server is", "perform switch", "Destroyed", "m_slsInterfaceMap del")
    assert [line for line in seen if line not in log] == []
    with gate("-A zelk_SLS") as reached:
        set_links("wlan0 down")
        reached()
        phone.stop()
    for process in (*traffic, game.process):
        process.kill()
