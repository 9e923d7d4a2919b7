#!/usr/bin/python3 -IS
# SPDX-License-Identifier: Apache-2.0
"""Downloads a file in parts, as a download manager does, and says how it went.

    client.py ADDRESS:PORT NAME BYTES PARTS PARALLEL

Each part is a connection of its own. One that cannot be made, or says nothing, within PATIENCE_S is
given up, and the rest of its part is asked for anew. Prints "half" when half of the file has come,
and at the end one line of JSON.
"""

import hashlib
import http.client
import json
import sys
import threading
import time

PATIENCE_S = 3.0
PIECE = 16384


class Download:
    def __init__(self, address: str, name: str, size: int, parts: int):
        self.address, self.name = address, name
        edges = [size * part // parts for part in range(parts + 1)]
        self.content = bytearray(size)
        self.half = size // 2
        self.received = self.given_up = 0
        self.lock = threading.Lock()
        self.ranges = iter(list(zip(edges, edges[1:])))

    def run(self, parallel: int) -> float:
        begin = time.monotonic()
        threads = [threading.Thread(target=self.work) for _ in range(parallel)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return time.monotonic() - begin

    def work(self) -> None:
        while True:
            with self.lock:
                first, end = next(self.ranges, (0, 0))
            if end == 0:
                return
            while first < end:
                first = self.fetch(first, end)

    def fetch(self, first: int, end: int) -> int:
        """How far the part has come."""
        connection = http.client.HTTPConnection(self.address, timeout=PATIENCE_S)
        try:
            part = {"Range": f"bytes={first}-{end - 1}"}
            connection.request("GET", f"/{self.name}", headers=part)
            response = connection.getresponse()
            if response.status != 206:
                raise http.client.HTTPException(f"status {response.status}")
            while piece := response.read1(PIECE):
                self.content[first:first + len(piece)] = piece
                first += len(piece)
                self.count(len(piece))
        except (OSError, http.client.HTTPException):
            with self.lock:
                self.given_up += 1
        finally:
            connection.close()
        return first

    def count(self, size: int) -> None:
        with self.lock:
            before, self.received = self.received, self.received + size
            if before < self.half <= self.received:
                print("half", flush=True)


def main() -> None:
    address, name, size, parts, parallel = sys.argv[1:]
    download = Download(address, name, int(size), int(parts))
    seconds = download.run(int(parallel))
    print(json.dumps({"seconds": seconds, "given_up": download.given_up,
                      "digest": hashlib.sha256(download.content).hexdigest()}))


main()
