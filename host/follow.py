# SPDX-License-Identifier: Apache-2.0
"""Uplinks that change: another gateway or address, a lost route, a device that comes and goes."""

import ctypes
import fcntl
import functools
import os
import signal
import subprocess
import time

from host import changes, checks, uplinks
from host.lanes import Lane
from host.session import Session, complain
from host.uplinks import ask
from world.programs import Failure

LIBC = ctypes.CDLL(None, use_errno=True)
PR_SET_PDEATHSIG = 1
POLL_S = 2  # for what the kernel's notices did not tell


def announce(descriptor: int) -> None:
    """Has a signal sent when there is something to read, which wakes the loop."""
    fcntl.fcntl(descriptor, fcntl.F_SETOWN, os.getpid())
    flags = fcntl.fcntl(descriptor, fcntl.F_GETFL)
    fcntl.fcntl(descriptor, fcntl.F_SETFL, flags | os.O_ASYNC | os.O_NONBLOCK)


def _end_with(parent: int) -> None:
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    if os.getppid() != parent:  # it was killed before that took effect
        os._exit(1)


class Follower:
    """Compares, whenever the kernel tells of a change, what the uplinks have with the lanes."""

    def __init__(self, session: Session):
        self._session = session
        self._up = session.up()
        self._closed = changes.closed(session.setup.lanes)
        self._looked = time.monotonic()
        self._monitor = subprocess.Popen(
            ["ip", "-4", "-o", "monitor", "link", "address", "route"], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, start_new_session=True,
            preexec_fn=functools.partial(_end_with, os.getpid()))
        assert self._monitor.stdout
        announce(self._monitor.stdout.fileno())

    def close(self) -> None:
        self._monitor.kill()
        self._monitor.wait()

    def turn(self) -> None:
        if self._has_news() or time.monotonic() - self._looked > POLL_S:
            self._looked = time.monotonic()
            before = self._session.setup.machine
            try:
                self._look()
            except (Failure, OSError, subprocess.SubprocessError):
                # A device that went meanwhile. Seen as a change once more, at the next turn.
                self._session.setup.machine = before
                self._looked = -POLL_S

    def _has_news(self) -> bool:
        assert self._monitor.stdout
        news = False
        while True:
            try:
                text = os.read(self._monitor.stdout.fileno(), 65536)
            except BlockingIOError:
                return news
            if not text:
                return news
            news = True

    def _look(self) -> None:
        session = self._session
        before = session.setup.machine
        session.setup.machine = uplinks.look()
        self._replace_missing()
        up = session.up()
        changed = up != self._up
        # Those that go, first: until then new connections are dealt to them.
        session.disconnect([lane for lane in self._up if lane not in up])
        for lane in session.setup.lanes:
            session.changes.apply(changes.uplink_sysctls(lane.device))
            changed |= self._correct_table(lane)
            changed |= before.get(lane.device) != session.setup.machine.get(lane.device)
        session.connect([lane for lane in up if lane not in self._up])
        self._correct_closed()
        if changed:
            session.write_resolver()
            session.set_default()
            session.tell_links()
            self._up = up

    def _replace_missing(self) -> None:
        steps = changes.missing(self._session.setup.lanes)
        steps += changes.accepting() if checks.shut_out() else []
        if steps:
            self._session.changes.apply(steps)
            complain("rules of this run were taken away or shut out; they are there again")

    def _correct_closed(self) -> None:
        """Who has forwarding switched on, as a container engine does, wants what we kept out."""
        closed = changes.closed(self._session.setup.lanes)
        if closed != self._closed:
            self._session.changes.run(("nft", "flush", "chain", *changes.CLOSED.split()))
            self._session.changes.apply(map(changes.close, closed))
            self._closed = closed

    def _correct_table(self, lane: Lane) -> bool:
        """Whether there was something to correct: also what the kernel itself took away."""
        wanted = {_key(route): route
                  for route in changes.routes(self._session.setup.machine.get(lane.device))}
        present = {(route["dst"], route.get("gateway", ""), route.get("dev", "")): route
                   for route in ask("-4", "route", "show", "table", lane.table)
                   if route.get("type") != "unreachable" and route["dst"] != lane.far}
        for key, route in wanted.items():
            if key not in present:
                self._session.changes.run(changes.set_route(lane, route).do)
        for destination, gateway, device in present.keys() - wanted.keys():
            if any(destination == key[0] for key in wanted):
                continue  # replaced above
            self._session.changes.run(("ip", "route", "delete", destination, "dev", device,
                                       "table", lane.table))
        return wanted.keys() != present.keys()


def _key(route: tuple[str, ...]) -> tuple[str, str, str]:
    """Destination, gateway and device."""
    values = dict(zip(route[1::2], route[2::2]))
    return route[0], values.get("via", ""), values["dev"]
