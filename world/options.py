# SPDX-License-Identifier: Apache-2.0
"""What can be chosen about a world, whatever is around it."""

import os
from dataclasses import dataclass, field
from pathlib import Path

from world import programs


@dataclass
class Options:
    build: Path  # the folder with the daemon, and the world's programs in a folder of their own
    conf: Path | None = None  # the daemon's configuration file
    props: list[str] = field(default_factory=list)  # KEY=VALUE, system properties
    record_tools: bool = False  # keep the wrapper tools' command lines
    no_stats: bool = False  # no statistics module: commands to it wait unread

    def problem(self) -> str:
        """What keeps this world from being built, in a sentence; empty when nothing does."""
        if os.geteuid() != 0:
            return "only root can build a world: use sudo"
        built = [self.build / "world" / name for name in ("slastat", "slaprocfs")]
        if problem := programs.lacking(built, ["ip", "iptables"], ["/dev/fuse"]):
            return problem
        if self.conf and not self.conf.is_file():
            return f"{self.conf}: no such file"
        return ""

    def environment(self) -> dict[str, str]:
        """That of a command in the world: it finds what was built before what is installed."""
        return os.environ | {"PATH": f"{self.build}:{programs.SYSTEM_PATH}"}
