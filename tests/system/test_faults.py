# SPDX-License-Identifier: Apache-2.0
"""A phone that is broken somewhere: the daemon says so, lives, and does what is left to do."""

import os
import random
import re
import socket
from pathlib import Path

import pytest
import world
from lab.driver import CONF, TOOLS, wait_until
from lab.steering import kernel, steered

SOCKET = Path(world.CONTROL_SOCKET)


@pytest.mark.parametrize("content, ports", [
    (None, b"80,443"), (b"\n" * (2 << 20) + b"ports=1\n", b"80,443"),
    (random.Random(1).randbytes(1 << 18) + b"\nports=1\n", b"1"), (b"ports=1\r\n", b"1\r"),
    (b"=\n=x\n#\nports\nports=1 # 2\nmini_est_interval=-1\nbest_est_cache_size=-1", b"1"),
], ids=["missing", "huge", "binary", "crlf", "odd"])
def test_any_configuration_file_is_survived(phone, content, ports):
    """What can be read of it holds, and the rest has its built-in values."""
    if content is not None:
        CONF.write_bytes(content)
    phone.start(conf=None)
    wait_until(lambda: b" ports=%s\n" % ports in world.STATISTICS_LOG.read_bytes(), "ports")
    if ports == b"80,443":
        phone.wait_for("read lnkd conf file failed!")


@pytest.mark.parametrize("spoil, line", [
    (SOCKET.touch, "Created socket success"),
    (lambda: socket.socket(socket.AF_UNIX).bind(str(SOCKET)), "Created socket success"),
    (SOCKET.mkdir, "Failed to unlink old socket .*Is a directory"),
    (SOCKET.parent.rmdir, "Failed to bind socket .*No such file"),
], ids=["file", "socket", "directory", "no-folder"])
def test_what_stands_where_the_socket_belongs(phone, spoil, line):
    """A file or an old socket is replaced; otherwise the daemon runs on without control."""
    spoil()
    phone.start()
    phone.wait_for(line)
    if "success" in line:
        phone.order((2, "wlan0"))
        assert steered() == ["wlan0"]
    wait_until(lambda: "enable=1" in world.statistics_commands(), "start-up")


def test_links_work_without_the_statistics_module(phone):
    """No control file, no file, a short one, one that is not ready: each is said, none is fatal."""
    for name in ("config", "wlan0_mmap", "wlan1_mmap"):
        os.unlink(f"/proc/sla/{name}")
    os.mkdir("/proc/sla/wlan0_mmap")
    Path("/proc/sla/wlan1_mmap").write_bytes(b"\0" * (world.Ring.SIZE - 1))
    world.set_prop("vendor.sla.ifaces", "rmnet_data0,wlan0,wlan1")
    phone.start()
    for line in ("open stats config file failed:No such file", "open mmap file failed:Is a dir",
                 "wlan1_mmap is shorter than its format", "SLA stat colletct is not ready"):
        phone.wait_for(line)
    phone.order((2, "wlan0"))
    assert steered() == ["wlan0"]


@pytest.mark.parametrize("away, script, output", [
    (TOOLS, None, "not found"), (TOOLS, "exit 1", ""),
    (TOOLS, "seq 100", "".join(map(str, range(1, 101)))),
    (TOOLS, "head -c 5000 /dev/zero | tr '\\0' x", "x" * 5000),
    ([Path("/bin")], None, "FAIL  /system/bin/iptables-wrapper-1.0 -w -t mangle -N zelk_DVX"),
], ids=["missing", "failing", "many-lines", "long-line", "no-shell"])
def test_tools_that_do_not_work_are_survived(phone, away, script, output):
    """All that they print is in the log, and once they work again orders are obeyed again."""
    for path in away:
        path.rename(f"{path}.away")
        if script:
            path.write_text(f"#!/bin/sh\n{script}\n")
            path.chmod(0o755)
    phone.start()
    phone.order()
    first = "\n".join(phone.daemon.log).split("SEND SLA NDC COMMAND - ")[1]
    assert output in first.splitlines()[0] + "".join(re.findall("SLA EXECNETD RESP (.*)", first))
    for path in away:
        Path(f"{path}.away").rename(path)
    phone.order((2, "wlan0"))
    assert kernel()["policy"] == ["fwmark 0x5a lookup wlan0"]
