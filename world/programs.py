# SPDX-License-Identifier: Apache-2.0
"""The programs that build a world, and those that then run as long as it does."""

import os
import shutil
import subprocess
import sys
from collections.abc import Iterable, Sequence
from pathlib import Path

SYSTEM_PATH = "/usr/sbin:/usr/bin:/sbin:/bin"

# What runs in the world by process number: its end is worth a word.
_services: dict[int, str] = {}


class Failure(Exception):
    """The world cannot be built; the text says why and what to do."""


def complain(words: str) -> None:
    print(f"{Path(sys.argv[0]).name}: {words}", file=sys.stderr)


def lacking(built: Iterable[Path], tools: Iterable[str], devices: Iterable[str]) -> str:
    """The first of these that this machine lacks, in a sentence; empty when it has them all."""
    for program in built:
        if not program.exists():
            return f"{program} is missing: build it first, or name --build"
    for tool in tools:
        if not shutil.which(tool, path=SYSTEM_PATH):
            return f"{tool} is not installed"
    for device in devices:
        if not os.path.exists(device):
            return f"this machine has no {device}"
    return ""


def run(*argv: str | Path, text: str = "") -> None:
    """Runs one, with `text` as its input, that has to succeed."""
    result = subprocess.run(argv, input=text, text=True, stderr=subprocess.PIPE)
    if result.returncode != 0:
        raise Failure(f"{' '.join(map(str, argv))}: {result.stderr.strip()}")


def start(program: Path, *arguments: str, prefix: Sequence[str] = ()) -> subprocess.Popen[str]:
    """Starts one that stays; wait_ready() returns when it has printed "ready"."""
    # In a session of their own, out of reach of the terminal's Ctrl-C.
    process = subprocess.Popen([*prefix, program, *arguments], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, text=True, start_new_session=True)
    _services[process.pid] = program.name
    return process


def wait_ready(process: subprocess.Popen[str]) -> None:
    assert process.stdout
    if process.stdout.readline() != "ready\n":
        raise Failure(f"{_services[process.pid]} did not start")


def report_end(pid: int, status: int) -> None:
    if pid in _services:
        complain(f"{_services[pid]} ended: {os.waitstatus_to_exitcode(status)}")
