# SPDX-License-Identifier: Apache-2.0
"""A run from its lock to the end: one command, a world that stays, or cleaning up."""

import contextlib
import signal
import sys
from collections.abc import Iterator, Sequence

from host import checks, command, service, session
from host.changes import Changes
from host.follow import Follower
from host.lock import Lock
from host.report import Report
from host.session import Session, Setup


@contextlib.contextmanager
def _locked(verbose: bool) -> Iterator[tuple[Lock, bool]]:
    """Alone on the machine, and with nothing of a killed run there; whether something was."""
    lock = Lock()
    try:
        yield lock, Changes(verbose).clean()
    finally:
        lock.release()


def clean(verbose: bool) -> int:
    checks.tools()
    with _locked(verbose) as (_, found):
        print("taken away what a killed run left" if found else "nothing to take away")
    return 0


def once(setup: Setup, argv: Sequence[str], user: command.User, quiet: bool) -> int:
    """Runs a command, or a shell; returns its exit status."""
    with _locked(setup.verbose) as (lock, _):
        setup.prepare()
        with session.opened(setup, lock) as opened:
            opened.steer([user.uid])
            return _attended(opened, argv, user, quiet)


def _attended(opened: Session, argv: Sequence[str], user: command.User, quiet: bool) -> int:
    if not quiet:
        print(f"{', '.join(map(str, opened.setup.lanes))}; the daemon's log: {opened.setup.log}",
              file=sys.stderr)
    # A shell's screen is not written on.
    report = Report(opened, lines=bool(argv) and sys.stderr.isatty() and not quiet)
    follower = Follower(opened)
    opened.turns = [follower.turn] + ([] if quiet else [report.turn])
    try:
        if signal.sigpending() & command.ENDING:
            return 130
        pid, mount = command.start(argv or [user.shell], user, opened.phone.network,
                                   opened.resolver)
        opened.turns.append(mount.renew)
        return command.attend(pid, opened.turn)
    finally:
        follower.close()
        if not quiet:
            opened.attempt(report.finish)


def up(setup: Setup, name: str) -> int:
    with _locked(setup.verbose) as (lock, _):
        setup.prepare()
        with session.opened(setup, lock) as opened:
            return service.serve(opened, name)
