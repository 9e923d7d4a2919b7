# SPDX-License-Identifier: Apache-2.0
"""What a run is to use: from the command line, or from a file of /etc/lnkd."""

import re
from dataclasses import dataclass, field
from pathlib import Path

from host import Refusal
from host.lanes import Lane

FOLDER = Path("/etc/lnkd")
NAME = re.compile(r"[A-Za-z0-9_][A-Za-z0-9_.-]*")


@dataclass
class Wish:
    lanes: list[Lane] = field(default_factory=list)  # none: what has a default route
    modems: list[str] = field(default_factory=list)
    game: bool = False
    conf: Path | None = None  # the daemon's


def check_name(name: str) -> str:
    if not NAME.fullmatch(name):
        raise Refusal(f'"{name}": not a name (letters, digits, _ . -)')
    return name


def read(name: str) -> Wish:
    path = FOLDER / f"{check_name(name)}.conf"
    try:
        lines = path.read_text().splitlines()
    except OSError as error:
        raise Refusal(f"{path}: {error.strerror}; lnkd-host(8) has its format") from error
    wish = Wish()
    for number, line in enumerate(lines, 1):
        if problem := _take(wish, line.partition("#")[0].split()):
            raise Refusal(f"{path}: line {number}: {problem}")
    return wish


def _take(wish: Wish, words: list[str]) -> str:
    """Takes one line; what is wrong with it."""
    match words:
        case []:
            pass
        case ["link", name, device]:
            wish.lanes.append(Lane(name, device))
        case ["link", name, device, "metered"]:
            wish.lanes.append(Lane(name, device, metered=True))
        case ["modem", device]:
            wish.modems.append(device)
        case ["game"]:
            wish.game = True
        case ["conf", file] if file.startswith("/"):
            wish.conf = Path(file)
        case _:
            return (f'"{" ".join(words)}": not "link NAME DEVICE [metered]", "modem DEVICE", '
                    '"game" or "conf /FILE"')
    return ""
