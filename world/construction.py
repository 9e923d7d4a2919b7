# SPDX-License-Identifier: Apache-2.0
"""Turns the namespaces of the calling process into the phone: files, links, servers."""

import ctypes
import os
import shutil
import subprocess
import sys
from collections.abc import Sequence
from dataclasses import dataclass, field
from pathlib import Path

from world import (GAME_SERVER, INTERNET_ONLY, LAB, LINKS, PROBE_SERVER, SLOW_TARGETS, WEB_SERVER,
                   WEB_SERVER6, in_internet)

LAB_FOLDER = Path(__file__).resolve().parents[1] / "lab"
LIBC = ctypes.CDLL(None, use_errno=True)
MS_BIND, MS_REC, MS_PRIVATE, MNT_DETACH = 0x1000, 0x4000, 1 << 18, 2

# What the phone has of its own; all else in the root directory is the machine's.
OWN = {"proc", "sys", "run", "vendor", "system", "dev", "lost+found"}
DEVICES = ["null", "zero", "full", "random", "urandom", "tty", "fuse", "net/tun", "pts", "ptmx"]
ROUTING_TABLES = "/etc/iproute2/rt_tables"
FIRST_TABLE = 1001
PROGRAMS = ["lab/linkemu", "world/slastat", "world/labprocfs"]
GAME_PORTS = (7000, 7001)
VOIP_PEER = f"{WEB_SERVER}:5060"

NGINX_CONF = """\
user root;
worker_processes 1;
pid /run/lab/nginx.pid;
events {{ worker_connections 4096; }}
http {{
    log_format lab '$remote_addr $msec $request_time $bytes_sent $server_port $request_uri';
    access_log /run/lab/access.log lab;
    client_body_temp_path /run/lab/nginx; proxy_temp_path /run/lab/nginx;
    fastcgi_temp_path /run/lab/nginx; uwsgi_temp_path /run/lab/nginx;
    scgi_temp_path /run/lab/nginx;
    sendfile on;
    keepalive_timeout 0;  # each request is a connection, which has a link
    server {{
        {listen}
        root /run/lab/www;
    }}
}}
"""

SHELL_RC = """\
PS1='phone# '
cat <<'END'
A phone in a box. lnkd is on the PATH if it is built; its log goes to the terminal.
  links     wlan0 wlan1 rmnet_data0     echo 'wlan0 rate 20 delay 30 loss 1' > /run/lab/links
  servers   203.0.113.10 ports 80 443 8080 (web), 7000 7001 (game); 8.8.8.8:443 (probe)
  run there nsenter --net=/run/netns/internet COMMAND
  see       /run/lab/sla.log  /run/lab/access.log  /proc/sla/
END
"""


class Failure(Exception):
    """The world cannot be built; the text says why and what to do."""


@dataclass
class Options:
    build: Path
    conf: Path | None = None
    props: list[str] = field(default_factory=list)
    record_tools: bool = False
    no_stats: bool = False

    def problem(self) -> str:
        """What keeps this world from being built, in a sentence; empty when nothing does."""
        if os.geteuid() != 0:
            return "only root can build a world: use sudo"
        for program in PROGRAMS:
            if not (self.build / program).exists():
                return f"{self.build}/{program} is missing: build it first, or name --build"
        for tool in ("ip", "iptables", "nginx", "nsenter"):
            if not shutil.which(tool, path=SYSTEM_PATH):
                return f"{tool} is not installed"
        for device in ("/dev/net/tun", "/dev/fuse"):
            if not os.path.exists(device):
                return f"this machine has no {device}"
        if self.conf and not self.conf.is_file():
            return f"{self.conf}: no such file"
        return ""


SYSTEM_PATH = "/usr/sbin:/usr/bin:/sbin:/bin"

# The programs of the world by process number: their end is worth a word.
_services: dict[int, str] = {}


