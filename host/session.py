# SPDX-License-Identifier: Apache-2.0
"""One run: the world, its daemon, the machine's side, the command; and everything's end."""

import contextlib
import subprocess
from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass, field
from pathlib import Path

from host import RUN, changes, checks, resolver
from host.changes import Changes
from host.lanes import Lane
from host.lock import Lock
from host.phone import Phone
from host.uplinks import Uplink
from world import control, programs
from world.options import Options

LOG = "/var/log/lnkd-host.log"


@dataclass
class Setup:
    """What a run is to be."""

    options: Options
    lanes: Sequence[Lane]
    machine: dict[str, Uplink]
    game: bool = False
    verbose: bool = False
    log: str = LOG  # of the daemon; none: standard error
    steps: list[changes.Step] = field(default_factory=list)

    def prepare(self) -> None:
        """Makes the list of steps, for a machine as it is now."""
        self.steps = changes.plan(self.lanes, self.machine, checks.filters_forwarding())


class Session:
    """A world that is up, with its links on the machine's uplinks."""

    def __init__(self, setup: Setup, phone: Phone, applied: Changes):
        self.setup = setup
        self.phone = phone
        self.changes = applied
        self.resolver: Path | None = None
        self._resolver_text = ""
        self.told_end = False
        self._complaint = ""
        self.turns: list[Callable[[], None]] = []  # what is done at each turn of the loop

    def up(self) -> list[Lane]:
        """The lanes whose uplink is there."""
        return [lane for lane in self.setup.lanes
                if (uplink := self.setup.machine.get(lane.device)) and uplink.routed]

    def tell_links(self) -> None:
        """The daemon takes no notice of those that it knows already."""
        self.phone.send(control.UPDATE_INTERFACES, ",".join(lane.name for lane in self.up()))

    def disconnect(self, lanes: Sequence[Lane]) -> None:
        """Their links go down, and with them routes and masqueraded connections: what the daemon
        still deals to them falls through to the default, and a repeated SYN begins anew.
        """
        if lanes:
            self.set_default()
        for lane in lanes:
            self.phone.run("ip", "link", "set", lane.name, "down")

    def connect(self, lanes: Sequence[Lane]) -> None:
        for lane in lanes:
            self.phone.run("ip", "link", "set", lane.name, "up")
            self.phone.run("ip", "route", "replace", "default", "via", lane.near, "dev", lane.name,
                           "table", str(lane.link().table))

    def steer(self, uids: Sequence[int], before: Sequence[int] = ()) -> None:
        """Tells the daemon whose traffic it is about, and waits until it has taken it."""
        if self.setup.game:
            self._tell_players(uids, before)
            if not uids:
                return
            expected = sorted(uids)
        else:
            lists = self._lists()
            for each in lists:
                self.phone.send(each, ",".join(map(str, uids)) or "NULL")
            expected = sorted([*uids] * len(lists))
        self.phone.wait_for(lambda: self.phone.steered() == expected, "the daemon's rules")

    def _lists(self) -> list[int]:
        """Those where a UID counts: on both, its connections are dealt twice."""
        names = {lane.name for lane in self.setup.lanes}
        lists = [control.SET_DOUBLE_WLAN] if "wlan1" in names else []
        return lists if names <= {"wlan0", "wlan1"} and lists else [*lists, control.SET_WHITELIST]

    def _tell_players(self, uids: Sequence[int], before: Sequence[int]) -> None:
        if before:
            self.phone.send(control.STOP_GAME, "")
        if uids:
            self.phone.send(control.START_GAME, ",".join(map(str, uids)))

    def begin(self) -> None:
        """What the daemon needs to know but for the users."""
        metered = any(lane.metered for lane in self.setup.lanes)
        self.phone.send(control.SET_METERED, str(int(metered)))
        self.tell_links()
        names = {lane.name for lane in self.up()}
        self.phone.wait_for(lambda: names <= set(self.phone.shares()), "the daemon's shares")
        self.write_resolver()
        self.set_default()
        self.disconnect([lane for lane in self.setup.lanes if lane not in self.up()])

    def set_default(self) -> None:
        """What the daemon leaves alone goes by the first lane that is up; and a name server
        that is a neighbour of an uplink, by that one's.
        """
        ways = [("default", lane) for lane in self.up()[:1]]
        for server in resolver.servers(self._resolver_text):
            ways += [(server, lane) for lane in self.up()
                     if self.setup.machine[lane.device].reaches(server)][:1]
        self.phone.run("ip", "route", "flush", "protocol", "static")
        for destination, lane in ways:
            protocol = "boot" if destination == "default" else "static"
            self.phone.run("ip", "route", "replace", destination, "via", lane.near,
                           "dev", lane.name, "protocol", protocol)

    def write_resolver(self) -> None:
        """In place: who has it mounted sees the new servers."""
        self._resolver_text = text = resolver.contents()
        if text:
            self.resolver = RUN / "resolv.conf"
            self.resolver.write_text(text)
        elif not self.resolver:
            programs.complain("no name server but this machine itself is known, which is not "
                              "reached in there: names will not be resolved")

    def attempt(self, action: Callable[[], None]) -> None:
        """The command goes on, whatever fails beside it."""
        try:
            action()
        except (OSError, subprocess.SubprocessError, programs.Failure) as error:
            if str(error) != self._complaint:
                self._complaint = str(error)
                complain(str(error))

    def turn(self) -> None:
        for each in self.turns:
            self.attempt(each)
        if self.phone.ended() and not self.told_end:
            self.told_end = True
            complain("the daemon ended, nothing is steered anew"
                      + (f"; its log: {self.setup.log}" if self.setup.log else ""))


def complain(words: str) -> None:
    """Where there may be nobody any more: a terminal that was closed, a full disk."""
    with contextlib.suppress(OSError):
        programs.complain(words)


@contextlib.contextmanager
def opened(setup: Setup, lock: Lock) -> Iterator[Session]:
    """Builds everything, and takes it away at the end of the block."""
    applied = Changes(setup.verbose)
    phone = None
    try:
        phone = Phone(setup.options, setup.lanes, setup.log, lock)
        applied.apply(setup.steps, phone.namespace)
        phone.start()
        session = Session(setup, phone, applied)
        session.begin()
        yield session
    finally:
        if phone:
            phone.stop()
        applied.undo()
