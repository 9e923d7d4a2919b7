# SPDX-License-Identifier: Apache-2.0
"""Runs each test in the virtual machine, which is booted once, by the first of them.

    LNKD_BUILD=build/release python3 -m pytest tests/vm [-k NAME]
"""

import functools
import os
import sys
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY))

from lab import driver  # noqa: E402
from lab.vm.machine import Machine  # noqa: E402

machine = functools.cache(Machine)


def pytest_collection_modifyitems(items):
    for item in items if "LNKD_IN_VM" not in os.environ else []:
        item.setup = lambda: None  # fixtures belong inside
        item.runtest = lambda item=item: run_in_machine(f"{item.path}::{item.name}")


def run_in_machine(test):
    build = f"/host{Path(os.environ.get('LNKD_BUILD', REPOSITORY / 'build/release')).resolve()}"
    command = (f"LNKD_IN_VM=1 LNKD_BUILD={build} PATH={build}:$PATH PYTHONDONTWRITEBYTECODE=1 "
               f"python3 -m pytest -q --tb=short --color=no -p no:cacheprovider /host{test}")
    try:
        status, output = machine().run(command, deadline=180)
    except (TimeoutError, OSError):
        machine.cache_clear()  # the next test gets a new one
        raise
    if status != 0:
        pytest.fail(output, pytrace=False)


def pytest_sessionfinish():
    if machine.cache_info().currsize:
        machine().end()


@pytest.fixture
def phone():
    started = driver.Phone()
    yield started
    print("\n".join(started.daemon.log[-60:]))  # shown when the test has failed
    started.stop()
