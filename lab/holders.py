# SPDX-License-Identifier: Apache-2.0
"""What can hold a daemon when it is asked to end: tools, probe targets, files, a period."""

import os
import subprocess
from collections.abc import Iterator
from contextlib import ExitStack, contextmanager

import world
from lab.client import GAME_UID
from lab.driver import ALL_LINKS, DEADLINE, Phone, gate, wait_until
from lab.internet import PROBE_SERVER, SLOW_TARGETS, slow_down_probes
from world.control import START_GAME, UPDATE_INTERFACES

FOUR, NINE = f"{ALL_LINKS},ccmni0", ",".join(f"usb{n}" for n in range(9))
TOOLS = {"tool in a handler": "-N zelk_fw_wlan1", "tool in a pass": "-A zelk_SLA"}
HOLDERS = ["nothing", "game", *TOOLS, *SLOW_TARGETS, "period", "no statistics"]


@contextmanager
def held(phone: Phone, holder: str) -> Iterator[None]:
    """Starts the daemon and has it held, with four links and a game where that can be."""
    with ExitStack() as stack:
        reached = stack.enter_context(gate(TOOLS[holder])) if holder in TOOLS else None
        if holder == "no statistics":
            os.unlink("/proc/sla/config")
        if holder in SLOW_TARGETS:
            slow_down_probes(holder)
        world.set_prop("vendor.sla.ifaces", FOUR)
        phone.start("ping_interval_ms=5000000\n" if holder == "period" else "")
        control = stack.enter_context(world.connect_control(DEADLINE))
        if holder != "period":  # which would be between these two messages
            world.send_message(control, UPDATE_INTERFACES,
                               NINE if holder == "no statistics" else FOUR)
        if holder != "nothing":
            world.send_message(control, START_GAME, str(GAME_UID))
        if reached:
            reached()
        elif holder in SLOW_TARGETS:
            probes = ["ss", "-tnH", "dst", PROBE_SERVER]
            wait_until(lambda: b"ESTAB" in subprocess.check_output(probes), "a probe in hand")
        else:
            phone.wait_for({"nothing": "preinterfacelist is ccmni0",
                            "no statistics": "usb1_mmap is shorter"}.get(holder, "perform switch"))
        yield
