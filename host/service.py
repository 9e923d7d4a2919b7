# SPDX-License-Identifier: Apache-2.0
"""A world that stays, for commands of several users that come and go.

A command is started by who joins, not by the service, which only hands out the network and
knows by the connection how long it is used.
"""

import contextlib
import json
import os
import signal
import socket
from collections.abc import Sequence
from pathlib import Path

from host import RUN, Refusal, checks, command
from host.follow import Follower, announce
from host.phone import receive
from host.session import Session
from world import programs

SOCKET = RUN / "join"
KIND = socket.SOCK_SEQPACKET
MOST = 4096  # bytes of a message
NOBODY = -1  # has not told a UID, or one that was refused


class Service:
    def __init__(self, session: Session, name: str):
        self._session = session
        self._name = name
        self._users: dict[socket.socket, int] = {}  # the UID of each command
        self._door = socket.socket(socket.AF_UNIX, KIND)
        old = os.umask(0o077)
        self._door.bind(str(SOCKET))
        os.umask(old)
        self._door.listen()
        announce(self._door.fileno())

    def turn(self) -> None:
        with contextlib.suppress(BlockingIOError):
            while True:
                user, _ = self._door.accept()
                announce(user.fileno())
                user.setblocking(False)
                self._users[user] = NOBODY
        for user in list(self._users):
            with contextlib.suppress(BlockingIOError):
                self._serve(user, user.recv(MOST))

    def _serve(self, user: socket.socket, message: bytes) -> None:
        before = self._uids()
        try:
            if not message:
                del self._users[user]
                user.close()
                self._steer(before)
                return
            wanted = json.loads(message)
            if wanted["name"] != self._name:
                raise Refusal(f'the world that is up is "{self._name}"')
            if not isinstance(wanted["uid"], int) or wanted["uid"] < 0:
                raise Refusal("not a UID")
            checks.steered(wanted["uid"], self._session.setup.game)
            self._users[user] = wanted["uid"]
            self._steer(before)
        # The latter three: a message that is none of ours.
        except (Refusal, programs.Failure, TimeoutError, ValueError, KeyError,
                TypeError) as problem:
            if user in self._users:
                self._users[user] = NOBODY
                user.send(json.dumps({"refusal": str(problem)}).encode())
            return
        resolver = self._session.resolver
        answer = json.dumps({"resolver": str(resolver) if resolver else ""}).encode()
        with contextlib.suppress(ConnectionError):
            socket.send_fds(user, [answer], [self._session.phone.network])

    def _uids(self) -> list[int]:
        return sorted(set(self._users.values()) - {NOBODY})

    def _steer(self, before: Sequence[int]) -> None:
        if self._uids() != before:
            self._session.steer(self._uids(), before)


def serve(session: Session, name: str) -> int:
    """Keeps the world up until it is told to end, or its daemon ends."""
    service = Service(session, name)
    follower = Follower(session)
    session.turns = [follower.turn, service.turn]
    _tell_manager("READY=1")
    try:
        while not session.told_end:
            info = signal.sigtimedwait(command.SIGNALS, command.TURN_S)
            if info and info.si_signo in command.ENDING:
                return 0
            session.turn()
        return 1
    finally:
        follower.close()


def _tell_manager(state: str) -> None:
    """To systemd, if that started us."""
    if address := os.environ.get("NOTIFY_SOCKET"):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.connect(address.replace("@", "\0", 1))
            manager.send(state.encode())


def join(name: str, argv: Sequence[str], user: command.User) -> int:
    """Runs a command in the world of that name; returns its exit status."""
    with socket.socket(socket.AF_UNIX, KIND) as door:
        try:
            door.connect(str(SOCKET))
        except OSError as error:
            raise Refusal(f'no world is up: systemctl start lnkd-host@{name}, or '
                          f"lnkd-host --up {name}") from error
        door.send(json.dumps({"name": name, "uid": user.uid}).encode())
        message, descriptors = receive(door, MOST, 1)
        answer = json.loads(message or b'{"refusal": "the world ended"}')
        if "refusal" in answer:
            raise Refusal(answer["refusal"])
        resolver = Path(answer["resolver"]) if answer["resolver"] else None
        pid, mount = command.start(argv or [user.shell], user, descriptors[0], resolver)
        os.close(descriptors[0])

        def turn() -> None:
            with contextlib.suppress(OSError, programs.Failure):  # the world may have ended
                mount.renew()

        return command.attend(pid, turn)
