# SPDX-License-Identifier: Apache-2.0
"""The uplinks of a laptop: how each gets its address and its route, and how that changes."""

import subprocess
from dataclasses import dataclass
from pathlib import Path

from lab import RUN
from lab.internet import COMMAND, WEB_SERVER, in_internet
from world import network, programs

NAME_SERVED = "web.lab"  # what the name server knows


@dataclass(frozen=True)
class Uplink:
    name: str
    far: str  # the device's other end, in the internet
    address: str  # with 24 bits of network
    gateway: str
    route: str  # the default route
    ethernet: bool = True
    gateway6: str = ""

    @property
    def devices(self) -> str:
        """For the link emulator."""
        return f"{self.name}:{self.far}" + (":ethernet" if self.ethernet else "")


CABLE = Uplink("enp1s0", "net0", "192.168.1.100", "192.168.1.1", "")
WIFI = Uplink("wlp3s0", "net1", "192.168.2.2", "192.168.2.1", "via 192.168.2.1 metric 600")
# As many a modem's, its route names no gateway.
MODEM = Uplink("wwan0", "net2", "10.64.0.2", "10.64.0.1", "metric 700", ethernet=False)
UPLINKS = (CABLE, WIFI, MODEM)

CABLE_MAC = "02:00:00:00:01:64"
DHCP_SERVER = "192.168.1.2"  # not the gateway, so that it outlasts a change of that
HOSTS, OPTIONS = Path(f"{RUN}/dhcp.hosts"), Path(f"{RUN}/dhcp.options")
SERVER_PID, CLIENT_PID = Path(f"{RUN}/dnsmasq.pid"), Path(f"{RUN}/udhcpc.pid")
SERVER = [
    "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--no-resolv", "--no-hosts",
    "--no-ping", "--user=root", f"--pid-file={SERVER_PID}",
    f"--address=/{NAME_SERVED}/{WEB_SERVER}",
    "--dhcp-authoritative", "--dhcp-range=192.168.1.100,192.168.1.199,1h",
    f"--dhcp-leasefile={RUN}/dhcp.leases", f"--dhcp-hostsfile={HOSTS}",
    f"--dhcp-optsfile={OPTIONS}", f"--log-facility={RUN}/dnsmasq.log"]
CLIENT = ["udhcpc", "--foreground", "--interface", CABLE.name, "--pidfile", str(CLIENT_PID),
          "--timeout", "1", "--tryagain", "1"]


def set_up() -> None:
    """The near ends: the cable by DHCP, the others by hand, as a network manager would."""
    replace_router(CABLE.address, CABLE.gateway)
    subprocess.Popen([*COMMAND, *SERVER])
    lines = [f"link set {CABLE.name} address {CABLE_MAC}"]
    for uplink in UPLINKS:
        lines += network.bring_up(uplink.name)
    for uplink in (WIFI, MODEM):
        lines += [f"addr add {uplink.address}/24 dev {uplink.name}",
                  f"route add default dev {uplink.name} {uplink.route}"]
    network.batch(lines)
    with open(f"{RUN}/udhcpc.log", "wb") as log:
        subprocess.Popen(CLIENT, stdin=subprocess.DEVNULL, stdout=log, stderr=log)


def replace_router(address: str, gateway: str) -> None:
    """Another router at the other end of the cable: its address, and the one it gives."""
    far = CABLE.far
    mac = f"02:00:00:00:02:{int(gateway.split('.')[3]):02x}"
    # The neighbours hear of it, so that nothing but the gateway's old address is dead.
    in_internet(["sysctl", "-qw", f"net.ipv4.conf.{far}.arp_notify=1"], check=True)
    network.batch([f"addr flush dev {far}", f"addr add {DHCP_SERVER}/24 dev {far}",
                   f"addr add {gateway}/24 dev {far}", f"link set {far} address {mac}"], COMMAND)
    HOSTS.write_text(f"{CABLE_MAC},{address}\n")
    OPTIONS.write_text(f"option:router,{gateway}\noption:dns-server,{WEB_SERVER}\n")
    if SERVER_PID.exists():
        _signal("HUP", SERVER_PID)


def renew() -> None:
    """The client asks for its lease again; for a new one when it has none."""
    _signal("USR1", CLIENT_PID)


def release() -> None:
    """The client gives its lease back: the cable has neither address nor route."""
    _signal("USR2", CLIENT_PID)


def _signal(name: str, pid_file: Path) -> None:
    programs.run("kill", f"-{name}", pid_file.read_text().strip())


def routes() -> dict[str, str]:
    """The default route of each uplink that has one, in the order of their metrics."""
    listing = subprocess.check_output(["ip", "-4", "route", "show", "default"], text=True)
    return {words[words.index("dev") + 1]: line
            for line in listing.splitlines() if (words := line.split())}
