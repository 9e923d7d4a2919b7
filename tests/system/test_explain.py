# SPDX-License-Identifier: Apache-2.0
"""What lnkdctl explain makes of a log that the daemon wrote just now."""

import gzip
import json
import random
import re
import subprocess
from html.parser import HTMLParser

import world
from lab.client import CALL_UID, GAME_UID
from lab.driver import CONF, DEADLINE
from lab.links import set_links
from lab.replay import replayed

LINKS, START, STOP, CALL = 2, 5, 6, 8
CHANGES = 8
FOREIGN = "11-25 10:00:00.000  4000  4000 I chatty  : uid=1000 identical 2 lines\nno log line\n"


def explain(*options, log="-", data=None, status=0):
    answer = subprocess.run(["lnkdctl", "explain", *options, log], input=data, timeout=DEADLINE,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert answer.returncode == status, answer.stderr
    return (answer.stderr if status else answer.stdout).decode()


def drive(phone):
    """Links that change at random, come and go, during a game and a call."""
    seed = random.randrange(1000000)
    print(f"seed {seed}")
    dice = random.Random(seed)
    phone.start("min_ping_times=3\nalpha_percent=30\nt_hyst_s=1\nn_hyst=2\n")
    phone.order((LINKS, "wlan0,rmnet_data0"))
    phone.choose((START, str(GAME_UID)))
    set_links("wlan0 down", "rmnet_data0 delay 5")  # one switch at least
    phone.wait_for("perform switch rmnet_data0")
    for change in range(CHANGES):
        if change == CHANGES // 2:
            phone.order((CALL, str(CALL_UID)))
        if change % 3 == 2:
            phone.order((LINKS, dice.choice(["wlan0", "wlan0,rmnet_data0",
                                             "wlan0,wlan1,rmnet_data0"])))
        set_links(*(f"{link} {dice.choice(['up', 'up', 'up', 'down'])} "
                    f"delay {dice.choice([1, 5, 48, 62])}"
                    for link in ("wlan0", "wlan1", "rmnet_data0")))
        since = len(phone.daemon.log)
        world.wait_until(lambda: sum("config delta" in line
                                     for line in phone.daemon.log[since:]) > 1, DEADLINE, "choices")
    set_links("wlan0 up delay 5", "rmnet_data0 up delay 5")
    phone.order((CALL, "0"), (STOP, ""))
    phone.stop()
    return phone.daemon.log


class Page(HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.tags, self.fetched = [], []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.tags.append(tag)
        self.fetched += [value for name, value in attrs if name in ("src", "href")]


def test_a_drive_is_told_drawn_and_decided_again(phone, tmp_path):
    """Choice by choice as it was; and a log of two runs, with foreign lines, packed or piped."""
    log = drive(phone)
    same, found = replayed(log)
    assert same, found
    assert int(found.split()[0]) >= sum("getFastestInterface (best" in line for line in log)

    text = FOREIGN + "".join(f"{line}\n" for line in log)
    file = tmp_path / "drive.log"
    file.write_text(text)
    packed = gzip.compress(text.encode())
    story = json.loads(explain("--json", log=file))
    assert json.loads(explain("--json", data=packed)) | {"log": 0} == story | {"log": 0}
    switches = [moment for moment in story["moments"] if moment["kind"] == "switch"]
    logged = [m[1] for line in log if (m := re.search(r"perform switch (\S+)", line))]
    assert [moment["to"]["link"] for moment in switches] == logged
    assert sum(moment["sockets"] for moment in switches) == story["summary"]["sockets_destroyed"]
    kinds = [moment["kind"] for moment in story["moments"]]
    assert [kind for kind in kinds if re.match("daemon|game|call", kind)] == [
        "daemon-start", "game-start", "call-start", "call-end", "game-end", "daemon-end"]
    assert story["missing"] == []

    page = tmp_path / "drive.html"
    screen = explain(f"--page={page}", log=file)
    assert f"game of {GAME_UID} starts" in screen
    drawn = Page(page.read_text())
    assert "svg" in drawn.tags and "polyline" in drawn.tags and drawn.fetched == []
    assert "No such file or directory" in explain("--page=/nowhere/x", log=file, status=1)

    compared = explain(f"--conf={CONF}", "--with=n_hyst=0,alpha_percent=100", log=file)
    assert "as logged" in compared and "on a worse link" in compared
    swept = explain(f"--conf={CONF}", "--sweep=n_hyst=0..2", data=packed).splitlines()
    assert [line.split()[0] for line in swept[:5]] == ["n_hyst", "as", "0", "1", "2"]
    rows = [re.split(r"  +", line)[1:] for line in swept[1:5]]
    assert rows[0] == rows[3], swept  # its own n_hyst
    switch = next(i for i, line in enumerate(log) if "perform switch rmnet_data0" in line)
    done = next(i for i, line in enumerate(log) if i > switch and "resetting hystWindow" in line)
    begin = "".join(f"{line}\n" for line in log[:done + 1]).encode()
    bound = explain(f"--conf={CONF}", "--with=n_hyst=0,t_hyst_s=80000", data=begin)
    assert re.search(r"switches +1 +0\n", bound) and re.search(r"refused choices +0 +1\n", bound), bound
    # Of another daemon's configuration the replay decides otherwise, and says where.
    other = tmp_path / "other.conf"
    other.write_text("min_ping_times=0\n")
    error = explain(f"--conf={other}", "--with=t_hyst_s=3", log=file, status=1)
    assert re.search(r"decides otherwise.*\n.* different: .*, log: .*; replay: \S+ failed", error)

    middle = "".join(f"{line}\n" for line in log[len(log) // 2:] + log)
    cut = json.loads(explain("--json", data=middle.encode()))
    assert cut["log"]["runs"] == 2 and len(cut["missing"]) >= 1
