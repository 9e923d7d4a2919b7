# SPDX-License-Identifier: Apache-2.0
"""A daemon that is killed at any moment, and what the next one makes of its ruins.

LNKD_ROUNDS=20 LNKD_SEED=7 scripts/test system killed
"""

import os
import random
import re
import subprocess
import time
from contextlib import suppress

import world
from lab.client import CALL_UID, GAME_UID
from lab.driver import ALL_LINKS, settled, wait_for_selection, wait_until
from lab.links import set_links

ROUNDS = int(os.environ.get("LNKD_ROUNDS", "5"))
SEED = int(os.environ.get("LNKD_SEED", "1"))
ORDERS = [(1, "10123,10456"), (7, "10200"), (2, ALL_LINKS), (2, "wlan0,rmnet_data1,rmnet_data0"),
          (5, str(GAME_UID)), (2, f"{ALL_LINKS},rmnet_data1"), (6, ""), (8, str(CALL_UID)),
          (1, "10123"), (2, ALL_LINKS)]


def begin(phone):
    set_links("wlan0 delay 2", "wlan1 delay 61", "rmnet_data0 delay 2")
    phone.start("alpha_percent=1\n")


def outcome(phone):
    """What the orders have come to: all rules, the numbers of the ratio chain aside."""
    phone.order(*ORDERS)
    wait_for_selection(CALL_UID, "wlan0")
    rules = settled()
    rules["zelk_SLA"] = [re.sub("probability [0-9.]+", "", rule) for rule in rules["zelk_SLA"]]
    return rules


def kill_within(phone, rng, seconds):
    """Gives the orders, then maybe lets a switch come, or a stop, and kills it at some moment."""
    end = time.monotonic() + rng.uniform(0, seconds)
    with suppress(TimeoutError), world.connect_control(end - time.monotonic()) as control:
        for order in ORDERS:
            world.send_message(control, *order)
        deed = rng.choice(
            [lambda: None, lambda: set_links("wlan0 delay 150"), phone.daemon.process.terminate])
        time.sleep(rng.uniform(0, max(0, end - time.monotonic())))
        deed()
        time.sleep(max(0, end - time.monotonic()))
    phone.daemon.process.kill()
    phone.daemon.process.wait()
    tools = ["pgrep", "-f", "/system/bin/"]
    wait_until(lambda: subprocess.run(tools, stdout=subprocess.DEVNULL).returncode == 1, "tools")


def test_a_run_over_the_ruins_of_a_killed_one_is_like_the_first(phone):
    """Killed at start, in an order, a switch or the teardown: same orders, same rules, none left."""
    with open("/etc/iproute2/rt_tables", "a", encoding="ascii") as tables:
        tables.write("1011 rmnet_data1\n")
    world.Ring("rmnet_data1")  # or each start would wait for its file
    rng = random.Random(SEED)
    since = time.monotonic()
    begin(phone)
    clean = outcome(phone)
    phone.stop()
    seconds = time.monotonic() - since
    for number in range(ROUNDS):
        begin(phone)
        kill_within(phone, rng, seconds)
        begin(phone)
        assert (number, outcome(phone)) == (number, clean)
        phone.stop()
