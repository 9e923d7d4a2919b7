# SPDX-License-Identifier: Apache-2.0
from lab.driver import ALL_LINKS, wait_for_shares
from lab.links import LINKS
from lab.steering import set_rates

METERED = {  # kbit/s of wlan0, wlan1 and rmnet_data0, and their shares
    (600, 400, 1000): (0.1875, 0.125, 0.375),  # what the Wi-Fis lack of 1600, cellular makes up
    (800, 0, 0): (0.25, 0.375, 0.375),  # idle links share the rest, to be measured again
    (0, 0, 495): (0.5, 0.5, 0),  # cellular below 500 counts as idle
    (0, 0, 500): (0, 0, 1),
    (1200, 400, 900): (0.375, 0.125, 0),  # the Wi-Fis just reach the threshold
    (1000, 800, 900): (5 / 9, 4 / 9, 0),  # and are above it
    (1600, 5, 900): (0.9, 0.1, 0),  # a Wi-Fi with nearly all of it leaves a tenth
}
UNMETERED = {
    (500, 300, 1200): (0.25, 0.15, 0.6),
    (400, 0, 800): (0.125, 0.625, 0.25),
}


def test_rules_come_back_after_every_change_of_the_interfaces(phone):
    """However small the move is by the numbers: what the packet filter has is not known then."""
    phone.start("min_ratio_change=60\n")
    for names in ("wlan0,wlan1", ALL_LINKS, "wlan1,rmnet_data0", "wlan0,wlan1"):
        links = names.split(",")
        wifis = [name for name in links if name in ("wlan0", "wlan1")]
        phone.order((2, names))
        wait_for_shares(**{name: 1 / len(wifis) if name in wifis else 0 for name in links})


def test_shares_follow_the_measured_rates(phone):
    """From the records of the kernel module to the rules, with cellular metered and not."""
    phone.start("mini_stale_interval=2000000000\nmin_ratio_change=0\n")
    phone.order((2, ALL_LINKS))
    for mode, cases in (("1", METERED), ("0", UNMETERED)):
        phone.order((18, mode))
        for rates, shares in cases.items():
            set_rates(**dict(zip(LINKS, rates)))
            wanted = dict(zip(LINKS, shares))
            # Rules come in the order of the names, metered links last.
            wait_for_shares(**(wanted if mode == "1" else dict(sorted(wanted.items()))))
