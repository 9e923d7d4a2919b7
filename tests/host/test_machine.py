# SPDX-License-Identifier: Apache-2.0
"""What lnkd-host does to the machine, and that nothing of it stays."""

import os
import random
import re
import shlex
import signal
import subprocess
import time
from contextlib import suppress
from pathlib import Path

import pytest
from lab import host
from lab.debian import USERS
from lab.uplinks import CABLE, MODEM, WIFI
from world import wait_until

PAIR = ("--link", f"wlan0={CABLE.name}", "--link", f"wlan1={WIFI.name}")
WALL = "table inet wall { chain w { type filter hook forward priority 0; policy drop; }; }"


def test_what_cannot_be_is_refused(start):
    """In a line that names it, with nothing done."""
    conf = Path("/run/lab/home.conf")
    conf.write_text(f"link wlan0 {CABLE.name}\n# a comment\nlink wlan1\n")
    os.makedirs("/etc/lnkd", exist_ok=True)
    os.symlink(conf, "/etc/lnkd/home.conf")
    others, users = ("--link", f"wlan1={WIFI.name}"), host.by_sudo("anna")
    for environment, arguments, named in (
            (users, PAIR[:2], "only uplink"), (users, (*others, "--link", "wlan0=eth7"), "eth7"),
            (users, (*others, "--link", f"wlan7={CABLE.name}"), "wlan7"),
            (users, (*PAIR, "--link", f"wlan0={MODEM.name}"), "wlan0"),
            (users, (*PAIR, "--link", f"rmnet_data0={WIFI.name}"), WIFI.name),
            (users, (*PAIR, "--conf", "/nowhere"), "/nowhere"), (users, ("--join", "x"), '"?x"?'),
            (users, ("--up", "home"), "line 3"), (users, ("--up", "x"), "x.conf"),
            (users, ("--join", ""), "name"), (users, ("--modem", "eth7"), "eth7"),
            (users, (*PAIR, "--modem", "x"), "--link"),
            (users, ("--up", "home", "--game"), "--game"),
            (users | {"SUDO_UID": "123456"}, PAIR, "123456"),
            (users | {"SUDO_UID": "-1"}, PAIR, "-1"),
            (users | {"SUDO_UID": "0"}, (*PAIR, "--game"), "root")):
        command = () if "--up" in arguments else ("--", "true")
        result = subprocess.run([*host.command_line(*arguments), *command], env=environment,
                                stdin=subprocess.DEVNULL, capture_output=True, text=True)
        assert (arguments, result.returncode, result.stdout) == (arguments, 2, "")
        assert re.fullmatch(rf"lnkd-host: .*{named}.*\n", result.stderr), (arguments, result.stderr)
    user = subprocess.run(host.command_line(*PAIR), user=USERS["anna"], capture_output=True)
    assert (user.returncode, b"root" in user.stderr) == (2, True)
    session = start(*PAIR)
    session.type("true")
    for arguments in ((*PAIR, "--", "true"), ("--clean",)):
        second = host.run(*arguments)
        assert (second.returncode, "already" in second.stderr) == (2, True)
    assert (set(session.connections(60)), session.end()) == ({CABLE.address, WIFI.address}, 0)
    subprocess.run(["nft", WALL], check=True)
    wall = host.run(*PAIR, "--", "true")
    subprocess.run(["nft", "delete table inet wall"], check=True)
    assert (wall.returncode, "wall" in wall.stderr) == (2, True)


@pytest.mark.parametrize("arguments", [PAIR, ("--link", f"rmnet_data0={MODEM.name}", *PAIR[2:])])
def test_a_dry_run_says_what_is_then_done(start, arguments):
    """All of it, in this order, and nothing by itself."""
    record = host.Record()
    said = host.run(*arguments, "--dry-run").stdout
    assert record.changes() == []
    session = start(*arguments)
    session.type("true")
    session.end()
    planned = [" ".join(shlex.split(line)) for line in said.splitlines() if line[0] != "#"]
    done = [re.sub("netns [^ ]+$", "netns WORLD", line) for line in record.changes()]
    assert len(planned) > 20 and done == planned


@pytest.mark.parametrize("arguments", [("--clean",), (*PAIR, "--", "true")])
def test_what_a_killed_run_leaves_is_taken_away(start, arguments):
    """By a cleaning or by the next start, whenever it was that it, or each of its processes, was
    killed; with it go those that it has started."""
    before, others = host.state(), set(host.processes())
    begin = time.monotonic()
    session = start(*PAIR)
    session.type("true")
    ready = time.monotonic() - begin
    assert session.end() == 0
    for moment in (ready * 2, *(random.uniform(0, ready * 1.2) for _ in range(5))):
        session, each = start(*PAIR), random.random() < 0.5
        time.sleep(moment)
        for pid in sorted(set(host.processes()) - others if each else {session.process.pid}):
            with suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        session.process.wait()
        wait_until(lambda: set(host.processes()) <= others, 5, "the end of all processes")
        assert moment < ready * 2 or host.changes(before).keys() >= {"rules", "packet filter"}
        result = host.run(*arguments)
        assert (moment, result.returncode, host.changes(before)) == (moment, 0, {}), each


def test_two_users_join_a_world_that_stays(start):
    """Each is on the lists as long as one of the user's commands runs."""
    Path("/etc/lnkd").mkdir()
    Path("/etc/lnkd/home.conf").write_text(f"link wlan0 {CABLE.name}\nlink wlan1 {WIFI.name}\n")
    service = subprocess.Popen(host.command_line("--up", "home"), stderr=subprocess.DEVNULL)
    wait_until(lambda: host.run("--join", "home", "--", "true").returncode == 0, 10, "a world")
    daemon = next(pid for pid, words in host.processes().items() if words.split()[0] == "lnkd")

    def listed(*users):
        rules = subprocess.check_output(["nsenter", "-t", str(daemon), "-n", "iptables", "-t",
                                         "mangle", "-S"], text=True)
        return set(re.findall(r"uid-owner (\d+)", rules)) == {str(USERS[user]) for user in users}

    anna, again, ben = (start("--join", "home", user=user) for user in ("anna", "anna", "ben"))
    for session, uid in ((anna, 2001), (again, 2001), (ben, 2002)):
        assert session.type("id -u") == f"{uid}\n"
    wait_until(lambda: listed("anna", "ben"), 5, "both on the lists")
    for session in (anna, ben):
        assert set(session.connections(60)) == {CABLE.address, WIFI.address}
    assert (anna.end(), listed("anna", "ben")) == (0, True)
    assert again.end() == 0
    wait_until(lambda: listed("ben"), 5, "ben alone on the lists")
    assert ben.end() == 0
    service.terminate()
    assert service.wait(10) == 0
