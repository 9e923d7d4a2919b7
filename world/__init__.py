# SPDX-License-Identifier: Apache-2.0
"""What code inside a world works with: its addresses, the daemon, links, files, traffic.

`lab/phone` puts a command into a world; this module is for that command, a test
session, a scenario or a benchmark. Paths are the phone's own.
"""

import mmap
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
from collections.abc import Callable, Iterable, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any, NamedTuple, TypeVar

LAB = "/run/lab"
WEB_SERVER = "203.0.113.10"
GAME_SERVER = "203.0.113.20"  # a second one for games
WEB_SERVER6 = "2001:db8::10"
PROBE_SERVER = "8.8.8.8"
SLOW_TARGETS = {"silent": f"{GAME_SERVER}:7010", "drip": f"{GAME_SERVER}:7011"}  # by manner
INTERNET_ONLY = ("nsenter", "--net=/run/netns/internet")
PROPERTIES = Path("/vendor/build.prop")
CONTROL_SOCKET = "/dev/socket/lnkd"

T = TypeVar("T")


class Link(NamedTuple):
    name: str  # of the phone's device, and of its routing table
    far: str  # the device's other end, in the internet
    address: str  # of the phone
    gateway: str  # of the other end
    address6: str
    gateway6: str


LINKS = {
    name: Link(name, f"net{n}", f"10.10.{n + 1}.2", f"10.10.{n + 1}.1",
               f"fd00:10:{n + 1}::2", f"fd00:10:{n + 1}::1")
    for n, name in enumerate(("wlan0", "wlan1", "rmnet_data0"))
}


def inside() -> bool:
    """Whether this process is in a world, and may do what this module does."""
    return Path(f"{LAB}/links").is_fifo()


def wait_until(predicate: Callable[[], T], deadline: float = 5.0, what: str = "") -> T:
    """The first true result of `predicate`; TimeoutError after `deadline` seconds."""
    end = time.monotonic() + deadline
    while True:
        result = predicate()
        if result:
            return result
        if time.monotonic() > end:
            raise TimeoutError(f"{what or predicate.__name__}: not within {deadline} s")
        time.sleep(0.005)


def in_internet(argv: Sequence[str], **options: Any) -> subprocess.CompletedProcess[Any]:
    """subprocess.run on the servers' side of the links."""
    return subprocess.run([*INTERNET_ONLY, *argv], **options)


def slow_down_probes(manner: str) -> None:
    """Puts a slow target in the place of the one that is probed by default."""
    rule = f"-d {PROBE_SERVER} -p tcp -j DNAT --to-destination {SLOW_TARGETS[manner]}"
    in_internet(["iptables", "-w", "-t", "nat", "-A", "PREROUTING", *rule.split()], check=True)


def links(*lines: str) -> None:
    """Sets links, each line whole or not at all: "wlan0 rate 20 delay 10", "wlan1 down"."""
    with open(f"{LAB}/links", "w", encoding="ascii") as fifo:
        fifo.write("".join(f"{line}\n" for line in lines))


def received_bytes(interface: str) -> int:
    return int(Path(f"/sys/class/net/{interface}/statistics/rx_bytes").read_text())


def set_prop(key: str, value: str | None) -> None:
    """Sets a system property, or removes it with None; readers see the old file or the new."""
    lines = PROPERTIES.read_text().splitlines()
    lines = [line for line in lines if line.split("=")[0] != key]
    if value is not None:
        lines.append(f"{key}={value}")
    fresh = PROPERTIES.with_suffix(".new")
    fresh.write_text("".join(f"{line}\n" for line in lines))
    fresh.rename(PROPERTIES)


# --- the daemon -----------------------------------------------------------------------------


