# SPDX-License-Identifier: Apache-2.0
"""Runs each test in a phone of its own: whatever a test does to it, the next one has a fresh one.

    LNKD_BUILD=build/asan python3 -m pytest tests/system [-k NAME]
"""

import os
import subprocess
import sys
from pathlib import Path

import pytest

REPOSITORY = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY))

import world  # noqa: E402
from lab.driver import Phone  # noqa: E402


def pytest_collection_modifyitems(items):
    for item in items if not world.inside() else []:
        item.setup = lambda: None  # fixtures belong inside
        item.runtest = lambda item=item: run_in_phone(f"{item.path}::{item.name}")


def run_in_phone(test):
    build = os.environ.get("LNKD_BUILD", REPOSITORY / "build/release")
    phone = [REPOSITORY / "lab/phone", "--build", build, "--record-tools"]
    pytest_command = f"{sys.executable} -m pytest -q --no-header --tb=short -p no:cacheprovider"
    result = subprocess.run([*phone, *pytest_command.split(), test], timeout=300,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors="replace")
    if result.returncode != 0:
        pytest.fail(result.stdout, pytrace=False)


@pytest.fixture
def phone():
    started = Phone()
    yield started
    print("\n".join(started.daemon.log[-40:]))  # shown when the test has failed
    started.stop()
