# SPDX-License-Identifier: Apache-2.0
"""What lnkdctl status says of a daemon that is well, and of one that is not."""

import fcntl
import json
import os
import re
import select
import signal
import socket
import struct
import subprocess
import termios
import threading
from contextlib import ExitStack, contextmanager
from pathlib import Path

import jsonschema
import pytest
import world
from lab.client import CALL_UID, GAME_UID
from lab.driver import ALL_LINKS, Phone, settled, socket_of, wait_for_selection, wait_until
from lab.links import set_links
from lab.web import fetch, make_file

SCHEMA = json.loads((Path(__file__).parents[2] / "tools/status/status.schema.json").read_text())
WEB = ("203.0.113.10", 80)
LISTS = [(1, "10123,10456"), (7, "10200")]


def status(*arguments):
    """Its exit status, and what it says to programs."""
    result = subprocess.run(["lnkdctl", "status", "--json", *arguments], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, timeout=20)
    assert result.stderr == ""
    said = json.loads(result.stdout)
    jsonschema.validate(said, SCHEMA)
    return result.returncode, said


def well():
    """What it says of a daemon that is well: no warnings."""
    code, said = status()
    assert (code, said["warnings"], said["unread"]) == (0, [], [])
    assert said["daemon"]["state"] == "running"
    return said


def links_of(said):
    return {link["name"]: link for link in said["links"]}


@contextmanager
def download_at_10_mbit():
    """By an application that is on no list, over the first link."""
    set_links("wlan0 rate 10")
    make_file("large", 40_000_000)
    with subprocess.Popen(["setpriv", "--reuid=10999", "--clear-groups", "curl", "-s", "-o",
                           "/dev/null", "http://203.0.113.10/large"]) as curl:
        try:
            yield
        finally:
            curl.kill()


def test_it_says_what_the_kernel_has_and_warns_of_nothing_in_a_healthy_daemon(phone):
    """From the start over links, lists, a game and a call to the stop."""
    assert status()[0] == 3
    set_links("wlan0 delay 4", "wlan1 delay 90", "rmnet_data0 delay 40")
    phone.start()
    wait_until(lambda: status()[0] == 0, "a daemon that is up")
    said = well()
    assert (said["daemon"]["pid"], said["links"]) == (phone.daemon.process.pid, [])
    phone.order((2, ALL_LINKS), *LISTS)
    settled()
    said = well()
    assert said["lists"] == {"steered": ["10200", "10123", "10456"], "gaming": [],
                             "whitelist": ["10123", "10456"], "second_wifi": ["10200"]}
    assert {name: (link["mark"], link["table"], link["metered"], link["users"], link["share"])
            for name, link in links_of(said).items()} == {
        "wlan0": ("0x5a", 1001, False, "all", 0.5),
        "wlan1": ("0x5b", 1002, False, "second-wifi", 0.5),
        "rmnet_data0": ("0x5c", 1003, True, "whitelist", 0)}
    make_file("page", 1_000_000)
    fetch(10123, "page")
    busy = links_of(well())
    marked = Path("/proc/net/nf_conntrack").read_text().count(" mark=90 ")
    assert sum(link["new_connections"] for link in busy.values()) == 40
    assert [link["connections"] for link in busy.values()] == [0, marked, 0]
    with download_at_10_mbit():
        wait_until(lambda: 5e6 < links_of(well())["wlan0"]["bits_per_second"] < 11e6, "its rate")
    phone.choose((5, str(GAME_UID)))
    wait_for_selection(GAME_UID, "wlan0")
    said = well()
    assert (said["selection"], said["lists"]["gaming"]) == (
        {"running": True, "link": "wlan0"}, [str(GAME_UID)])
    phone.order((8, str(CALL_UID)), (18, "0"), (6, ""), (2, "wlan0"), (2, ALL_LINKS))
    settled()
    said = well()
    assert links_of(said)["rmnet_data0"]["metered"] is False
    for order in ((8, "0"), (1, "NULL"), (2, "rmnet_data0"), (2, "wlan1"), (2, "")):
        phone.order(order)
        settled()
        well()
    phone.stop()
    assert status()[0] == 3


