# SPDX-License-Identifier: Apache-2.0
"""The phone's paths, and what is set and read there by hand."""

from pathlib import Path

RUN = "/run/world"  # what is the world's own: nothing of the phone's
STATISTICS_LOG = Path(f"{RUN}/sla.log")
CONFIGURATION = Path("/vendor/etc/sla/lnkd.conf")
PROPERTIES = Path("/vendor/build.prop")
TOOLS = {tool: Path(f"/system/bin/{tool}-wrapper-1.0") for tool in ("iptables", "ip")}
TOOLS_LOG = Path(f"{RUN}/tools.log")


def inside() -> bool:
    """Whether this process is in a world, and may start the daemon."""
    return Path(f"{RUN}/sla/config").is_fifo()


def set_prop(key: str, value: str | None) -> None:
    """Sets a system property, or removes it with None; readers see the old file or the new."""
    lines = PROPERTIES.read_text().splitlines()
    lines = [line for line in lines if line.split("=")[0] != key]
    if value is not None:
        lines.append(f"{key}={value}")
    fresh = PROPERTIES.with_suffix(".new")
    fresh.write_text("".join(f"{line}\n" for line in lines))
    fresh.rename(PROPERTIES)


def tool_commands() -> list[str]:
    """Command lines that the wrapper tools have been given (in a world with --record-tools)."""
    return TOOLS_LOG.read_text().splitlines() if TOOLS_LOG.exists() else []
