# SPDX-License-Identifier: Apache-2.0
"""The web server in the internet, what it has seen, and downloads from it."""

import os
import shutil
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

from lab import RUN
from lab.internet import WEB_SERVER, WEB_SERVER6, in_internet
from lab.links import LINKS

ROOT = f"{RUN}/www"
ACCESS_LOG = Path(f"{RUN}/access.log")
SCRATCH = f"{RUN}/nginx"
LISTEN = "\n        ".join(
    f"listen {address}:{port};"
    for address in (WEB_SERVER, f"[{WEB_SERVER6}]") for port in (80, 443, 8080))
NGINX_CONF = f"""\
user root;
worker_processes 1;
pid {RUN}/nginx.pid;
events {{ worker_connections 4096; }}
http {{
    log_format lab '$remote_addr $msec $request_time $bytes_sent $server_port $request_uri';
    access_log {ACCESS_LOG} lab;
    client_body_temp_path {SCRATCH}; proxy_temp_path {SCRATCH};
    fastcgi_temp_path {SCRATCH}; uwsgi_temp_path {SCRATCH};
    scgi_temp_path {SCRATCH};
    sendfile on;
    keepalive_timeout 0;  # each request is a connection, which has a link
    server {{
        {LISTEN}
        root {ROOT};
    }}
}}
"""


def start_server() -> None:
    """Returns once it listens."""
    for folder in (ROOT, SCRATCH):
        os.mkdir(folder)
    configuration = Path(f"{RUN}/nginx.conf")
    configuration.write_text(NGINX_CONF)
    in_internet(["nginx", "-c", str(configuration), "-p", SCRATCH, "-e", f"{RUN}/nginx.error.log"],
                check=True)


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
    for line in ACCESS_LOG.read_text().splitlines()[since:]:
        address, stamp, duration, sent, port, path = line.split(" ", 5)
        result.append(Access(address, float(stamp), float(duration), int(sent), int(port), path))
    return result


def make_file(name: str, size: int) -> Path:
    """A file of random bytes on the web server."""
    path = Path(f"{ROOT}/{name}")
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
    original = Path(f"{ROOT}/{name}")
    size = original.stat().st_size
    folder = Path(f"{RUN}/fetch-{uid}-{time.monotonic_ns()}")
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
