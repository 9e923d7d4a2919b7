# SPDX-License-Identifier: Apache-2.0
import time
from collections.abc import Callable
from typing import TypeVar

T = TypeVar("T")


def wait_until(predicate: Callable[[], T], deadline: float = 5.0, what: str = "") -> T:
    """The first true result of `predicate`; TimeoutError after `deadline` seconds."""
    end = time.monotonic() + deadline
    while True:
        result = predicate()
        if result:
            return result
        if time.monotonic() > end:
            raise TimeoutError(f"{what or predicate.__name__}: not within {deadline} s")
        time.sleep(0.005)
