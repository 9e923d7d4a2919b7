# SPDX-License-Identifier: Apache-2.0
"""lnkd-host on a laptop: started as sudo starts it, and the machine's state around it."""

import os
import re
import shutil
import subprocess
from collections import Counter
from collections.abc import Callable, Sequence
from pathlib import Path

from lab import RUN, web
from lab.debian import USERS
from lab.internet import WEB_SERVER

PROGRAM = Path(__file__).resolve().parents[1] / "host" / "lnkd-host"
MARK = "=== ended"
LOOKS = {
    "addresses": "ip -d addr",
    "routes": "ip -4 route show table all; ip -6 route show table all",
    "rules": "ip -4 rule; ip -6 rule",
    "packet filter": "nft list ruleset",
    "sysctls": r"sysctl -a -r '^net\.(core|ipv4|ipv6)\.'",
    "mounts": "cut -d' ' -f5- /proc/self/mountinfo",
    "files": f"find /run -path {RUN} -prune -o -print | sort; cat /etc/resolv.conf",
}


def command_line(*arguments: str) -> list[str]:
    return [str(PROGRAM), "--build", os.environ["LAB_BUILD"], *arguments]


def by_sudo(user: str) -> dict[str, str]:
    """The environment of what a user starts with sudo."""
    uid = str(USERS[user])
    return os.environ | {"SUDO_UID": uid, "SUDO_GID": uid, "SUDO_USER": user, "USER": "root"}


def run(*arguments: str, user: str = "anna") -> subprocess.CompletedProcess[str]:
    return subprocess.run(command_line(*arguments), env=by_sudo(user), text=True, timeout=20,
                          stdin=subprocess.DEVNULL, capture_output=True)


class Record:
    """The commands by which lnkd-host looks at the machine and changes it; in no other namespace."""

    FOLDER, FILE = Path(f"{RUN}/record"), Path(f"{RUN}/record.log")
    LOOKS = {"show", "list", "-S", "-j", "-V", "monitor"}

    def __init__(self) -> None:
        self.FOLDER.mkdir()
        here = os.readlink("/proc/self/ns/net")
        for tool in ("ip", "nft", "iptables", "sysctl"):
            wrapper = self.FOLDER / tool
            wrapper.write_text(f"#!/bin/sh\n[ $(readlink /proc/self/ns/net) = '{here}' ] &&\n"
                               f"printf '%s\\n' \"{tool} $*\" >> {self.FILE}\n"
                               f"exec {shutil.which(tool)} \"$@\"\n")
            wrapper.chmod(0o755)
        os.environ["PATH"] = f"{self.FOLDER}:{os.environ['PATH']}"

    def changes(self) -> list[str]:
        """Those that change something, since the last time."""
        lines = self.FILE.read_text().splitlines()
        self.FILE.unlink()
        return [line for line in lines if not self.LOOKS & set(line.split())]


class Session:
    """lnkd-host with a shell in it, and what one types there."""

    def __init__(self, *arguments: str, user: str = "anna", command: Sequence[str] = ("sh",)):
        self._errors = open(f"{RUN}/{user}.errors", "w+", encoding="utf-8")
        self.process = subprocess.Popen(
            [*command_line(*arguments), "--", *command], env=by_sudo(user), text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self._errors)

    def type(self, command: str) -> str:
        """Returns what it prints."""
        assert self.process.stdin and self.process.stdout
        self.process.stdin.write(f"{command}\necho '{MARK}'\n")
        self.process.stdin.flush()
        said = ""
        for line in self.process.stdout:
            if line.startswith(MARK):
                return said
            said += line
        raise EOFError(f"{command}: it has ended\n{said}{self.errors()}")

    def connections(self, count: int) -> Counter[str]:
        """From which addresses new ones reach the web server."""
        return reaching(count, lambda url: self.type(f"curl -m 5 -so /dev/null '{url}'"))

    def errors(self) -> str:
        self._errors.seek(0)
        return self._errors.read()

    def end(self) -> int:
        """As a user does who leaves the shell."""
        assert self.process.stdin
        self.process.stdin.close()
        return self.process.wait(20)


def reaching(count: int, fetch: Callable[[str], object]) -> Counter[str]:
    """The web server's clients when `fetch` is given a pattern of as many URLs."""
    since = len(web.accesses())
    fetch(f"http://{WEB_SERVER}/[1-{count}]")
    return Counter(access.address for access in web.accesses(since))


def processes() -> dict[int, str]:
    """All but the calling one and those that it has started to look around."""
    found = {}
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            words = (folder / "cmdline").read_bytes().replace(b"\0", b" ").decode(errors="replace")
        except OSError:
            continue
        if words and int(folder.name) != os.getpid():  # no words: a thread of the kernel, a zombie
            found[int(folder.name)] = words
    return found


def state() -> dict[str, str]:
    """What the machine is like, in all that lnkd-host could touch."""
    looks = {what: subprocess.run(["sh", "-c", look], text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL).stdout
             for what, look in LOOKS.items()}
    looks["packet filter"] = re.sub(r"packets \d+ bytes \d+", "", looks["packet filter"])
    return looks | {"processes": "\n".join(f"{pid} {words}" for pid, words in processes().items())}


def changes(before: dict[str, str]) -> dict[str, list[str]]:
    """The lines that are there now and were not, or the other way round."""
    return {what: lines for what, now in state().items()
            if (lines := sorted(set(before[what].splitlines()) ^ set(now.splitlines())))}