def build(options: Options) -> None:
    _root()
    _phone_files(options)
    _run("ip", "netns", "add", "internet")
    devices = [f"{link.name}:{link.far}" for link in LINKS.values()]
    emulator = _start(options.build / "lab/linkemu", f"{LAB}/links", "/run/netns/internet", *devices)
    _wait_ready(emulator)
    _phone_network()
    _internet_network()
    addresses = [f"{PROBE_SERVER}:443", VOIP_PEER]
    addresses += [f"{server}:{port}" for server in (WEB_SERVER, GAME_SERVER) for port in GAME_PORTS]
    addresses += [f"{target}/{manner}" for manner, target in SLOW_TARGETS.items()]
    responder = _start(LAB_FOLDER / "responder.py", f"{LAB}/responder.log", *addresses,
                       prefix=INTERNET_ONLY)
    statistics = None
    if not options.no_stats:
        statistics = _start(options.build / "world/slastat", f"{LAB}/sla.log", VOIP_PEER, *LINKS)
    _nginx()
    _wait_ready(responder)
    if statistics:
        _wait_ready(statistics)


def environment(options: Options) -> dict[str, str]:
    path = f"{options.build}:{options.build}/world:{options.build}/lab:{SYSTEM_PATH}"
    return os.environ | {"PATH": path, "LAB_BUILD": str(options.build)}


def shell() -> list[str]:
    Path(f"{LAB}/bashrc").write_text(SHELL_RC)
    return ["bash", "--rcfile", f"{LAB}/bashrc", "-i"]


def report_end(pid: int, status: int) -> None:
    if pid in _services:
        print(f"phone: {_services[pid]} ended: {os.waitstatus_to_exitcode(status)}",
              file=sys.stderr)


def _mount(source: str | None, target: str, kind: str | None, flags: int = 0) -> None:
    def text(value: str | None) -> bytes | None:
        return value.encode() if value is not None else None

    if LIBC.mount(text(source), text(target), text(kind), flags, None) != 0:
        raise OSError(ctypes.get_errno(), f"mount {target}")


def _bind(source: str, target: str) -> None:
    if os.path.isdir(source):
        os.makedirs(target, exist_ok=True)
    else:
        os.makedirs(os.path.dirname(target), exist_ok=True)
        Path(target).touch()
    _mount(source, target, None, MS_BIND | MS_REC)


def _root() -> None:
    """A root directory of our own, with the machine's directories in it."""
    here = os.getcwd()
    _mount(None, "/", None, MS_REC | MS_PRIVATE)
    new = "/run"  # any directory that need not be seen itself
    _mount("lab", new, "tmpfs")
    os.chmod(new, 0o755)
    for entry in os.scandir("/"):
        if entry.name in OWN:
            continue
        if entry.is_symlink():
            os.symlink(os.readlink(entry.path), f"{new}/{entry.name}")
        elif entry.is_dir():
            _bind(entry.path, f"{new}/{entry.name}")
    for name in ("run", "dev"):
        os.mkdir(f"{new}/{name}")
        _mount("lab", f"{new}/{name}", "tmpfs")
        os.chmod(f"{new}/{name}", 0o755)
    for device in DEVICES:
        _bind(f"/dev/{device}", f"{new}/dev/{device}")
    for name in ("proc", "sys", "vendor/etc/sla", "system/bin", "dev/shm", "dev/socket",
                 "run/lab/proc", "run/lab/sla", "run/lab/www", "run/lab/nginx"):
        os.makedirs(f"{new}/{name}")
    os.chmod(f"{new}/dev/shm", 0o1777)
    os.chdir(new)
    if LIBC.pivot_root(b".", b".") != 0 or LIBC.umount2(b".", MNT_DETACH) != 0:
        raise OSError(ctypes.get_errno(), "pivot_root")
    os.chdir("/")
    for name, target in (("fd", "fd"), ("stdin", "fd/0"), ("stdout", "fd/1"), ("stderr", "fd/2")):
        os.symlink(f"/proc/self/{target}", f"/dev/{name}")
    _mount("sysfs", "/sys", "sysfs")
    _mount("proc", f"{LAB}/proc", "proc")
    _bind(f"{LAB}/proc", "/proc")  # until labprocfs covers it
    try:
        os.chdir(here)
    except OSError:
        pass  # a directory that the phone does not have


