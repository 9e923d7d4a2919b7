# SPDX-License-Identifier: Apache-2.0
"""Whether what a daemon logged is what it decides again from what it logged."""

import os
import re
import subprocess
import tempfile
from collections.abc import Sequence
from pathlib import Path

import world

FOUND = re.compile(r"replayed: (\d+) choices, .*?, (\d+) different(.*)")


def replayed(log: Sequence[str]) -> tuple[bool, str]:
    """With the world's configuration; and what was found."""
    program = Path(os.environ["LAB_BUILD"], "lnkd-replay")
    with tempfile.NamedTemporaryFile("w", suffix=".log", encoding="utf-8") as file:
        file.writelines(f"{line}\n" for line in log)
        file.flush()
        answer = subprocess.run([program, f"--conf={world.CONFIGURATION}", file.name], text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
    found = FOUND.search(answer.stdout)
    if answer.returncode != 0 or found is None:
        return False, answer.stdout[-200:]
    return found[2] == "0", f"{found[1]} choices" + found[3]
