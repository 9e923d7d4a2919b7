# SPDX-License-Identifier: Apache-2.0
"""Where lnkd is tried out: emulated links, an internet behind them, scenarios, a demo."""

RUN = "/run/lab"  # what is the lab's own in a world, or on a laptop
