# SPDX-License-Identifier: Apache-2.0
"""A command whose connections are spread over real uplinks, counted where they arrive."""

import os
import pty
import re
import shutil
import subprocess
import time
from contextlib import suppress
from pathlib import Path

import pytest
from host.changes import CLOSED
from lab import host, uplinks
from lab.debian import USERS
from lab.internet import GAME_SERVER
from lab.links import set_links
from lab.uplinks import CABLE, MODEM, NAME_SERVED, WIFI
from world import wait_until

PAIR = ("--link", f"wlan0={CABLE.name}", "--link", f"wlan1={WIFI.name}")
SPREAD = {CABLE.address, WIFI.address}
LOOK_UP = f"curl -m 1 -so/dev/null -w '%{{http_code}}\\n' http://{NAME_SERVED}:8080/"
FOLLOWED_S = 2  # from a change of the machine to the session's traffic


@pytest.mark.parametrize("forward", ["ACCEPT", "DROP"])
def test_only_the_commands_connections_are_spread(start, forward):
    """The same user's others stay where the machine's routes lead, which are as before. In the end
    it says what the server counted. Where containers run, nothing is forwarded without a rule; what
    they switch on meanwhile stays on."""
    subprocess.run(["iptables", "-P", "FORWARD", forward], check=True)
    routes = uplinks.routes()
    session = start(*PAIR)
    used = session.connections(60)
    assert set(used) == SPREAD
    others = host.reaching(20, lambda url: subprocess.run(
        ["curl", "-so/dev/null", url], user=USERS["anna"], check=True))
    subprocess.run(["sysctl", "-qw", "net.ipv4.ip_forward=1"], check=True)
    wait_until(lambda: CABLE.name not in subprocess.check_output(
        ["nft", "list", "chain", *CLOSED.split()], text=True), 5, "the machine's own forwarding")
    assert (others, uplinks.routes(), session.end()) == ({CABLE.address: 20}, routes, 0)
    assert int(Path(f"/proc/sys/net/ipv4/conf/{CABLE.name}/forwarding").read_text()) == 1
    subprocess.run(["sysctl", "-qw", "net.ipv4.ip_forward=0"], check=True)
    for uplink in CABLE, WIFI:
        row = re.search(rf" {uplink.name} +(?:[\d.]+ +){{3}}(\d+)", session.errors())
        assert int(row[1]) == used[uplink.address]
    assert "lnkd" not in subprocess.check_output(["nft", "list", "ruleset"], text=True)
    subprocess.run(["nft", "delete table ip filter"], check=True)


def test_the_command_is_the_users_and_finds_what_the_machine_has(start):
    """Who it is, its folder, environment and files; names are resolved, whatever the stub."""
    stub, upstream = Path("/etc/resolv.conf"), Path("/run/systemd/resolve/resolv.conf")
    upstream.parent.mkdir(parents=True)
    upstream.write_text(stub.read_text())
    stub.write_text("nameserver 127.0.0.53\n")
    Path("/etc/motd").write_text("the machine's own\n")
    session = start(*PAIR)
    for command, said in (
            ("id -u; id -G", "2001\n2001 2501\n"), ("echo $HOME $USER", "/run/home/anna anna\n"),
            ("pwd", f"{Path.cwd()}\n"), ("ls /proc/$$/fd", "0\n1\n2\n"),
            ("cat /etc/motd", "the machine's own\n"),
            (LOOK_UP, "403\n"),
            ("cat /proc/sys/net/ipv6/conf/all/disable_ipv6", "1\n"),
            (f"kill -0 {session.process.pid} 2>&1 | grep -c permitted", "1\n")):
        assert (command, session.type(command)) == (command, said)
    Path("/etc/resolv.new").write_text(stub.read_text())
    os.rename("/etc/resolv.new", stub)
    wait_until(lambda: session.type(LOOK_UP) == "403\n", 5, "names after another file is there")
    assert stub.read_text() == "nameserver 127.0.0.53\n"
    stub.write_text(upstream.read_text())
    shutil.rmtree("/run/systemd")


