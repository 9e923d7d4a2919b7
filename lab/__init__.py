# SPDX-License-Identifier: Apache-2.0
"""Where lnkd is tried out: emulated links, an internet behind them, scenarios, a demo."""
