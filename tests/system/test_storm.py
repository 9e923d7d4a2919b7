# SPDX-License-Identifier: Apache-2.0
import random
import subprocess
import time

import world
from phone import ALL_LINKS
from steering import kernel

STORM_S = 4
TEXTS = ["0", "1", "x", "NULL", "10123", "10456", "123456", "aa:bb:cc:dd:ee:ff", "1.2.3.4", ""]


def test_storm_of_messages_with_traffic(phone):
    """Every message as fast as it is taken, passes without pause, downloads, then a stop."""
    phone.start("ping_interval_ms=1\nmini_est_interval=1\nmin_ratio_change=0\n")
    world.make_file("file", 1 << 20)
    loop = f"while :; do curl -s -m 1 -o /dev/null http://{world.WEB_SERVER}/file; done"
    traffic = [subprocess.Popen(["sh", "-c", loop], user=10123) for _ in range(3)]
    rng = random.Random(12)
    phone.order()
    end = time.monotonic() + STORM_S
    while time.monotonic() < end:
        number = rng.choice([1, 2, 2, 2, *range(20)])
        words = [*world.LINKS, "usb0", "a;b", ""] if number == 2 else TEXTS
        text = ",".join(rng.sample(words, rng.randint(0, 5)))
        world.send_message(phone.control, number, text)
    phone.order((2, ""), (2, ALL_LINKS))
    assert phone.daemon.process.poll() is None and len(kernel()["policy"]) == 3
    for process in traffic:
        process.kill()
