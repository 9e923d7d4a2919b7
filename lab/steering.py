# SPDX-License-Identifier: Apache-2.0
"""What the kernel says that the daemon has built, and link rates for the daemon to see."""

import re
import subprocess
import time
from pathlib import Path

import world


def kernel() -> dict[str, list[str]]:
    """All rules by chain, and the policy rules; empty when there is nothing of the daemon."""
    rules = subprocess.check_output(["ip", "-4", "rule"], text=True)
    policy = re.findall("^30000:\tfrom all (.*?) *$", rules, re.MULTILINE)
    found = {"policy": policy} if policy else {}
    for table in ("mangle", "nat"):
        listing = subprocess.check_output(["iptables", "-w", "-t", table, "-S"], text=True)
        for kind, chain, *rule in (line.split(" ", 2) for line in listing.splitlines()):
            if kind != "-P":
                found.setdefault(chain, []).extend(rule)
    return found


def steered() -> list[str]:
    """The links that have a mark chain, a policy rule and masquerading, each exactly once."""
    rules = kernel()
    links = sorted(rule.split()[-1] for rule in rules.get("policy", []))
    assert sorted(rule.split()[1] for rule in rules["zelk_nat_POSTROUTING_DVX"]) == links
    assert set(re.findall(r"zelk_fw_(.*?)(?:_wrapper)?(?: |$)", " ".join(rules))) == set(links)
    return links


def shares() -> dict[str, float]:
    """Each link's share of new connections, in the order of the rules that give it."""
    found, left = {}, 1.0
    for rule in kernel()["zelk_SLA"]:
        found[rule.split("zelk_fw_")[1].removesuffix("_wrapper")] = share = (
            left * float(rule.split("probability ")[1].split()[0]))
        left -= share
    return found


def set_rates(**rates: int) -> None:
    """Takes the module's place: links look this fast for good, in kbit/s, 1995 at most, in fives.

    To be used with a mini_stale_interval (ms) that outlasts the test.
    """
    Path("/proc/sla/config").write_bytes(b"enable=0\0")
    world.wait_until(lambda: world.statistics_commands()[-1] == "enable=0", what="module's end")
    start = time.time_ns() // 10**6 - 500
    for link, rate in rates.items():
        world.Ring(link).write([(start, 0, world.REFERENCE, 0)] + [
            (start + 100 * i, rate * 64 // 5, world.SAMPLE, 0) for i in range(1, 6)])
