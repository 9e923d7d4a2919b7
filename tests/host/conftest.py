# SPDX-License-Identifier: Apache-2.0
"""Runs each test on a laptop of its own.

    LNKD_BUILD=build/asan python3 -m pytest tests/host [-k NAME]
"""

import os
import signal
import sys
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY))

from lab import debian, host  # noqa: E402
from lab.driver import run_each  # noqa: E402


# By it a command hears of the end of its run; under nohup, say, it would be ignored in all below.
signal.signal(signal.SIGHUP, signal.SIG_DFL)


def pytest_collection_modifyitems(items):
    if not debian.inside():
        build = os.environ.get("LNKD_BUILD", REPOSITORY / "build/release")
        run_each(items, REPOSITORY / "lab/laptop", "--build", build)


@pytest.fixture
def start():
    """Starts lnkd-host; whatever ends it, the machine must be as it was before."""
    before, sessions = host.state(), []

    def started(*arguments, **options):
        sessions.append(host.Session(*arguments, **options))
        return sessions[-1]

    yield started
    for session in sessions:
        if session.process.poll() is None:
            session.end()
        print(session.errors()[-4000:])  # shown when the test has failed
    assert host.changes(before) == {}
