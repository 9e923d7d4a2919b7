# SPDX-License-Identifier: Apache-2.0
import signal
from contextlib import suppress

import pytest
import world
from lab.driver import ALL_LINKS, DEADLINE, gate, settled, wait_for_shares, wait_until
from lab.links import LINKS
from lab.steering import kernel, steered

NAT = "zelk_nat_POSTROUTING_DVX"
FIXED = ("zelk_DVX", "zelk_SLA", "zelk_SLS", "zelk_DVX_wapper")
SET_UP = [
    *(f"mangle -{step} {chain}" for chain in FIXED for step in "NF"),
    "mangle -I zelk_DVX 1 -j zelk_SLS",
    "mangle -I zelk_DVX 2 -m state --state ESTABLISHED,RELATED -j CONNMARK --restore-mark",
    "mangle -I zelk_DVX 3 -j zelk_SLA",
    *(f"mangle -{step} OUTPUT -j zelk_DVX_wapper" for step in "DI"),
    *(f"nat -{step} {NAT}" for step in ("F", "N", "D POSTROUTING -j", "I POSTROUTING -j"))]
TEAR_DOWN = [
    "mangle -D OUTPUT -j zelk_DVX_wapper",
    *(f"nat -{step} {NAT}" for step in ("D POSTROUTING -j", "F", "X")),
    *(f"mangle -{step} {chain}" for chain in (FIXED[3], *FIXED[:3]) for step in "FX"),
    "mangle -D zelk_SLS -j zelk_sls_uid_wlan0",
    *(f"mangle -{step} zelk_sls_{end}" for step in "FX" for end in ("wlan0", "uid_wlan0")),
    "mangle -F zelk_SLA",
    *(f"mangle -{step} zelk_fw_wlan0{end}" for end in ("_wrapper", "") for step in "FX"),
    "ip -4 rule del fwmark 0x5A prio 30000", f"nat -D {NAT} -o wlan0 -j MASQUERADE"]


def commands():
    return [command.removeprefix("iptables -w -t ") for command in world.tool_commands()]


def collecting(*links):
    return ["protocols=http,https", "ports=80,443", *map("iface={}".format, links), "enable=1"]


@pytest.mark.parametrize("by_signal", [False, True])
def test_start_and_end_run_their_commands_in_order(phone, by_signal):
    """The fixed chains come first, an interface restarts the statistics, and all is taken down."""
    phone.start()
    wait_until(lambda: world.statistics_commands() == collecting(), "start-up")
    assert commands() == SET_UP
    phone.order((2, "wlan0,rmnet_data0"), (2, "wlan0"))
    if by_signal:
        phone.daemon.process.send_signal(signal.SIGHUP)
    else:
        world.set_prop("vendor.sla.enabled", "2")
    phone.wait_for("Lnkd exiting")
    assert commands()[-len(TEAR_DOWN):] == TEAR_DOWN
    told = [*collecting(), "enable=0", *collecting("wlan0"), "enable=0",
            *collecting("rmnet_data0", "wlan0"), "enable=0", *collecting("wlan0"), "enable=0"]
    wait_until(lambda: world.statistics_commands() == told, told)


def test_a_daemon_disabled_from_the_start_makes_one_pass_and_idles(phone):
    """The property is read after the first pass, and what it says later changes nothing."""
    world.set_prop("vendor.sla.ifaces", "wlan0,rmnet_data0")
    world.set_prop("vendor.sla.enabled", "2")
    phone.start()
    phone.wait_for("Lnkd exiting")
    world.set_prop("vendor.sla.enabled", "1")
    assert sum("-A zelk_SLA" in command for command in commands()) == 2
    assert world.statistics_commands() == [*collecting("rmnet_data0", "wlan0"), "enable=0"]
    assert phone.daemon.process.poll() is None and kernel() == {}


@pytest.mark.parametrize("command", ["-N zelk_SLS", "-j MARK", "-A zelk_SLA", "-X zelk_SLS"])
def test_a_stop_signal_waits_for_the_work_in_hand(phone, command):
    """At start-up, in a handler, in a rebuild, in a teardown: it is finished, then all is gone."""
    with gate(command) as reached:
        phone.start()
        if command != "-N zelk_SLS":
            world.send_message(world.connect_control(), 2, "wlan0")
        if command == "-X zelk_SLS":
            phone.wait_for("preinterfacelist is wlan0")
            world.set_prop("vendor.sla.enabled", "2")
        reached()
        phone.daemon.process.terminate()
    phone.stop()


def test_messages_during_and_after_teardown_build_nothing(phone):
    """What comes too late is read, reported and dropped."""
    phone.start()
    phone.order((2, "wlan0"))
    with gate("-X zelk_SLS") as reached:
        world.set_prop("vendor.sla.enabled", "2")
        reached()
        phone.order((2, "wlan0,wlan1"), (1, "10123"), (7, "10123"), (18, "0"))
    phone.wait_for("Lnkd exiting")
    done = commands()
    phone.order((2, "rmnet_data0"), (1, "10456"), (7, "NULL"))
    assert (commands(), kernel(), world.statistics_commands()[-1]) == (done, {}, "enable=0")
    phone.wait_for("message 7 dropped")


def test_a_start_over_the_ruins_of_a_killed_run_duplicates_nothing(phone):
    """The same orders after kill -9 give the same rules."""
    rules = []
    while len(rules) < 3:
        if rules:
            phone.daemon.process.kill()
            phone.daemon.process.wait()
        phone.start()
        phone.order()
        assert [len(kernel()[name]) for name in ("OUTPUT", "POSTROUTING", "zelk_DVX")] == [1, 1, 3]
        phone.order((1, "10123"), (7, "10200"), (2, ALL_LINKS))
        wait_for_shares(wlan0=0.5, wlan1=0.5, rmnet_data0=0)
        rules.append(settled())
        assert rules[-1] == rules[0] and steered() == sorted(LINKS)


def test_a_new_link_gets_its_share_even_when_a_pass_comes_between(phone):
    """The pass wants to use chains that are not there yet; that must not be the last word."""
    phone.start()
    with gate("-N zelk_fw_wlan0") as reached:
        world.send_message(world.connect_control(), 2, "wlan0")
        reached()
        with suppress(TimeoutError):  # or it waits for the new link: just as well
            phone.daemon.wait_for("nf_conntrack interface wlan0", DEADLINE / 5)
    wait_for_shares(wlan0=1)
