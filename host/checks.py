# SPDX-License-Identifier: Apache-2.0
"""What keeps a run from being begun."""

import json
import os
import shutil
import subprocess
from collections.abc import Sequence
from typing import Any

from host import Refusal
from host.changes import COMMENT, FILTER
from host.lanes import Lane
from host.uplinks import Uplink

TOOLS = {"ip": "iproute2", "nft": "nftables", "iptables": "iptables", "sysctl": "procps",
         "unshare": "util-linux", "nsenter": "util-linux"}
LIST_DIGITS = 5  # of a UID in the daemon's lists; a game's may be longer
TRIAL = """
ip link add lnkdh-0 type veth peer name wlan0
nft -f - <<'RULES'
add table ip lnkd_host
add chain ip lnkd_host nat { type nat hook postrouting priority srcnat ; }
add rule ip lnkd_host nat masquerade
RULES
iptables-restore <<'RULES'
*mangle
-A OUTPUT -p tcp -m multiport --dports 80 -m statistic --mode random --probability 0.5 -j ACCEPT
-A OUTPUT -m state --state NEW -m owner --uid-owner 0 -j MARK --set-mark 1
-A OUTPUT -j CONNMARK --save-mark
COMMIT
*nat
-A POSTROUTING -j MASQUERADE
COMMIT
RULES
"""


def privilege() -> None:
    if os.geteuid() != 0:
        raise Refusal("only root can change routes: use sudo")


def tools() -> None:
    for tool, package in TOOLS.items():
        if not shutil.which(tool):
            raise Refusal(f"{tool} is not on the PATH: apt-get install {package}")


def kernel() -> None:
    """Tries what the kernel has to have, in a network namespace of its own."""
    trial = subprocess.run(["unshare", "--net", "sh", "-e"], input=TRIAL, text=True,
                           capture_output=True)
    if trial.returncode != 0:
        reason = " ".join(trial.stderr.split())
        raise Refusal(f"this kernel lacks veth, masquerading or a match of iptables: {reason}")


def uplinks(lanes: Sequence[Lane], machine: dict[str, Uplink], force: bool, waits: bool) -> None:
    """`waits`: for a world that stays, uplinks may come later."""
    for lane in lanes if not waits else ():
        if lane.device not in machine:
            names = " ".join(machine) or "none"
            raise Refusal(f"device {lane.device}: there is none of that name (there are: {names})")
    if not lanes:
        raise Refusal("no device has a default route: nothing to use (see --list)")
    if force or waits:
        return
    if len(lanes) < 2:
        raise Refusal(f"{lanes[0].device} is the only uplink, there is nothing to choose from; "
                      "--force goes on")
    for lane in lanes:
        if not machine[lane.device].routed:
            raise Refusal(f"{lane.device} has no default route; connect it, or --force goes on "
                          "and waits for it")


def modems(given: Sequence[str], machine: dict[str, Uplink]) -> None:
    for device in given:
        if device not in machine:
            raise Refusal(f"modem {device}: there is no device of that name")


def steered(uid: int, game: bool) -> None:
    if game and uid == 0:
        raise Refusal("--game is not for root, whose sockets are never destroyed: "
                      "use sudo as a user")
    if len(str(uid)) > LIST_DIGITS and not game:
        raise Refusal(f"UID {uid} has more than {LIST_DIGITS} digits and cannot be on a list of "
                      "the daemon: use another account")


def filters_forwarding() -> bool:
    """Whether the machine's FORWARD chain of iptables may drop what we forward."""
    rules = subprocess.check_output(["iptables", "-w", "-S", "FORWARD"], text=True)
    return [line for line in rules.splitlines() if COMMENT not in line] != ["-P FORWARD ACCEPT"]


def shut_out() -> bool:
    """Whether it may, and our accepting rules are not there."""
    rules = subprocess.check_output(["iptables", "-w", "-S", "FORWARD"], text=True)
    return COMMENT not in rules and filters_forwarding()


def firewall(force: bool) -> None:
    """Refuses a packet filter that ends in a drop: an accepting rule of ours changes nothing there.

    The chain FORWARD is iptables' own, in front of whose rules there can be one of ours.
    """
    entries = json.loads(subprocess.check_output(["nft", "-j", "list", "ruleset"]))["nftables"]
    for chain in (entry["chain"] for entry in entries if "chain" in entry):
        ours = (chain["family"], chain["table"]) == FILTER
        iptables = (chain["family"], chain["table"], chain["name"]) == ("ip", "filter", "FORWARD")
        if chain.get("hook") == "forward" and chain["family"] in ("ip", "inet") and not (
                ours or iptables or force) and _ends_in_drop(chain, entries):
            name = f'{chain["family"]} {chain["table"]} {chain["name"]}'
            raise Refusal(f"nftables: chain {name} drops what is forwarded; accept iifname "
                          '"lnkdh-*" and oifname "lnkdh-*" there, or --force goes on')


def _ends_in_drop(chain: dict[str, Any], entries: list[dict[str, Any]]) -> bool:
    place = (chain["family"], chain["table"], chain["name"])
    rules = [entry["rule"]["expr"] for entry in entries if "rule" in entry
             and tuple(entry["rule"][key] for key in ("family", "table", "chain")) == place]
    accepted = any("lnkdh-" in json.dumps(rule) for rule in rules)
    last = [key for expression in (rules[-1] if rules else []) for key in expression]
    drops = chain.get("policy") == "drop" or (
        bool(last) and last[-1] in ("drop", "reject") and set(last[:-1]) <= {"counter", "log"})
    return drops and not accepted