def test_a_rebuild_is_no_warning(phone):
    """Looked at again and again while rules come and go all the time."""
    phone.start()
    phone.order((2, ALL_LINKS), *LISTS)
    ended = threading.Event()

    def orders():
        while not ended.is_set():
            phone.order((2, "wlan0"), (1, "10123"), (5, str(GAME_UID)), (2, ALL_LINKS),
                        (1, "10123,10456"), (6, ""))

    thread = threading.Thread(target=orders)
    thread.start()
    try:
        said = [status()[1]["warnings"] for _ in range(20)]
    finally:
        ended.set()
        thread.join()
    assert said == [[]] * 20


def iptables(*words):
    subprocess.run(["iptables", "-w", "-t", *words], check=True)


def ip(words):
    subprocess.run(["ip", "-4", *words.split()], check=True)


def hold_foreign_connection(held):
    iptables("mangle", "-A", "OUTPUT", "-p", "tcp", "--dport", "80", "-j", "CONNMARK",
             "--set-mark", "0x77")
    held.enter_context(socket.create_connection(WEB))


def stop_statistics(held):
    """The module stands still while a download runs."""
    comms = {process.parent.name: process.read_text() for process in Path("/proc").glob("*/comm")}
    os.kill(int(next(pid for pid, comm in comms.items() if comm == "slastat\n")), signal.SIGSTOP)
    held.enter_context(download_at_10_mbit())


MANGLE, NAT = "zelk_DVX_wapper", "zelk_nat_POSTROUTING_DVX"


@pytest.mark.parametrize("damage, said", [
    (lambda _: iptables("mangle", "-D", "OUTPUT", "-j", MANGLE), "hook-missing OUTPUT"),
    (lambda _: iptables("mangle", "-I", "OUTPUT", "-j", MANGLE), "hook-twice OUTPUT"),
    (lambda _: iptables("nat", "-D", "POSTROUTING", "-j", NAT), "hook-missing POSTROUTING"),
    (lambda _: iptables("mangle", "-D", "zelk_DVX", "2"), "chain-differs zelk_DVX"),
    (lambda _: iptables("mangle", "-I", "zelk_fw_wlan0", "-j", "RETURN"),
     "chain-differs zelk_fw_wlan0"),
    (lambda _: iptables("mangle", "-D", MANGLE, "2"), f"chain-differs {MANGLE}"),
    (lambda _: iptables("mangle", "-I", MANGLE, "-j", "zelk_DVX"), f"chain-differs {MANGLE}"),
    (lambda _: iptables("mangle", "-D", "zelk_fw_rmnet_data0_wrapper", "1"),
     f"chain-differs {MANGLE}"),
    (lambda _: iptables("mangle", "-D", "zelk_SLA", "2"), "shares-incomplete zelk_SLA"),
    (lambda _: iptables("nat", "-D", NAT, "1"), f"chain-differs {NAT}"),
    (lambda _: [iptables("nat", *words) for words in
                (("-D", "POSTROUTING", "-j", NAT), ("-F", NAT), ("-X", NAT))],
     f"chain-missing {NAT}, hook-missing POSTROUTING"),
    (lambda _: ip("rule del fwmark 0x5b prio 30000"), "policy-rule-missing wlan1"),
    (lambda _: ip("rule add fwmark 0x5c table 77 prio 30000"), "policy-rule-stale 77"),
    (lambda _: ip("route del default table wlan1"), "link-without-route wlan1"),
    (lambda _: ip("link set wlan1 down"), "link-without-route wlan1"),
    (lambda _: ip("link del wlan1"), "link-without-route wlan1"),
    (lambda _: os.unlink("/proc/sla/wlan0_mmap"), "statistics-missing wlan0"),
    (stop_statistics, "statistics-still wlan0"),
    (hold_foreign_connection, "mark-unknown 0x77"),
], ids=lambda value: value.replace(" ", ":") if isinstance(value, str) else "")
def test_what_is_broken_is_seen_in_one_look(damage, said):
    """And only that. What is broken goes with the test's world."""
    phone = Phone()
    phone.start()
    phone.order((2, ALL_LINKS), *LISTS)
    with ExitStack() as held:
        steered = held.enter_context(socket_of(10200, socket.AF_INET, socket.SOCK_STREAM))
        steered.connect(WEB)
        settled()
        well()
        damage(held)
        if damage is stop_statistics:
            wait_until(lambda: status()[0] == 1, "statistics that are known to stand still")
        code, found = status()
        assert (code, found["unread"]) == (1, [])
        assert ", ".join(sorted(f"{warning['id']} {warning['subject']}"
                                for warning in found["warnings"])) == said


