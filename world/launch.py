# SPDX-License-Identifier: Apache-2.0
"""The processes around a world: the runner outside, its first process inside.

The world is a process-id namespace, so the kernel ends every process in it when
the first one ends, and with the last process go the mounts, the network and the
devices. The first process in turn dies with the runner, however that ends.
"""

import ctypes
import functools
import os
import select
import signal
import subprocess
import sys
from collections.abc import Callable, Mapping, Sequence

from world import construction, programs
from world.options import Options
from world.surroundings import Surroundings

LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNS, CLONE_NEWPID, CLONE_NEWNET = 0x00020000, 0x20000000, 0x40000000
PR_SET_PDEATHSIG = 1
SI_KERNEL = 0x80

ENDING = {signal.SIGINT, signal.SIGTERM, signal.SIGHUP}
SIGNALS = ENDING | {signal.SIGCHLD}
GRACE_S = 5


def _unshare(flags: int) -> None:
    if LIBC.unshare(flags) != 0:
        raise OSError(ctypes.get_errno(), "unshare")


def _unblock_signals() -> None:
    signal.pthread_sigmask(signal.SIG_SETMASK, [])


def _pass_on(info: signal.struct_siginfo, pid: int) -> None:
    # The terminal has already sent its Ctrl-C to everyone in the foreground.
    if info.si_code != SI_KERNEL:
        os.kill(pid, info.si_signo)


def run(options: Options, surroundings: Surroundings, command: Sequence[str],
        environment: Mapping[str, str]) -> int:
    """Runs `command` in a new world; returns its exit status, 128 + n for signal n."""
    problem = options.problem() or surroundings.problem()
    if problem:
        programs.complain(problem)
        return 2
    # Inside, its path may be another file's, or nobody's.
    configuration = options.conf.read_bytes() if options.conf else None
    signal.pthread_sigmask(signal.SIG_BLOCK, SIGNALS)
    alive, runner = os.pipe()
    _unshare(CLONE_NEWPID)
    pid = os.fork()
    if pid == 0:
        os.close(runner)
        build = functools.partial(construction.build, options, surroundings, configuration)
        os._exit(_first_process(build, command, environment, alive))
    os.close(alive)
    grace = None
    while True:
        info = signal.sigtimedwait(SIGNALS, grace) if grace else signal.sigwaitinfo(SIGNALS)
        if info is None:
            os.kill(pid, signal.SIGKILL)
            grace = None
        elif info.si_signo == signal.SIGCHLD:
            ended, status = os.waitpid(pid, os.WNOHANG)
            if ended:
                code = os.waitstatus_to_exitcode(status)
                return code if code >= 0 else 128 - code
        else:
            _pass_on(info, pid)
            if info.si_signo != signal.SIGINT:  # a shell may well live on after Ctrl-C
                grace = GRACE_S


def _first_process(build: Callable[[], None], command: Sequence[str],
                   environment: Mapping[str, str], alive: int) -> int:
    try:
        LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
        if select.select([alive], [], [], 0)[0]:  # the runner died before that took effect
            return 1
        _unshare(CLONE_NEWNS | CLONE_NEWNET)
        build()
        if signal.sigpending() & ENDING:
            return 130
        return _run_command(command, environment)
    except (OSError, subprocess.SubprocessError, programs.Failure) as error:
        programs.complain(str(error))
        return 1
    finally:
        sys.stdout.flush()
        sys.stderr.flush()


def _run_command(command: Sequence[str], environment: Mapping[str, str]) -> int:
    try:
        child = subprocess.Popen(command, env=environment, preexec_fn=_unblock_signals)
    except OSError as error:
        programs.complain(f"{command[0]}: {error.strerror}")
        return 127 if isinstance(error, FileNotFoundError) else 126
    while True:
        info = signal.sigwaitinfo(SIGNALS)
        if info.si_signo != signal.SIGCHLD:
            _pass_on(info, child.pid)
            continue
        # Whatever has lost its parent in this world ends up here as well.
        while True:
            try:
                pid, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                break
            if pid == 0:
                break
            if pid == child.pid:
                code = os.waitstatus_to_exitcode(status)
                return code if code >= 0 else 128 - code
            programs.report_end(pid, status)
