# SPDX-License-Identifier: Apache-2.0
"""What the lab puts around a phone: emulated links, and the internet behind them."""

import os
from collections.abc import Sequence
from pathlib import Path

from lab import RUN, internet, web
from lab.links import LINKS, start_emulator
from world import launch, programs
from world.options import Options
from world.surroundings import Surroundings

SHELL = ("bash", "--rcfile", f"{RUN}/bashrc", "-i")
SHELL_RC = """\
PS1='phone# '
cat <<'END'
A phone in a box. lnkd is on the PATH if it is built; its log goes to the terminal.
  links     wlan0 wlan1 rmnet_data0     echo 'wlan0 rate 20 delay 30 loss 1' > /run/lab/links
  servers   203.0.113.10 ports 80 443 8080 (web), 7000 7001 (game); 8.8.8.8:443 (probe)
  run there nsenter --net=/run/netns/internet COMMAND
  see       /run/world/sla.log  /run/lab/access.log  /proc/sla/
END
"""


class Lab(Surroundings):
    links = tuple(LINKS.values())
    devices = ("net/tun",)
    voip_peer = internet.CALL_PEER

    def __init__(self, build: Path):
        self._emulator = build / "lab/linkemu"

    def problem(self) -> str:
        return programs.lacking([self._emulator], ["nginx", "nsenter"], ["/dev/net/tun"])

    def connect(self) -> None:
        os.mkdir(RUN)
        internet.make_namespace()
        devices = [f"{link.name}:{link.far}" for link in self.links]
        programs.wait_ready(start_emulator(self._emulator, internet.NAMESPACE, devices))

    def furnish(self) -> None:
        internet.set_up(self.links)
        responder = internet.start_responder()
        web.start_server()
        Path(f"{RUN}/bashrc").write_text(SHELL_RC)
        programs.wait_ready(responder)


def run(options: Options, command: Sequence[str] = ()) -> int:
    """Runs a command, or a shell, in a world of the lab; returns its exit status."""
    environment = options.environment() | {"LAB_BUILD": str(options.build)}
    return launch.run(options, Lab(options.build), command or SHELL, environment)