def test_what_cannot_be_read_is_not_known():
    """Of a daemon with links and lists, whose packet filter nobody can list."""
    phone = Phone()
    phone.start()
    phone.order((2, ALL_LINKS), *LISTS)
    settled()
    well()
    Path("/system/bin/iptables-wrapper-1.0").write_text("#!/bin/sh\nexit 4\n")
    code, said = status()
    assert (code, len(said["unread"]), said["daemon"]["state"]) == (1, 2, "running")
    assert [said["links"], said["lists"]["steered"], said["selection"]["running"],
            said["daemon"]["chains"]] == [None] * 4
    screen = subprocess.run(["lnkdctl", "status"], stdout=subprocess.PIPE, text=True, timeout=20)
    assert re.findall("(.*?) +not known\n", screen.stdout) == [
        "game or call", "applications", "links"]


def test_a_killed_daemon_is_told_from_one_that_stopped(phone):
    """What it left, and that it is nothing once it has been removed."""
    phone.start()
    phone.order((2, ALL_LINKS), *LISTS)
    phone.daemon.process.kill()
    phone.daemon.process.wait()
    code, said = status()
    assert (code, said["daemon"]["state"], said["daemon"]["policy_rules"]) == (4, "leftovers", 3)
    assert sorted(links_of(said)) == sorted(ALL_LINKS.split(","))
    subprocess.run(["lnkdctl", "clean"], check=True, stdout=subprocess.DEVNULL)
    assert (status()[0], status()[1]["daemon"]["state"]) == (3, "stopped")
    phone.start()
    world.set_prop("vendor.sla.enabled", "2")
    wait_until(lambda: status()[1]["daemon"]["state"] == "disabled", "a daemon that idles")
    assert status()[1]["daemon"]["pid"] == phone.daemon.process.pid


class Terminal:
    """A terminal of its own, since the world has none, and what was shown on it."""

    def __init__(self, columns, rows):
        subprocess.run(["mount", "-t", "devpts", "-o", "newinstance,ptmxmode=0666", "devpts",
                        "/dev/pts"], check=True)
        self.master = os.open("/dev/pts/ptmx", os.O_RDWR | os.O_NOCTTY)
        fcntl.ioctl(self.master, 0x40045431, struct.pack("i", 0))  # TIOCSPTLCK: unlocked
        self.slave = os.open("/dev/pts/0", os.O_RDWR | os.O_NOCTTY)
        self.size(columns, rows)
        self.shown = ""

    def size(self, columns, rows):
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def run(self, *arguments, **environment):
        return subprocess.Popen(["lnkdctl", "status", *arguments], stdout=self.slave,
                                env=os.environ | {"TERM": "xterm"} | environment)

    def read(self):
        if select.select([self.master], [], [], 0.1)[0]:
            self.shown += os.read(self.master, 65536).decode()
        return self.shown

    def wait_for(self, pattern):
        """What came up to that, which is forgotten."""
        wait_until(lambda: re.search(pattern, self.read(), re.DOTALL), pattern)
        before, _, self.shown = re.split(f"({pattern})", self.shown, 1, re.DOTALL)
        return before


FRAME_END = re.escape("\033[J")


def widths(text):
    return {len(line) for line in re.sub("\033\\[[0-9;?]*[a-zA-Z]", "", text).splitlines()}


def test_a_screen_is_as_wide_as_its_terminal_and_given_back(phone):
    """In place again and again, after a change of the size, and gone when it is ended."""
    phone.start()
    phone.order((2, ALL_LINKS), *LISTS)
    terminal = Terminal(80, 24)
    attributes = termios.tcgetattr(terminal.slave)
    for end, interval, shown in ((signal.SIGINT, 100, 3), (signal.SIGTERM, 60000, 1)):
        terminal.size(80, 24)
        process = terminal.run("--watch", f"--interval={interval}")
        terminal.wait_for(re.escape("\033[?1049h"))
        frames = [terminal.wait_for(FRAME_END) for _ in range(shown)]
        assert all("rmnet_data0" in frame and "\033[32m" in frame for frame in frames)
        assert 60 < max(set().union(*map(widths, frames))) <= 80
        if shown == 1:  # only the change of the size brings another
            terminal.size(50, 8)
            os.kill(process.pid, signal.SIGWINCH)
            frame = terminal.wait_for(FRAME_END)
            assert max(widths(frame)) <= 50 and frame.count("\n") < 8
        os.kill(process.pid, end)
        terminal.wait_for(re.escape("\033[?25h\033[?1049l"))
        assert process.wait(5) == 0
        assert termios.tcgetattr(terminal.slave) == attributes
    assert terminal.run(NO_COLOR="1").wait(5) == 0
    assert "wlan0" in terminal.read() and "\033" not in terminal.shown