class Daemon:
    """A running daemon and what it has logged so far."""

    def __init__(self, argv: Sequence[str], **options: Any):
        self.log: list[str] = []
        self._more = threading.Condition()
        self._ended = False
        self.process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True, errors="replace",
                                        **options)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self) -> None:
        assert self.process.stdout
        for line in self.process.stdout:
            with self._more:
                self.log.append(line.rstrip("\n"))
                self._more.notify_all()
        with self._more:
            self._ended = True
            self._more.notify_all()

    def wait_for(self, pattern: str, deadline: float = 5.0, since: int = 0) -> re.Match[str]:
        """The first log line from number `since` on that matches.

        For what is logged again and again, take `since = len(daemon.log)` before the cause.
        """
        end = time.monotonic() + deadline
        with self._more:
            while True:
                for line in self.log[since:]:
                    match = re.search(pattern, line)
                    if match:
                        return match
                left = end - time.monotonic()
                if self._ended or left <= 0:
                    state = "ended" if self._ended else f"has not said it within {deadline} s"
                    tail = "\n  ".join(self.log[-15:])
                    raise TimeoutError(f"/{pattern}/: the daemon {state}; last:\n  {tail}")
                self._more.wait(left)

    def stop(self, deadline: float = 5.0) -> int:
        """Ends it as init would and returns its exit status; one that hangs is killed."""
        self.process.send_signal(signal.SIGTERM)
        try:
            status = self.process.wait(deadline)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise
        finally:
            self._reader.join(deadline)
        return status

    def __enter__(self) -> "Daemon":
        return self

    def __exit__(self, *_: object) -> None:
        if self.process.poll() is None:
            self.stop()


def start_daemon(path: str = "lnkd", *arguments: str, **options: Any) -> Daemon:
    return Daemon([path, *arguments], **options)


def connect_control(deadline: float = 5.0) -> socket.socket:
    """Connects to the control socket as soon as it is there. The daemon serves one connection."""

    def attempt() -> socket.socket | None:
        client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            client.connect(CONTROL_SOCKET)
            return client
        except (FileNotFoundError, ConnectionRefusedError):
            client.close()
            return None

    client = wait_until(attempt, deadline, "control socket")
    assert client
    return client


def send_message(sock: socket.socket, number: int, text: str | bytes,
                 length: int | None = None) -> None:
    """Sends one control message; `length` is for lies about the text's length."""
    data = text.encode() if isinstance(text, str) else text
    sock.sendall(struct.pack("=ii1024s", number, len(data) if length is None else length, data))


# --- statistics -----------------------------------------------------------------------------

SAMPLE, INTERMEDIATE, REFERENCE = 2, 1, 0
Record = tuple[int, int, int, int]  # timestamp in ms, bytes, type, flag


class Ring:
    """The statistics file of an interface, for a test in the module's place or for a look at it."""

    MAGIC = 0x686A7379
    RECORDS = 1279
    SIZE = 20480
    RECORD = struct.Struct("<QIHBB")

    def __init__(self, interface: str):
        fd = os.open(f"/proc/sla/{interface}_mmap", os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o644)
        try:
            if os.fstat(fd).st_size < self.SIZE:
                os.ftruncate(fd, self.SIZE)
            self._map = mmap.mmap(fd, self.SIZE)
        finally:
            os.close(fd)

    def write(self, records: Iterable[Record] = (), write_index: int | None = None,
              magic: int = MAGIC) -> None:
        """Makes `records`, oldest first, the only ones, from slot 0 on."""
        data = b"".join(self.RECORD.pack(stamp, count, 0, kind, flag)
                        for stamp, count, kind, flag in records)
        if write_index is None:
            write_index = len(data) // self.RECORD.size % self.RECORDS
        self._map[16:] = data.ljust(self.SIZE - 16, b"\0")
        self._map[:16] = struct.pack("<IIII", magic, 0, write_index, 0)

    @property
    def write_index(self) -> int:
        return int(struct.unpack_from("<I", self._map, 8)[0])

    def read(self) -> list[Record]:
        """The records, newest first."""
        records: list[Record] = []
        newest = (self.write_index - 1) % self.RECORDS
        for age in range(self.RECORDS):
            offset = 16 + (newest - age) % self.RECORDS * self.RECORD.size
            stamp, count, _, kind, flag = self.RECORD.unpack_from(self._map, offset)
            if stamp == 0:
                break
            records.append((stamp, count, kind, flag))
        return records


