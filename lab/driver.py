# SPDX-License-Identifier: Apache-2.0
"""The daemon under test: starting it, ordering it, waiting for what it does, ending it."""

import fcntl
import os
import re
import socket
import struct
import subprocess
import sys
import termios
import time
from contextlib import contextmanager, suppress

import pytest
import world
from lab import RUN
from lab.internet import RESPONDER_LOG
from lab.links import LINKS
from lab.steering import kernel, shares

CONF = world.CONFIGURATION
TOOLS = list(world.TOOLS.values())
GATE = f"{RUN}/gate"
ALL_LINKS = ",".join(LINKS)
# A sanitizer makes the daemon several times slower, as does an emulated machine.
SLOW = re.search("asan|tsan", os.environ.get("LNKD_BUILD", "")) or "LNKD_IN_VM" in os.environ
DEADLINE = 50.0 if SLOW else 10.0
COMPLAINT = re.compile("WARNING: ThreadSanitizer|ERROR: AddressSanitizer|runtime error:")


def run_each(items, *machine):
    """Runs each test in a machine of its own, which that command makes."""
    def run(item):
        pytest_command = f"{sys.executable} -m pytest -q --no-header --tb=short -p no:cacheprovider"
        result = subprocess.run([*machine, *pytest_command.split(), f"{item.path}::{item.name}"],
                                timeout=300, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                errors="replace")
        if result.returncode != 0:
            pytest.fail(result.stdout, pytrace=False)

    for item in items:
        item.setup = lambda: None  # fixtures belong inside
        item.runtest = lambda item=item: run(item)


class Phone:
    """The daemon under test and the control connection to it."""

    def start(self, conf=""):
        """Starts the daemon, and a brisk one unless `conf` is None."""
        if conf is not None:
            CONF.write_text(f"ping_interval_ms=20\nmini_est_interval=20\n{conf}")
        self.control, self.orders = None, 0
        self.daemon = world.start_daemon()

    def order(self, *messages):
        """Sends messages and returns when the last one has been carried out."""
        self.control = self.control or world.connect_control(DEADLINE)
        self.orders += 1
        # Messages are taken one after the other: when the last is, those before it are done.
        for message in (*messages, (0, f"order {self.orders}")):
            world.send_message(self.control, *message)
        self.wait_for(rf"recv msg: .*\[order {self.orders}\]")

    def choose(self, *messages):
        """Sends messages that make it choose a link, and returns when it has done so."""
        since = len(self.daemon.log)
        self.order(*messages)
        self.daemon.wait_for("resetting hystWindow", DEADLINE, since)

    def held(self):
        """Descriptors and threads; the least of some looks leaves out what is open for a moment."""
        process = f"/proc/{self.daemon.process.pid}"
        return [min(len(os.listdir(f"{process}/{kind}")) for _ in range(50))
                for kind in ("fd", "task")]

    def wait_for(self, pattern):
        self.daemon.wait_for(pattern, DEADLINE)

    def stop(self):
        """Ends the daemon as init would; it must leave nothing behind."""
        status = self.daemon.stop(DEADLINE)
        complaints = [line for line in self.daemon.log if COMPLAINT.search(line)]
        assert (complaints, status, kernel()) == ([], 0, {})


def wait_until(predicate, what):
    return world.wait_until(predicate, DEADLINE, what)


@contextmanager
def gate(text):
    """Holds the next tool command that contains `text`, from reached() to the block's end."""
    held = []

    def attempt():
        with suppress(OSError):  # nobody is waiting there
            held.append(os.open(GATE, os.O_WRONLY | os.O_NONBLOCK))
        return held

    os.mkfifo(GATE)
    hold = f'case "$*" in *"{text}"*) [ -p {GATE} ] && read _ < {GATE};; esac\nexec '
    TOOLS[0].write_text(TOOLS[0].read_text().replace("exec ", hold))
    yield lambda: wait_until(attempt, "a command at the gate")
    os.unlink(GATE)
    os.close(held[0])


def wait_for_shares(**wanted):
    """Waits until the rules, in this order, give each link its share of new connections."""
    def reached():
        found = shares()
        return list(found) == list(wanted) and found == pytest.approx(wanted, abs=1e-5)

    wait_until(reached, f"shares {wanted}")


def settled():
    """All rules, once a dozen passes have left them as they are."""
    rules, since = kernel(), time.monotonic()

    def still():
        nonlocal rules, since
        if (now := kernel()) != rules:
            rules, since = now, time.monotonic()
        return time.monotonic() - since > DEADLINE / 25

    wait_until(still, "rules that stay")
    return rules


def wait_for_selection(uid=None, link=None):
    """Waits until this application, and no other, is steered to the link; without one, for none."""
    def reached():
        rules = kernel()
        selected = [rule for chain in rules["zelk_SLS"] for rule in rules.get(chain[3:], [])]
        return (selected == [f"-m owner --uid-owner {uid} -j zelk_sls_{link}"] if link else
                "zelk_sls" not in str(rules))

    wait_until(reached, f"selection of {link} for {uid}")


def wait_for_probes(server):
    """Waits until the server has seen one."""
    wait_until(lambda: f" {server} probe\n" in RESPONDER_LOG.read_text(), f"probes at {server}")


def socket_of(uid, *kind):
    """A socket that belongs to an application."""
    os.seteuid(uid)
    made = socket.socket(*kind)
    os.seteuid(0)
    return made


def unread(client):
    """The bytes that were sent and that nobody has received."""
    return struct.unpack("i", fcntl.ioctl(client, termios.TIOCOUTQ, b"\0" * 4))[0]
