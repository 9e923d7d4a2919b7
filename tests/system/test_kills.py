# SPDX-License-Identifier: Apache-2.0
"""A daemon that is killed at any moment, and what the next one makes of its ruins.

LNKD_ROUNDS=20 LNKD_SEED=7 scripts/test system killed
"""

import os
import random
import re
import subprocess
import sys
import time
from contextlib import suppress

import world
from lab.client import CALL_UID, GAME_UID
from lab.driver import ALL_LINKS, settled, wait_for_selection, wait_until
from lab.links import set_links
from lab.steering import kernel

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


def wait_for_tools():
    tools = ["pgrep", "-f", "/system/bin/"]
    wait_until(lambda: subprocess.run(tools, stdout=subprocess.DEVNULL).returncode == 1, "tools")


def clean(*options):
    run = subprocess.run(["lnkdctl", "clean", *options], stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True)
    return run.returncode, run.stdout


def test_a_run_over_the_ruins_of_a_killed_one_is_like_the_first(phone):
    """Killed at start, in an order, a switch or the teardown: same orders, same rules, none left.
    Every other time the ruins are cleared away first, at once, under a tool that still runs."""
    with open("/etc/iproute2/rt_tables", "a", encoding="ascii") as tables:
        tables.write("1011 rmnet_data1\n")
    world.Ring("rmnet_data1")  # or each start would wait for its file
    rng = random.Random(SEED)
    since = time.monotonic()
    begin(phone)
    undisturbed = outcome(phone)
    phone.stop()
    seconds = time.monotonic() - since
    for number in range(ROUNDS):
        begin(phone)
        kill_within(phone, rng, seconds)
        if number % 2 == 0:
            wait_for_tools()
        else:
            status, said = clean()
            wait_for_tools()
            assert (number, status, kernel()) == (number, 0, {}), said
        begin(phone)
        assert (number, outcome(phone)) == (number, undisturbed)
        phone.stop()


FOREIGN = ["iptables -w -t mangle -N mine", "iptables -w -t mangle -A OUTPUT -p tcp -j mine",
           "ip -4 rule add fwmark 0x99 table main prio 30000",
           "ip -4 rule add fwmark 0x5a/0xff table main prio 30000",
           "ip -4 rule add fwmark 0x5a ipproto tcp dport 80 table main prio 30000",
           "ip -4 rule add fwmark 0x5a suppress_prefixlength 0 table main prio 30000",
           "ip -4 rule add fwmark 0x5a table main prio 29999"]
LISTINGS = ["iptables -w -t mangle -S", "iptables -w -t nat -S", "ip -4 rule"]


def listed():
    return [subprocess.check_output(listing.split(), text=True) for listing in LISTINGS]


def test_what_a_killed_run_left_is_removed_and_nothing_else(phone):
    """Not under a running daemon; not by --dry-run; then all of it, also what somebody doubled."""
    for command in FOREIGN:
        subprocess.run(command.split(), check=True)
    bare = listed()
    phone.start()
    phone.choose((1, "10123"), (2, ALL_LINKS), (5, str(GAME_UID)))
    rules = settled()
    assert (clean()[0], kernel()) == (3, rules)
    phone.daemon.process.kill()
    phone.daemon.process.wait()
    for command in ("iptables -w -t mangle -I OUTPUT -j zelk_DVX_wapper",
                    "iptables -w -t mangle -A mine -p tcp -m comment --comment",
                    "ip -4 rule add fwmark 0x5A table 1012 prio 30000"):
        words = command.split()
        words += ["it's \"ours\"", "-g", "zelk_DVX"] if words[-1] == "--comment" else []
        subprocess.run(words, check=True)
    ruins = listed()
    status, said = clean("--dry-run")
    assert (status, listed()) == (1, ruins)
    assert [said.count(word) for word in ("hook", "chain: ", "policy rule: mark 0x5", "0x99")] == [
        4, sum(name.startswith("zelk_") for name in rules), 4, 1]
    assert (clean()[0], listed()) == (0, bare)
    assert clean() == (0, "left alone: policy rule: mark 0x99 to table main; not a mark of lnkd's, "
                          "--mark says that it is\nNothing of lnkd's is left.\n")
    assert (clean("--mark=0x99")[0], "0x99" in listed()[2]) == (0, False)
    for command in ("iptables -w -t mangle -F", "iptables -w -t mangle -X",
                    *["ip -4 rule del prio 30000"] * 3):
        subprocess.run(command.split(), check=True)
    phone.start()
    phone.order()  # it runs, and ends as others do, with nothing left


HOLDER = """
import fcntl, sys
open("/proc/self/comm", "w").write("lnkdctl")
lock = open("/dev/socket/lnkd.lock", "w")
fcntl.lockf(lock, fcntl.LOCK_EX)
print("held", flush=True)
sys.stdin.read()
"""


def test_a_clean_at_work_is_not_taken_for_the_daemon():
    with subprocess.Popen([sys.executable, "-c", HOLDER], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE) as holder:
        assert holder.stdout.readline() == b"held\n"
        at_work = f'"lnkdctl clean" is at work (process {holder.pid})'
        assert clean() == (3, f"lnkdctl clean: {at_work}: nothing is removed\n")
        said = subprocess.run(["lnkdctl", "status"], stdout=subprocess.PIPE, text=True).stdout
        assert at_work in said and "running since" not in said
        holder.stdin.close()