def statistics_commands() -> list[str]:
    """What the statistics module has been told, in order."""
    path = Path(f"{LAB}/sla.log")
    if not path.exists():
        return []
    return [line.split(" ", 1)[1] for line in path.read_text().splitlines()]


def set_voip_peer(peer: str) -> None:
    """Whom the next call is with, "A.B.C.D:PORT"."""
    with open("/proc/sla/config", "wb", buffering=0) as config:
        config.write(f"voip_peer={peer}".encode() + b"\0")


def tool_commands() -> list[str]:
    """Command lines that the wrapper tools have been given (in a world with --record-tools)."""
    path = Path(f"{LAB}/tools.log")
    return path.read_text().splitlines() if path.exists() else []


# --- traffic --------------------------------------------------------------------------------


@dataclass(frozen=True)
class Access:
    """One request, as the web server saw it."""

    address: str
    time: float  # when it was answered, s since the epoch
    duration: float  # s
    sent: int  # bytes, with the header
    port: int
    path: str

    @property
    def link(self) -> str:
        """The link whose address it came from, or the address when it is none's."""
        return next((link.name for link in LINKS.values()
                     if self.address in (link.address, link.address6)), self.address)


def accesses(since: int = 0) -> list[Access]:
    """The requests from number `since` on."""
    result = []
    for line in Path(f"{LAB}/access.log").read_text().splitlines()[since:]:
        address, stamp, duration, sent, port, path = line.split(" ", 5)
        result.append(Access(address, float(stamp), float(duration), int(sent), int(port), path))
    return result


def make_file(name: str, size: int) -> Path:
    """A file of random bytes on the web server."""
    path = Path(f"{LAB}/www/{name}")
    with open(path, "wb") as out:
        for start in range(0, size, 1 << 20):
            out.write(os.urandom(min(1 << 20, size - start)))
    return path


@dataclass(frozen=True)
class Fetch:
    size: int  # bytes
    seconds: float
    intact: bool  # every part came, and together they are the file

    @property
    def mbit(self) -> float:
        return self.size * 8 / 1e6 / self.seconds


def fetch(uid: int, name: str, parts: int = 40, parallel: int = 8, port: int = 80,
          deadline: float = 60.0) -> Fetch:
    """Downloads a file of the web server as a UID, in ranges, each a connection of its own."""
    original = Path(f"{LAB}/www/{name}")
    size = original.stat().st_size
    folder = Path(f"{LAB}/fetch-{uid}-{time.monotonic_ns()}")
    folder.mkdir()
    os.chown(folder, uid, uid)
    edges = [size * part // parts for part in range(parts + 1)]
    entries = [
        f'url = "http://{WEB_SERVER}:{port}/{name}"\nrange = {first}-{end - 1}\n'
        f'output = "{folder}/{part}"\nfail\n'
        for part, (first, end) in enumerate(zip(edges, edges[1:]))
    ]
    config = "no-progress-meter\nparallel\nparallel-immediate\n"
    config += f"parallel-max = {parallel}\n" + "next\n".join(entries)
    start = time.monotonic()
    try:
        result = subprocess.run(["curl", "--config", "-"],
                                input=config, text=True, user=uid, group=uid, extra_groups=[],
                                timeout=deadline)
        seconds = time.monotonic() - start
        intact = result.returncode == 0 and original.read_bytes() == b"".join(
            (folder / str(part)).read_bytes() for part in range(parts))
        return Fetch(size, seconds, intact)
    finally:
        shutil.rmtree(folder)
