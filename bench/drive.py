# SPDX-License-Identifier: Apache-2.0
"""Writes a log of a day with a phone: games and calls of the daemon among other programs' lines.

The daemon's lines are consistent: what it decides is what it would, of the probes that are there.
"""

import random
from collections.abc import Iterator
from pathlib import Path

ALPHA, WINDOW_MS, MISSES = 50, 10_000, 5
PID, MAIN, CONTROL = 1200, 1200, 1240
DAY_S = 86400
FOREIGN = [
    ("ActivityManager", "I", "Start proc {n}:com.example.app{n}/u0a{n} for service"),
    ("WifiHAL", "D", "Link layer stats: rssi -{n} tx_good {n}{n} tx_bad {n} beacon_rx {n}"),
    ("chatty", "I", "uid=10{n}(com.example.app) RenderThread identical {n} lines"),
    ("SurfaceFlinger", "W", "Attempting to set client state on removed layer: Splash #{n}"),
    ("GameEngine", "V", "frame {n} rendered in {n} us, {n} draw calls, texture memory {n} KiB, "
     "network buffer {n} of 4096 bytes, last server tick {n}"),
]


class Link:
    """What the daemon makes of a link's probes."""

    def __init__(self, name: str, thread: int, middle: int):
        self.name, self.thread, self.middle, self.home = name, thread, middle, middle
        self.second, self.best = (120, 11) if name.startswith("wlan") else (90, 10)
        self.forget()

    def forget(self) -> None:
        self.long: list[int] = []
        self.short: list[int] = []
        self.level = self.level_speed = self.misses = 0

    def measured(self) -> int:
        """A walk around the usual time, with bad stretches and lost probes."""
        pull = (self.home - self.middle) // 20
        self.middle = max(8, self.middle + pull + random.randint(-12, 12))
        if random.random() < 0.002:
            self.middle += 400
        lost = random.random() < (0.25 if self.middle > 300 else 0.005)
        return -1 if lost else self.middle + random.randint(0, 9)

    def probe(self) -> Iterator[tuple[str, str]]:
        rtt = self.measured()
        if rtt >= 0:
            yield "Tcping", f"TCPing cacla rtt is {rtt},device is {self.name}"
            self.misses = max(0, self.misses - 1)
        elif self.misses < MISSES:
            self.misses += 1
            yield "Tcping", f"connect failed of client,device is {self.name}!"
            yield "SlaPing", ("setSpeed: SLA_PING Ping Miss for RTT interface "
                              f"({self.name}) num ping miss = ({self.misses}) ")
        sample = rtt if rtt >= 0 else (self.short or [500])[-1]
        if self.misses >= MISSES:
            speed, sample = -1, 500
            yield "SlaPing", ("setSpeed: SLA_PING Ping FAIL for RTT interface "
                              f"({self.name}) (calc = -1)(old speed = {sample}) "
                              f"(new prev = 500) (alpha_percent = {ALPHA})")
        else:
            short = sum(self.short) // len(self.short) if self.short else sample
            long = sum(self.long) // len(self.long) if self.long else sample
            speed = short * (100 - ALPHA) // 100 + long * ALPHA // 100
        self.long, self.short = [*self.long, sample][-10:], [*self.short, sample][-3:]
        if speed >= 0:
            yield "SlaPing", ("caclaverageInterfaceSpeed: SLA_PING Ping Pass for RTT interface "
                              f"({self.name}) (short_average = {short}) (long_average = {long}) "
                              f"(cacl = {speed}) (raw = {sample}) (longpreviousSpeed size= "
                              f"{len(self.long)}) (m_shortpreviousSpeed size= {len(self.short)}) "
                              f"(alpha_percent = {ALPHA})")
        self.rate(speed)
        yield "SlaPing", ("caclInterfaceLevel: SLA_PING cacl Interface Level interface "
                          f"({self.name}) (network level = {self.level})")

    def rate(self, speed: int) -> None:
        band = 0 if speed < self.second else min((speed - self.second) // 100 + 1, 4)
        wanted = 1 if speed < 0 else self.best - 2 * band
        if speed < 0 or abs(wanted - self.level) != 2 or abs(speed - self.level_speed) >= 20:
            self.level, self.level_speed = wanted, speed


class Choice:
    def __init__(self, links: list[Link]):
        self.links, self.current, self.start, self.count = links, "", 0, 0

    def choose(self, now: int) -> Iterator[tuple[str, str]]:
        best, level = "", 0
        for link in self.links:
            yield "SlaPing", (f"getFastestInterface (interface {link.name}) "
                              f"(networklevel {link.level})")
            self.count = 0 if link.level == 1 and link.name == self.current else self.count
            if link.level > level:
                best, level = link.name, link.level
            elif link.level == level:
                best = self.current if self.current.startswith("wlan") else link.name
        yield "SlaPing", f"getFastestInterface (best Interface {best}) (networklevel {level})"
        passed = now - self.start
        if passed >= WINDOW_MS:
            words, self.start, self.count = "time elapsed, ready for switch", now, 0
        elif self.count >= 1:
            words = "in cycle, switch not allowed-----***"
        else:
            words = "in cycle, but good to switch -"
        yield "SlaPing", f"SLA_LINK {words} calc {passed}  config delta {WINDOW_MS}"
        if "not allowed" in words and self.current:
            return
        yield "SlaPing", (f"calcInterface SLA_RTT_SELECTED current =  {best} , "
                          f"prvious = {self.current or 'NULL'}")
        if best != self.current:
            self.current = best
            yield "SlaPing", f"calcInterface SLA_RTT_SELECTED perform switch {best} "
            for end in ("F zelk_SLS", f"A zelk_SLS -j zelk_sls_uid_{best}"):
                yield "iptablesManager", ("SEND SLA NDC COMMAND - PASS  "
                                          f"/system/bin/iptables-wrapper-1.0  -w -t mangle -{end}")
            yield "SlaPing", "SLA_RTT_SELECTED  UID destroying sockets = 10123"
            yield "SockDiag", "Destroyed 2 sockets for UID"
            yield "SlaPing", ("SLA_LINK resetting hystWindow, current switch count = "
                              f"{self.count}-----<*>")
            self.start, self.count = now, self.count + 1


def stamp(ms: int) -> str:
    day, ms = divmod(ms, DAY_S * 1000)
    return (f"08-{day + 1:02d} {ms // 3600000:02d}:{ms // 60000 % 60:02d}:{ms // 1000 % 60:02d}"
            f".{ms % 1000:03d}")


def rebuild(share: float) -> Iterator[tuple[str, str]]:
    command = "SEND SLA NDC COMMAND - PASS  /system/bin/iptables-wrapper-1.0 -w -t mangle "
    yield "iptablesManager", command + "-F zelk_SLA"
    for link, ratio, probability in (("wlan0", share, share), ("rmnet_data0", 1 - share, 1.0)):
        yield "iptablesManager", f"handle->interfaceRatio: {ratio:f} handle->interfaceName: {link}"
        yield "iptablesManager", f"Updated Ratio: {probability:f}"
        yield "iptablesManager", (
            f"{command}-A zelk_SLA --match multiport -p tcp --dports 80,443,8080 -m state --state "
            f"NEW -m statistic --mode random --probability {probability:f} -j zelk_fw_{link}")
        yield "iptablesManager", f"nf_conntrack interface {link} fwmark 0x5A socket number 12"


def lines(foreign_each_second: int) -> Iterator[str]:
    """A day: games of half an hour, one each hour and a half."""
    def daemon(now: int, tid: int, tag: str, text: str) -> str:
        level = "E" if "failed" in text else "I"
        return f"{stamp(now)} {PID:5} {tid:5} {level} DVX-Lnkd-{tag}: {text}\n"

    links = [Link("rmnet_data0", 1301, 60), Link("wlan0", 1302, 40)]
    choice = Choice(links)
    yield daemon(0, MAIN, "daemon", "Lnkd (SLA+SLS) 3.0.4.5 starting daemon")
    for link in links:
        yield daemon(1, CONTROL, "SlaParameters", f"m_interfaceInfoMap add {link.name} success！")
    for second in range(DAY_S):
        now = second * 1000 + 100
        for number in range(foreign_each_second):
            tag, level, text = FOREIGN[random.randrange(len(FOREIGN))]
            text = text.replace("{n}", str(random.randrange(100, 999)))
            ids = f"{2000 + number}  {2100 + number}"
            yield f"{stamp(now + number)}  {ids} {level} {tag:8}: {text}\n"
        if second % 6 == 0:
            for link, share, rate in zip(links, ("0.250000", "0.750000"), (400, 1200)):
                yield daemon(now + 50, MAIN, "SlaStatsImpl",
                             f"calcSlaRatios SLA_RATIO oldRatio = {share}, new ratio = {share} , "
                             f"LRE = {rate} ,interface = {link.name} , ")
        if second % 60 == 7:
            for tag, text in rebuild(random.random()):
                yield daemon(now + 60, MAIN, tag, text)
        into = second % 5400
        if into in (600, 2400):
            number, text = (5, "10123") if into == 600 else (6, "")
            yield daemon(now, CONTROL, "LnkdSocket-Server", f"recv msg: msg.id={number}, "
                         f"msg.length={len(text)}, msg.message=[{text}]")
            choice.current, choice.count = "", 0
            for link in links:
                link.forget()
                link.thread += 10
        elif 600 < into < 2400:
            for number, link in enumerate(links):
                for tag, text in link.probe():
                    yield daemon(now + 100 * number, link.thread, tag, text)
            for tag, text in choice.choose(now + 300):
                yield daemon(now + 300, MAIN, tag, text)


def write(path: Path, foreign_each_second: int = 8) -> None:
    random.seed(12)
    with path.open("w", encoding="utf-8") as file:
        file.writelines(lines(foreign_each_second))
