# SPDX-License-Identifier: Apache-2.0
"""Turns the namespaces of the calling process into the phone, step by step."""

from world import files, network, programs
from world.options import Options
from world.phone import CONFIGURATION, STATISTICS_LOG
from world.surroundings import Surroundings


def build(options: Options, surroundings: Surroundings, configuration: bytes | None) -> None:
    files.make_root(surroundings.devices)
    files.fill(options, surroundings.links)
    if configuration is not None:
        CONFIGURATION.write_bytes(configuration)
    surroundings.connect()
    network.set_up(surroundings.links)
    module = None
    if not options.no_stats:
        module = programs.start(options.build / "world/slastat", str(STATISTICS_LOG),
                                surroundings.voip_peer, *(link.name for link in surroundings.links))
    surroundings.furnish()
    if module:
        programs.wait_ready(module)
