# SPDX-License-Identifier: Apache-2.0
import random

import world
from driver import ALL_LINKS, wait_for_shares
from steering import set_rates

WIFI_THRESHOLD, WAN_THRESHOLD = 1600, 500  # kbit/s


def shares_of(rates, metered):
    """The policy, computed apart from the daemon, in the order of the rules."""
    wifi = {link: rate for link, rate in rates.items() if link not in metered}
    total, cellular = sum(wifi.values()), sum(rates[link] for link in metered)
    fast = total > WIFI_THRESHOLD
    counted = {}
    for link, rate in rates.items():
        if fast and len(wifi) > 1 and max(wifi.values()) / total > 0.95:
            counted[link] = 0.9 if rate == max(wifi.values()) else 0.1 / (len(wifi) - 1)
        elif fast:
            counted[link] = rate / total
        elif link in metered:
            counted[link] = (1 - total / WIFI_THRESHOLD) * rate / cellular if cellular else 0
        else:
            counted[link] = rate / WIFI_THRESHOLD / min(len(wifi), 2)
    result = {link: 0 if fast and link in metered else counted[link]
              for link in (*sorted(wifi), *metered)}
    left, idle = 1 - sum(counted.values()), list(counted.values()).count(0)
    for link in result if left > 1e-6 and idle else []:
        if rates[link] == 0 and total + cellular > 0:
            result[link] = left / idle
        elif rates[link] == 0:
            result[link] = 0 if link in metered else left / len(wifi)
    return result


def test_shares_follow_the_measured_rates(phone):
    """Random measurements, with cellular metered or not, each give the rules of the policy."""
    phone.start("mini_stale_interval=2000000000\nmin_ratio_change=0\n")
    phone.order((2, ALL_LINKS))
    rng = random.Random(20)
    for turn in range(120):
        metered = ["rmnet_data0"] if turn % 40 < 20 else []
        phone.order((18, str(len(metered))))
        top = rng.choice([100, 900, 1995])
        rates = {link: rng.randrange(0, top, 5) * rng.choice([0, 1, 1]) for link in world.LINKS}
        set_rates(**rates)
        rates.update({link: 0 for link in metered if rates[link] < WAN_THRESHOLD})
        wanted, taken = shares_of(rates, metered), 0.0
        for link, share in wanted.items():  # the packet filter cannot give away more than all
            wanted[link] = min(share, 1 - taken)
            taken += wanted[link]
        wait_for_shares(**wanted)
