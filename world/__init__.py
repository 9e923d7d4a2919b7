# SPDX-License-Identifier: Apache-2.0
"""A world that is shaped like a phone, and here, what code inside one works with.

Paths are the phone's own. Who makes a world uses `world.launch`; README.md says how.
"""

from world.control import CONTROL_SOCKET, connect_control, send_message
from world.daemon import Daemon, start_daemon
from world.phone import (CONFIGURATION, STATISTICS_LOG, TOOLS, inside, set_prop,
                         tool_commands)
from world.statistics import REFERENCE, SAMPLE, Ring, statistics_commands
from world.waiting import wait_until

__all__ = [
    "CONTROL_SOCKET", "connect_control", "send_message", "Daemon", "start_daemon",
    "CONFIGURATION", "STATISTICS_LOG", "TOOLS", "inside", "set_prop", "tool_commands",
    "REFERENCE", "SAMPLE", "Ring", "statistics_commands", "wait_until",
]
