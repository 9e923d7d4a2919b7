# SPDX-License-Identifier: Apache-2.0
"""An ordinary Debian machine: its files, its users, its network, and how it starts and ends.

Its processes are a process-id namespace, whose first one runs this: when that ends, all end.
"""

import os
import subprocess
from collections.abc import Sequence
from pathlib import Path

from lab import internet, uplinks, web
from lab.links import start_emulator
from world import programs
from world.waiting import wait_until

UNSHARE = ("unshare", "--mount", "--net", "--pid", "--fork", "--kill-child=KILL", "--mount-proc")
STARTING = {"LAB_LAPTOP": "starting"}  # in the environment of what `unshare` starts
USERS = {"anna": 2001, "ben": 2002}  # homes are below /run/home
TOOLS = ("unshare", "nginx", "nsenter", "dnsmasq", "udhcpc", "nft")
MOUNTS = """
mount -t sysfs sysfs /sys
mount -t tmpfs -o mode=755 tmpfs /run
mount -t tmpfs tmpfs /var/log
mkdir -p /run/lab/etc /run/lab/work /run/lock /run/home
mount -t overlay -o lowerdir=/etc,upperdir=/run/lab/etc,workdir=/run/lab/work overlay /etc
rm -f /etc/resolv.conf
"""
# Nothing is forwarded, and who comes by another way than the answer would take is not let in.
SYSCTLS = ("net.ipv4.ip_forward=0", "net.ipv4.conf.all.rp_filter=0",
           "net.ipv4.conf.default.rp_filter=1")


def starting() -> bool:
    return os.environ.pop("LAB_LAPTOP", "") == "starting"


def inside() -> bool:
    """Whether this process is on such a machine."""
    return uplinks.CLIENT_PID.exists()


def problem(build: Path) -> str:
    """What keeps it from being built, in a sentence; empty when nothing does."""
    if os.geteuid() != 0:
        return "only root can build a machine: use sudo"
    return programs.lacking([build / "lab/linkemu"], TOOLS, ["/dev/net/tun", "/dev/fuse"])


def run(build: Path, command: Sequence[str]) -> int:
    """Builds the machine out of this process's namespaces, and runs `command` on it."""
    _make_files()
    programs.run("sysctl", "-qw", *SYSCTLS)
    _make_network(build)
    path = f"{build}:{build}/world:{programs.SYSTEM_PATH}"
    environment = os.environ | {"LAB_BUILD": str(build), "PATH": path}
    child = subprocess.Popen(command, env=environment)
    while True:  # the first process is everyone's parent in the end
        pid, status = os.wait()
        if pid == child.pid:
            code = os.waitstatus_to_exitcode(status)
            return code if code >= 0 else 128 - code


def _make_files() -> None:
    programs.run("sh", "-e", "-c", MOUNTS)
    for name, uid in USERS.items():
        home = Path(f"/run/home/{name}")
        home.mkdir()
        os.chown(home, uid, uid)
        with open("/etc/passwd", "a", encoding="ascii") as passwd:
            passwd.write(f"{name}:x:{uid}:{uid}::{home}:/bin/sh\n")
        with open("/etc/group", "a", encoding="ascii") as group:
            group.write(f"{name}:x:{uid}:\nfriends-of-{name}:x:{uid + 500}:{name}\n")


def _make_network(build: Path) -> None:
    programs.run("ip", "link", "set", "lo", "up")
    internet.make_namespace()
    devices = [uplink.devices for uplink in uplinks.UPLINKS]
    programs.wait_ready(start_emulator(build / "lab/linkemu", internet.NAMESPACE, devices))
    internet.set_up(uplinks.UPLINKS)
    responder = internet.start_responder()
    web.start_server()
    uplinks.set_up()
    programs.wait_ready(responder)
    wait_until(lambda: len(uplinks.routes()) == len(uplinks.UPLINKS), 10, "a lease for the cable")
