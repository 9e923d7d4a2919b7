# SPDX-License-Identifier: Apache-2.0
"""lnkdctl doctor on phones that lack something: it says so, and changes nothing."""

import json
import os
import socket
import subprocess
from contextlib import contextmanager
from pathlib import Path

import jsonschema
from lab.driver import TOOLS, settled, wait_until
from lab.links import set_links

SCHEMA = Path(__file__).resolve().parents[2] / "tools/doctor/doctor.schema.json"
TABLES = Path("/etc/iproute2/rt_tables")
RULES = ["mangle", "nat", "owner", "multiport", "state", "statistic", "MARK", "CONNMARK",
         "MASQUERADE", "UDP ports"]
SOCKETS = ["list", "destroy TCP", "destroy UDP"]


def doctor(*options, before=()):
    """What it prints, and its exit status."""
    run = subprocess.run([*before, "lnkdctl", "doctor", *options], stdout=subprocess.PIPE,
                         text=True, timeout=60)
    return run.stdout, run.returncode


def lacking(*options, before=()):
    """What the daemon needs and is not there, as "subject/thing": its state."""
    text, status = doctor("--json", *options, before=before)
    said = json.loads(text)
    jsonschema.validate(said, json.loads(SCHEMA.read_text()))
    found = {f"{need['subject']}/{need['thing']}": need["state"] for need in said["needs"]
             if need["state"] != "ok" and not need["optional"]}
    states = list(found.values())
    assert (said["missing"], said["unknown"]) == (states.count("missing"), states.count("unknown"))
    assert status == (1 if "missing" in states else 3 if states else 0)
    return found


def machine():
    """What it must not change."""
    commands = ("iptables-save", "ip -4 rule", "ip route show table all", "ip link")
    return [line for command in commands for line in subprocess.check_output(
        command.split(), text=True).splitlines() if not line.startswith("#")]  # the time of day


@contextmanager
def replaced(path, text):
    """A file with another content; written in place, for a mount may hold it."""
    old = path.read_text()
    path.write_text(text)
    yield
    path.write_text(old)


@contextmanager
def away(path):
    path.rename(f"{path}.away")
    yield
    Path(f"{path}.away").rename(path)


@contextmanager
def no_route(link):
    route = subprocess.check_output(["ip", "route", "show", "table", link], text=True).split()
    subprocess.check_call(["ip", "route", "del", "default", "table", link])
    yield
    subprocess.check_call(["ip", "route", "add", *route, "table", link])


@contextmanager
def like_the_trial_rule():
    """Somebody's rule that doctor could take for its own."""
    rule = "fwmark 0x7e57 table main prio 30000".split()
    subprocess.check_call(["ip", "rule", "add", *rule])
    yield
    subprocess.check_call(["ip", "rule", "del", *rule])


@contextmanager
def silent(link):
    set_links(f"{link} down")
    yield
    set_links(f"{link} up")


def test_each_thing_that_is_taken_away_is_seen():
    """One by one, each alone, and all is well in between."""
    filter_tool, routing_tool = TOOLS
    unrouted = {"routing policy/rule by mark": "unknown"}
    unfiltered = {f"packet filter/{thing}": "unknown" for thing in RULES}
    refusing = filter_tool.read_text().replace(
        "exec ", 'case "$*" in *statistic*) echo "no such match" >&2; exit 2;; esac\nexec ')
    elsewhere = "exec nsenter --net=/proc/1/ns/net "
    no_table = "".join(line for line in TABLES.read_text().splitlines(True) if "wlan1" not in line)
    cases = [
        (away(routing_tool), {f"tools/{routing_tool}": "missing", **unrouted}),
        (replaced(routing_tool, "#!/bin/sh\nexec /gone/ip \"$@\"\n"),
         {f"tools/{routing_tool}": "missing", **unrouted}),
        (away(filter_tool), {f"tools/{filter_tool}": "missing", **unfiltered}),
        (replaced(filter_tool, refusing), {"packet filter/statistic": "missing"}),
        (replaced(filter_tool, filter_tool.read_text().replace("exec ", elsewhere)), unfiltered),
        (replaced(routing_tool, routing_tool.read_text().replace("exec ", elsewhere)), unrouted),
        (like_the_trial_rule(), unrouted),
        (away(Path("/proc/sla/config")), {"module/control file": "missing"}),
        (away(Path("/dev/socket")), {"control socket/folder": "missing"}),
        (no_route("wlan1"), {"link wlan1/route": "missing"}),
        (replaced(TABLES, no_table), {"link wlan1/table": "missing"}),
        (silent("wlan0"), {"link wlan0/probe target": "missing"}),
    ]
    for action in ("-N", "-X"):  # a table that has been used stays, empty
        subprocess.check_call([filter_tool, "-t", "mangle", action, "used"])
    assert lacking() == {}
    for broken, expected in cases:
        with broken:
            before = machine()
            assert lacking() == expected
            assert machine() == before
        wait_until(lambda: lacking() == {}, "a phone that is whole again")
    assert lacking("--links=wlan0,wlan7") == {"link wlan7/interface": "missing"}


def test_what_cannot_be_tried_without_rights_is_not_known():
    """A dropped capability is one row; an ordinary user learns what only root can see."""
    untried = {f"{subject}/{thing}": "unknown" for subject, things in
               [("packet filter", RULES), ("routing policy", ["rule by mark"]),
                ("sockets", SOCKETS)] for thing in things}
    dropped = ["setpriv", "--bounding-set", "-net_raw", "--inh-caps", "-all"]
    assert lacking(before=dropped) == {"rights/NET_RAW": "missing"}
    dropped[2] = "-net_admin"
    assert lacking(before=dropped) == {"rights/NET_ADMIN": "missing", **untried}
    user = ["setpriv", "--reuid=10123", "--regid=10123", "--clear-groups"]
    assert lacking("--no-probe", before=user) == {
        **{f"rights/{thing}": "missing" for thing in ("root", "NET_ADMIN", "NET_RAW")}, **untried,
        "module/control file": "unknown", "control socket/folder": "unknown"}


def test_it_disturbs_neither_a_running_daemon_nor_a_connection(phone):
    """It finds the daemon's links, misses their statistics, and no socket of the phone ends."""
    phone.start()
    phone.order((2, "wlan0,rmnet_data0"))
    settled()
    before = machine()
    with socket.create_connection(("203.0.113.10", 7000)) as game:
        assert lacking() == {}
        os.unlink("/proc/sla/wlan0_mmap")
        assert lacking() == {"link wlan0/statistics": "missing"}
        game.sendall(b"still here\n")
        assert game.recv(100)
    assert machine() == before
    text, status = doctor("--no-probe")
    assert status == 1 and "link wlan1" not in text and "8.8.8.8" not in text
    assert ("                  missing    /proc/sla/wlan0_mmap: No such file or directory\n"
            "      without it the link counts as idle\n"
            "      do: load the statistics module; it makes the file\n") in text
