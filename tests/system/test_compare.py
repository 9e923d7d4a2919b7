# SPDX-License-Identifier: Apache-2.0
import random

import pytest
from bench.peers.dealing import PAYLOAD, Link, deal, reachable
from bench.peers.figures import percentile, spread

RATE = 10 / PAYLOAD  # Mbit/s, of which 10 are payload


@pytest.mark.parametrize("links, parts, mbit, parallel, seconds", [
    ([Link(RATE, 250)], 1, 10, 1, 2),  # two round trips of half a second, then a second's work
    ([Link(RATE, 0)], 7, 10, 3, 7),  # as fast as the link, however many share it
    ([Link(RATE, 250)], 2, 10, 1, 4),  # one after the other, each waits
    ([Link(RATE, 250)], 2, 10, 9, 3),  # both wait at once, and share the link
    ([Link(RATE, 0), Link(1e-9, 0)], 5, 10, 2, 5),  # nothing is dealt to a link that has no part
])
def test_time_of_parts_that_are_dealt(links, parts, mbit, parallel, seconds):
    assert deal(links, parts, mbit, parallel, random.Random(1)) == pytest.approx(seconds)


def test_random_dealing_nears_the_queueing_limit():
    """N parts at a time on M lines that share evenly reach N / (N + M - 1) of the sum."""
    links = [Link(20, 0), Link(8, 0), Link(12, 0)]
    assert reachable(links, 1000, 125_000, 6) == pytest.approx(40 * PAYLOAD * 6 / 8, rel=0.02)


def test_what_never_came_is_counted_beside_the_median():
    assert spread([3, None, 1, 2]) == (2, 1, 3, 3, 1)
    assert spread([None, None]).text(1) == "never"
    assert [percentile(range(1, 101), part) for part in (0.5, 0.95, 0.99)] == [51, 96, 100]
