# SPDX-License-Identifier: Apache-2.0
"""What the statistics module publishes, and what it has been told."""

import mmap
import os
import struct
from collections.abc import Iterable

from world.phone import STATISTICS_LOG

SAMPLE, INTERMEDIATE, REFERENCE = 2, 1, 0
Record = tuple[int, int, int, int]  # timestamp in ms, bytes, type, flag


class Ring:
    """The statistics file of an interface, to take the module's place or to look at it."""

    MAGIC = 0x686A7379
    RECORDS = 1279
    SIZE = 20480
    RECORD = struct.Struct("<QIHBB")

    def __init__(self, interface: str):
        fd = os.open(f"/proc/sla/{interface}_mmap", os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o644)
        try:
            if os.fstat(fd).st_size < self.SIZE:
                os.ftruncate(fd, self.SIZE)
            self._map = mmap.mmap(fd, self.SIZE)
        finally:
            os.close(fd)

    def write(self, records: Iterable[Record] = (), write_index: int | None = None,
              magic: int = MAGIC) -> None:
        """Makes `records`, oldest first, the only ones, from slot 0 on."""
        data = b"".join(self.RECORD.pack(stamp, count, 0, kind, flag)
                        for stamp, count, kind, flag in records)
        if write_index is None:
            write_index = len(data) // self.RECORD.size % self.RECORDS
        self._map[16:] = data.ljust(self.SIZE - 16, b"\0")
        self._map[:16] = struct.pack("<IIII", magic, 0, write_index, 0)

    @property
    def write_index(self) -> int:
        return int(struct.unpack_from("<I", self._map, 8)[0])

    def read(self) -> list[Record]:
        """The records, newest first."""
        records: list[Record] = []
        newest = (self.write_index - 1) % self.RECORDS
        for age in range(self.RECORDS):
            offset = 16 + (newest - age) % self.RECORDS * self.RECORD.size
            stamp, count, _, kind, flag = self.RECORD.unpack_from(self._map, offset)
            if stamp == 0:
                break
            records.append((stamp, count, kind, flag))
        return records


def statistics_commands() -> list[str]:
    """What the statistics module has been told, in order."""
    if not STATISTICS_LOG.exists():
        return []
    return [line.split(" ", 1)[1] for line in STATISTICS_LOG.read_text().splitlines()]
