# SPDX-License-Identifier: Apache-2.0
"""The front end with a machine's real uplinks. See README.md beside this file."""

from pathlib import Path

RUN = Path("/run/lnkd-host")  # the lock, and what has to be restored


class Refusal(Exception):
    """Nothing was begun; the text says why, and what to do."""
