# SPDX-License-Identifier: Apache-2.0
"""Runs each test in a phone of its own: whatever a test does to it, the next one has a fresh one.

    LNKD_BUILD=build/asan python3 -m pytest tests/system [-k NAME]
"""

import os
import sys
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY))

import world  # noqa: E402
from lab.driver import Phone, run_each  # noqa: E402


def pytest_collection_modifyitems(items):
    if not world.inside():
        build = os.environ.get("LNKD_BUILD", REPOSITORY / "build/release")
        run_each(items, REPOSITORY / "lab/phone", "--build", build, "--record-tools")


@pytest.fixture
def phone():
    started = Phone()
    yield started
    print("\n".join(started.daemon.log[-40:]))  # shown when the test has failed
    started.stop()