def unread_in(pipe):
    return struct.unpack("i", fcntl.ioctl(pipe, termios.FIONREAD, b"\0" * 4))[0]


def test_nobody_who_reads_ends_it(phone):
    """A pipe gets neither colours nor a screen; when its reader goes, or when it is full and a
    signal comes, the watch ends."""
    phone.start()
    phone.order((2, ALL_LINKS))
    for arguments, part in ((["--interval=100"], "wlan0"), (["--interval=86400000"], "wlan0"),
                            (["--json"], '"wlan0"')):
        with subprocess.Popen(["lnkdctl", "status", "--watch", *arguments],
                              stdout=subprocess.PIPE) as process:
            text = b""
            while part.encode() not in text:
                text += os.read(process.stdout.fileno(), 65536)
            process.stdout.close()
            assert process.wait(5) == 0 and b"\033" not in text
    with subprocess.Popen(["lnkdctl", "status", "--watch", "--json", "--interval=100"],
                          stdout=subprocess.PIPE, pipesize=4096) as process:
        wait_until(lambda: unread_in(process.stdout) >= 512, "a full pipe")
        process.terminate()
        assert process.wait(5) == 0


def test_what_the_log_says_of_probes_is_shown():
    """Of the file that is named, and of the one that the daemon itself writes."""
    set_links("wlan0 delay 4", "wlan1 delay 40", "rmnet_data0 down")
    with open("/run/lnkd.log", "w", encoding="ascii") as log:
        world.CONFIGURATION.write_text("ping_interval_ms=20\nmin_ping_times=2\n")
        subprocess.Popen(["lnkd"], stderr=log)
    control = world.connect_control()
    for message in ((2, ALL_LINKS), (5, str(GAME_UID))):
        world.send_message(control, *message)
    wait_for_selection(GAME_UID, "wlan0")

    def is_rated(*arguments):
        links = links_of(status(*arguments)[1])
        return (5 <= (links["wlan0"]["rtt_ms"] or 0) <= 60 < (links["wlan1"]["rtt_ms"] or 0) < 150
                and [links[name]["level"] for name in ALL_LINKS.split(",")] == [11, 11, 1])

    wait_until(is_rated, "rated links")
    assert is_rated("--log", "/run/lnkd.log")
    code, said = status("--log", "/run/none")
    assert (code, said["unread"]) == (1, ["/run/none: No such file or directory"])
    assert links_of(said)["wlan0"]["rtt_ms"] is None


# What the phone's tool does with "-d -v threadtime -t LINES" and filters, of which ours are.
LOGCAT = """#!/bin/sh
for word; do case $word in *:I) tags="$tags|${word%:I}" ;; *:S) others=silent ;; esac; done
[ "$others" = silent ] || tags='|.*'
grep -aE " [IE] (${tags#?}) *: " /run/lnkd.log | tail -n "$5" | tee /run/logcat.out
"""


def test_the_system_log_is_asked_for_all_that_a_status_decides_by():
    """On the phone the log comes by tags. No link is rated, so times are those of single probes."""
    set_links("wlan0 delay 4", "wlan1 delay 40")
    tool = Path("/system/bin/logcat")
    tool.write_text(LOGCAT)
    tool.chmod(0o755)
    world.CONFIGURATION.write_text("ping_interval_ms=20\nmin_ping_times=1\n")
    subprocess.Popen("lnkd 2>&1 | cat > /run/lnkd.log", shell=True)
    control = world.connect_control()
    for message in ((2, ALL_LINKS), (5, str(GAME_UID))):
        world.send_message(control, *message)
    wait_until(lambda: links_of(status()[1]).get("wlan0", {}).get("rtt_ms"), "a probed link")
    said = Path("/run/logcat.out").read_text()
    assert all(text in said for text in (
        "TCPing cacla rtt", "m_interfaceInfoMap add", "m_slaInterfaceMap add"))
