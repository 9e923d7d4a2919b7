# SPDX-License-Identifier: Apache-2.0
"""A world with veths for links and the daemon in it, as it is handled from the machine."""

import contextlib
import ctypes
import os
import re
import signal
import socket
import subprocess
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import NoReturn

from host.lanes import Lane
from host.lock import Lock
from world import launch, programs
from world.control import connect_control, send_message
from world.options import Options
from world.phone import RUN
from world.programs import Failure
from world.surroundings import Surroundings
from world.waiting import wait_until

LIBC = ctypes.CDLL(None, use_errno=True)
PR_SET_PDEATHSIG = 1
LOG_FLAGS = os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_NOFOLLOW
SHARE = re.compile(r"--probability ([\d.]+) -j zelk_fw_(\w+?)(?:_wrapper)?$", re.MULTILINE)


class Veths(Surroundings):
    """Links that the machine makes, as soon as there is a network namespace to put them into."""

    def __init__(self, lanes: Sequence[Lane], machine: socket.socket):
        self.links = tuple(lane.link() for lane in lanes)
        self._machine = machine

    def connect(self) -> None:
        for devices in ("all", "default"):
            _set(f"ipv6/conf/{devices}/disable_ipv6", 1)
        network = os.open(f"{RUN}/proc/self/ns/net", os.O_RDONLY)
        root = os.open("/", os.O_PATH | os.O_DIRECTORY)
        socket.send_fds(self._machine, [b"namespace"], [network, root])
        if not self._machine.recv(16):
            raise Failure("the machine's side of the links was not made")
        # A repeated SYN may be dealt another link; the answer to the first must not be adopted.
        _set("netfilter/nf_conntrack_tcp_loose", 0)

    def furnish(self) -> None:
        # A change of a UID list empties the daemon's entry filter for a moment, and a packet
        # without its mark would break its connection.
        programs.run("iptables", "-w", "-t", "mangle", "-A", "OUTPUT", "-m", "mark", "--mark", "0",
                     "-m", "connmark", "!", "--mark", "0", "-j", "CONNMARK", "--restore-mark")


def _set(name: str, value: int) -> None:
    with contextlib.suppress(FileNotFoundError):
        Path("/proc/sys/net", name).write_text(f"{value}")


def receive(source: socket.socket, most: int, count: int) -> tuple[bytes, list[int]]:
    """A message, and descriptors which are not for the command."""
    message, descriptors, _, _ = socket.recv_fds(source, most, count)
    for each in descriptors:
        os.set_inheritable(each, False)
    return message, descriptors


class Phone:
    """The world's process, its namespace, and the session with the daemon."""

    def __init__(self, options: Options, lanes: Sequence[Lane], log: str, lock: Lock):
        self._machine, inside = socket.socketpair()
        self.pid = os.fork()
        if self.pid == 0:
            lock.leave_to_parent()
            self._machine.close()
            _run(options, lanes, inside, log)
        inside.close()
        _, descriptors = receive(self._machine, 16, 2)
        if len(descriptors) != 2:
            self.stop()
            raise Failure("no world was built")
        self.network, self._root = descriptors
        self._session: socket.socket | None = None

    @property
    def namespace(self) -> str:
        return f"/proc/{os.getpid()}/fd/{self.network}"

    def start(self) -> None:
        """The links are there: lets the world go on, and waits for its daemon."""
        self._machine.sendall(b"go")
        self._session = wait_until(self._connect, 10, "the daemon's control socket")

    def _connect(self) -> socket.socket | None:
        if self.ended():
            raise Failure("the world ended before its daemon was there")
        with contextlib.suppress(TimeoutError):
            return connect_control(0.1, f"/proc/self/fd/{self._root}")
        return None

    def send(self, number: int, text: str) -> None:
        assert self._session
        with contextlib.suppress(ConnectionError):  # ended() tells
            send_message(self._session, number, text)

    def run(self, *words: str) -> str:
        """The output of a command in the world's network."""
        return subprocess.check_output(["nsenter", f"--net={self.namespace}", *words], text=True)

    def shares(self) -> dict[str, float]:
        """Each link's share of new connections, in the order of the rules that give it."""
        found, left = {}, 1.0
        for probability, link in SHARE.findall(self.run("iptables", "-w", "-t", "mangle", "-S",
                                                        "zelk_SLA")):
            found[link] = share = left * float(probability)
            left -= share
        return found

    def steered(self) -> list[int]:
        """The UIDs whose packets the daemon looks at, once for each list that they are on."""
        rules = self.run("iptables", "-w", "-t", "mangle", "-S", "zelk_DVX_wapper")
        return sorted(int(uid) for uid in re.findall(r"--uid-owner (\d+)", rules))

    def wait_for(self, condition: Callable[[], object], what: str) -> None:
        wait_until(lambda: self.ended() or condition(), 10, what)
        if self.ended():
            raise Failure("the daemon ended")

    def ended(self) -> bool:
        """Whether there is no daemon any more; the network is there as long as someone uses it."""
        if self.pid and os.waitpid(self.pid, os.WNOHANG)[0]:
            self.pid = 0
        return self.pid == 0

    def stop(self) -> None:
        """Ends everything in the world. The rules go with the network that they are in."""
        if not self.ended():
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
            self.pid = 0


def _run(options: Options, lanes: Sequence[Lane], machine: socket.socket, log: str) -> NoReturn:
    """The world's runner: out of reach of the terminal, and gone when the machine's side is."""
    status = 1
    try:
        LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
        os.setsid()
        os.dup2(os.open("/dev/null", os.O_RDONLY), 0)
        # The daemon's log is opened here: inside, its path may be another file's.
        os.dup2(os.open(log, LOG_FLAGS, 0o644) if log else 2, 1)
        status = launch.run(options, Veths(lanes, machine), ["sh", "-c", "exec lnkd 2>&1"],
                            options.environment())
    except OSError as error:
        programs.complain(str(error))
    finally:
        os._exit(status)
