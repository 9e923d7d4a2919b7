# SPDX-License-Identifier: Apache-2.0
"""What may hold the daemon, and a stop that comes meanwhile."""

import os
import signal
import subprocess
from errno import ENXIO

import pytest
import world
from lab import holders
from lab.driver import ALL_LINKS, CONF, DEADLINE, GATE, gate, settled, wait_until
from lab.links import LINKS
from lab.steering import kernel, steered

INTERFACES = 2


@pytest.mark.parametrize("holder", holders.HOLDERS[2:])
def test_a_stop_is_soon_over_whatever_holds_the_daemon(phone, holder):
    """It waits for no tool, target, period or file, and leaves nothing."""
    with holders.held(phone, holder):
        phone.stop()


def test_a_tool_that_hangs_is_killed_and_the_rest_is_done(phone):
    """With all that it started, after ten seconds; its order goes on, and so do later ones."""
    with gate("-N zelk_fw_wlan1_wrapper") as reached:
        phone.start()
        world.send_message(world.connect_control(DEADLINE), INTERFACES, ALL_LINKS)
        reached()
        line = "did not end in time, killed: .* -N zelk_fw_wlan1_wrapper"
        phone.daemon.wait_for(line, 10 + DEADLINE)
        with pytest.raises(OSError) as nobody:
            os.open(GATE, os.O_WRONLY | os.O_NONBLOCK)
        assert nobody.value.errno == ENXIO
    phone.wait_for("preinterfacelist is rmnet_data0")
    assert steered() == sorted(LINKS)


def test_a_second_daemon_ends_at_once_and_changes_nothing(phone):
    """Until the first has taken down what is its own, even when that stays, disabled."""
    phone.start()
    phone.order((INTERFACES, "wlan0"))
    rules, done = settled(), world.tool_commands()
    second = subprocess.run("lnkd", stderr=subprocess.PIPE, timeout=DEADLINE)
    assert (second.returncode, second.stderr.count(b"\n")) == (1, 1)
    assert (kernel(), world.tool_commands()) == (rules, done)
    phone.order((INTERFACES, "wlan0,wlan1"))
    assert steered() == ["wlan0", "wlan1"]
    world.set_prop("vendor.sla.enabled", "2")
    phone.wait_for("Lnkd exiting")
    world.set_prop("vendor.sla.enabled", "1")
    with world.start_daemon() as third:
        third.wait_for("Created socket success", DEADLINE)


def test_a_sleep_lasts_its_period_and_closed_descriptors_are_opened():
    """What interrupts the main loop's sleep is no pass; what it logs goes into no other file."""
    CONF.write_text("ping_interval_ms=20\nmini_est_interval=600000\n")
    daemon = subprocess.Popen("exec lnkd <&- >&- 2>&-", shell=True)
    control = world.connect_control(DEADLINE)
    wait_until(lambda: "enable=1" in world.statistics_commands(), "start-up")
    files = [os.readlink(f"/proc/{daemon.pid}/fd/{fd}") for fd in range(3)]
    assert files == ["/dev/null"] * 3
    world.send_message(control, INTERFACES, ALL_LINKS)
    wait_until(lambda: len(kernel().get("policy", [])) == len(LINKS), "links")
    for _ in range(3):
        for number in (signal.SIGSTOP, signal.SIGCONT):
            daemon.send_signal(number)
        world.send_message(control, INTERFACES, "wlan0")
        wait_until(lambda: len(kernel()["policy"]) == 1, "one link")
        world.send_message(control, INTERFACES, ALL_LINKS)
        wait_until(lambda: len(kernel()["policy"]) == len(LINKS), "links")
    assert not [command for command in world.tool_commands() if "-A zelk_SLA" in command]
    daemon.terminate()
    assert daemon.wait(DEADLINE) == 0 and kernel() == {}
