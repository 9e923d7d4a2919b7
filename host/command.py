# SPDX-License-Identifier: Apache-2.0
"""The command: the machine's files and the user's rights, in the network of the world."""

import os
import pwd
import re
import signal
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path

from host import Refusal
from host.mount import LIBC, RESOLVER, Mount, checked
from world import programs

CLONE_NEWNET = 0x40000000
PR_SET_PDEATHSIG = 1
NUMBER = re.compile(r"[0-9]{1,10}")
NO_ID = 2**32 - 1  # says "leave it as it is" to the kernel

ENDING = {signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT}
PASSED_ON = ENDING | {signal.SIGUSR1, signal.SIGUSR2, signal.SIGALRM}
SIGNALS = PASSED_ON | {signal.SIGCHLD, signal.SIGIO}  # blocked, but for the command
SI_KERNEL = 0x80
TURN_S = 1.0  # what has no descriptor is looked at as often


@dataclass(frozen=True)
class User:
    uid: int
    gid: int
    name: str
    home: str
    shell: str
    umask: int

    def environment(self) -> dict[str, str]:
        """What sudo left, as it was before sudo."""
        mine = {key: value for key, value in os.environ.items() if not key.startswith("SUDO_")}
        return mine | {"HOME": self.home, "USER": self.name, "LOGNAME": self.name,
                       "SHELL": self.shell}


def caller(umask: int) -> User:
    """Who called sudo; who runs this when nobody did."""
    uid, gid = _number("SUDO_UID", os.getuid()), _number("SUDO_GID", os.getgid())
    try:
        entry = pwd.getpwuid(uid)
    except KeyError:
        return User(uid, gid, str(uid), "/", "/bin/sh", umask)
    return User(uid, gid, entry.pw_name, entry.pw_dir, entry.pw_shell or "/bin/sh", umask)


def _number(variable: str, otherwise: int) -> int:
    text = os.environ.get(variable, str(otherwise))
    if not NUMBER.fullmatch(text) or int(text) >= NO_ID:
        raise Refusal(f'{variable} is "{text}", which is no number of a user or group')
    return int(text)


def start(command: Sequence[str], user: User, network: int,
          resolver: Path | None) -> tuple[int, Mount]:
    """Starts it in the network namespace of that descriptor; its process number, and its mount."""
    if resolver and not os.path.exists(RESOLVER):
        programs.complain(f"there is no {RESOLVER}: names are not resolved until there is")
    mount = Mount(resolver)
    runner = os.getpid()
    pid = os.fork()
    if pid:
        mount.started()
        return pid, mount
    status = 126
    try:
        checked(LIBC.setns(network, CLONE_NEWNET), "its network")
        mount.enter()
        _become(user)
        if os.getppid() != runner:  # it was killed before its death could be told
            os._exit(1)
        os.execvpe(command[0], list(command), user.environment())
    except programs.Failure as failure:
        programs.complain(f"{command[0]}: {failure}")
    except OSError as error:
        programs.complain(f"{command[0]}: {error.strerror}")
        status = 127 if isinstance(error, FileNotFoundError) else 126
    finally:
        os._exit(status)


def attend(pid: int, turn: Callable[[], None]) -> int:
    """Waits for its end, with a turn now and then; its exit status, 128 + n for signal n."""
    while True:
        info = signal.sigtimedwait(SIGNALS, TURN_S)
        # The terminal has already sent its Ctrl-C to everyone in the foreground.
        if info and info.si_signo in PASSED_ON and info.si_code != SI_KERNEL:
            os.kill(pid, info.si_signo)
        ended, status = os.waitpid(pid, os.WNOHANG)
        if ended:
            code = os.waitstatus_to_exitcode(status)
            return code if code >= 0 else 128 - code
        turn()


def _become(user: User) -> None:
    if user.uid:
        os.initgroups(user.name, user.gid)
        os.setresgid(user.gid, user.gid, user.gid)
        os.setresuid(user.uid, user.uid, user.uid)
    # Without its world it has no links: it is told as if its terminal had gone.
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGHUP)
    os.umask(user.umask)
    for number in (signal.SIGPIPE, signal.SIGXFSZ, signal.SIGTTOU):
        signal.signal(number, signal.SIG_DFL)
    signal.pthread_sigmask(signal.SIG_SETMASK, [])