@pytest.mark.parametrize("command, status", [("exit 7", 7), ("kill -TERM $$", 143), ("", 0)])
def test_the_status_is_the_commands(start, command, status):
    session = start(*PAIR, "--quiet")
    session.process.communicate(command, timeout=20)
    assert (session.process.returncode, session.errors()) == (status, "")


def test_the_terminal_is_the_commands(start):
    """Ctrl-C, or Ctrl-\\, ends what runs in a shell, not the shell, nor lnkd-host."""
    pid, terminal = pty.fork()
    if pid == 0:
        os.execvpe(host.PROGRAM, [*host.command_line(*PAIR), "sh"], host.by_sudo("anna"))
    said = ""
    # The inner shell speaks once it has the terminal: a key typed earlier would be the outer one's.
    for typed, answer in (("stty -echo; sh -c \"echo be''gun; exec sleep 60\"\n", "begun"),
                          ("\x03sh -c \"echo ag''ain; exec sleep 60\"\n", "again"),
                          ("\x1cecho status $?\n", "status 131"), ("tty; exit 3\n", "/dev/pts/")):
        os.write(terminal, typed.encode())
        end = time.monotonic() + 10
        while answer not in said:
            assert time.monotonic() < end, said
            said += os.read(terminal, 4096).decode()  # a line of its report comes in any case
    with suppress(OSError):  # what a terminal says when nobody has it any more
        while os.read(terminal, 4096):
            pass
    assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 3


@pytest.mark.parametrize("metered", [True, False])
def test_a_metered_modem_rests_while_the_wifi_is_fast(start, metered):
    """Without the word it takes its part."""
    Path("/run/lab/conf").write_text("wifi_threshold=0\n")
    session = start("--link", f"wlan0={WIFI.name}", "--conf", "/run/lab/conf",
                    "--link", f"rmnet_data0={MODEM.name}" + ",metered" * metered)
    session.connections(20)  # until a rate is known
    used = session.connections(60)
    assert set(used) == ({WIFI.address} if metered else {WIFI.address, MODEM.address})


def test_a_game_moves_to_the_better_link(start):
    Path("/run/lab/conf").write_text("ping_interval_ms=20\nmini_est_interval=20\n"
                                     "min_ping_times=2\nalpha_percent=1\n")
    set_links(f"{WIFI.name} delay 10", f"{MODEM.name} delay 10")
    session = start("--link", f"wlan0={WIFI.name}", "--link", f"rmnet_data0={MODEM.name}",
                    "--game", "--conf", "/run/lab/conf")
    session.type(f"touch ~/game; {Path.cwd()}/lab/game.py {GAME_SERVER}:7000 --uid 2001 >~/game &")
    said = Path("/run/home/anna/game")
    for uplink, delay in ((WIFI, 10), (MODEM, 110)):
        set_links(f"{WIFI.name} delay {delay}")
        wait_until(lambda: f"on {uplink.address}," in said.read_text()[-100:], 15,
                   f"the game on {uplink.name}")
    session.type("kill $!")
    said.unlink()


def test_an_uplink_that_changes_is_followed(start):
    """Another router, then none, then another address, then all as it was. Each time what is spread
    and what is not, such as a question for a name, gets through two seconds later."""
    session = start(*PAIR)

    def within(wanted):
        end = time.monotonic() + FOLLOWED_S
        while (found := (session.type(LOOK_UP), set(session.connections(20)))) != ("403\n", wanted):
            assert time.monotonic() < end, (found, wanted, uplinks.routes())

    within(SPREAD)
    subprocess.run("nft flush ruleset; while ip rule delete pref 5210; do :; done", shell=True)
    wait_until(lambda: "again" in session.errors(), 5, "the rules that were taken away")
    within(SPREAD)
    for gone, address, gateway in ((False, CABLE.address, "192.168.1.254"),
                                   (True, "192.168.1.150", "192.168.1.253"),
                                   (True, CABLE.address, CABLE.gateway)):
        uplinks.replace_router(address, gateway)
        if gone:
            uplinks.release()
            wait_until(lambda: CABLE.name not in uplinks.routes(), 5, "the cable's end")
            within({WIFI.address})
        uplinks.renew()
        wait_until(lambda: gateway in uplinks.routes().get(CABLE.name, ""), 5, "another gateway")
        within({address, WIFI.address})