def _phone_files(options: Options) -> None:
    for fifo in (f"{LAB}/links", f"{LAB}/sla/config"):
        os.mkfifo(fifo, 0o600)
    # Kept open by this process, the one that lasts as long as the world: a
    # writer must never wait for a reader.
    os.open(f"{LAB}/sla/config", os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
    _run(options.build / "world/labprocfs")
    if options.conf:
        shutil.copyfile(options.conf, "/vendor/etc/sla/lnkd.conf")
    Path("/vendor/build.prop").write_text("".join(f"{prop}\n" for prop in options.props))
    for tool in ("iptables", "ip"):
        record = f"printf '%s\\n' \"{tool} $*\" >> {LAB}/tools.log\n"
        record = record if options.record_tools else ""
        real = shutil.which(tool, path=SYSTEM_PATH)
        wrapper = Path(f"/system/bin/{tool}-wrapper-1.0")
        wrapper.write_text(f"#!/bin/sh\n{record}exec {real} \"$@\"\n")
        wrapper.chmod(0o755)
    tables = Path(ROUTING_TABLES).read_text()
    for number, name in enumerate(LINKS, FIRST_TABLE):
        tables += f"{number} {name}\n"
    Path(f"{LAB}/rt_tables").write_text(tables)
    _mount(f"{LAB}/rt_tables", ROUTING_TABLES, None, MS_BIND)


def _phone_network() -> None:
    lines = ["link set lo up"]
    for number, link in enumerate(LINKS.values()):
        lines += _device(link.name)
        lines += [f"addr add {link.address}/24 dev {link.name}",
                  f"addr add {link.address6}/64 dev {link.name} nodad"]
        # The first link is the default; the others are reached by a table or a bound socket.
        for table in [link.name] + (["main"] if number == 0 else []):
            lines += [f"route add 0.0.0.0/0 via {link.gateway} dev {link.name} table {table}",
                      f"route add ::/0 dev {link.name} table {table}"]
        lines += [f"-4 rule add oif {link.name} lookup {link.name} pref 17000",
                  f"-6 rule add oif {link.name} lookup {link.name} pref 17000"]
    _ip_batch([], lines)


def _internet_network() -> None:
    lines = ["link set lo up"]
    lines += [f"addr add {server}/32 dev lo"
              for server in (WEB_SERVER, GAME_SERVER, PROBE_SERVER)]
    lines += [f"addr add {WEB_SERVER6}/128 dev lo nodad"]
    for link in LINKS.values():
        lines += _device(link.far)
        lines += [f"addr add {link.gateway}/24 dev {link.far}",
                  f"addr add {link.gateway6}/64 dev {link.far} nodad"]
    _ip_batch(INTERNET_ONLY, lines)


def _device(name: str) -> list[str]:
    # No link-local address: its router and multicast traffic would be counted as load.
    return [f"link set {name} addrgenmode none", f"link set {name} up txqueuelen 2000"]


def _ip_batch(prefix: Sequence[str], lines: list[str]) -> None:
    # Packets may come in on another link than the one that leads to their source.
    _run(*prefix, "sh", "-c", "for f in /proc/sys/net/ipv4/conf/*/rp_filter; do echo 0 >$f; done")
    for family in ("-4", "-6"):
        own = [line.removeprefix(family).strip() for line in lines if line.startswith(family)]
        if own:
            _run(*prefix, "ip", family, "-batch", "-", text="\n".join(own))
    both = [line for line in lines if not line.startswith("-")]
    _run(*prefix, "ip", "-batch", "-", text="\n".join(both))


def _nginx() -> None:
    listen = "\n        ".join(
        f"listen {address}:{port};"
        for address in (WEB_SERVER, f"[{WEB_SERVER6}]") for port in (80, 443, 8080)
    )
    Path(f"{LAB}/nginx.conf").write_text(NGINX_CONF.format(listen=listen))
    # Returns once it listens.
    in_internet(["nginx", "-c", f"{LAB}/nginx.conf", "-p", f"{LAB}/nginx",
                 "-e", f"{LAB}/nginx.error.log"], check=True)


def _run(*argv: str | Path, text: str = "") -> None:
    result = subprocess.run(argv, input=text, text=True, stderr=subprocess.PIPE)
    if result.returncode != 0:
        raise Failure(f"{' '.join(map(str, argv))}: {result.stderr.strip()}")


def _start(program: Path, *arguments: str, prefix: Sequence[str] = ()) -> subprocess.Popen[str]:
    # In a session of their own, out of reach of the terminal's Ctrl-C.
    process = subprocess.Popen([*prefix, program, *arguments], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, text=True, start_new_session=True)
    _services[process.pid] = program.name
    return process


def _wait_ready(process: subprocess.Popen[str]) -> None:
    assert process.stdout
    if process.stdout.readline() != "ready\n":
        raise Failure(f"{_services[process.pid]} did not start")
