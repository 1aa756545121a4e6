"""Processes that tests start and watch."""

from __future__ import annotations

import time
from pathlib import Path
from typing import Callable

#: Seconds that only a hang takes.
LONG = 120.0


def wait_until(condition: Callable[[], bool], seconds: float = LONG) -> bool:
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if condition():
            return True
        time.sleep(0.02)
    return False


def descendants(process: int) -> set[int]:
    """The children of a process's first thread, their children, and so on.

    Not those of its other threads: every second, on a thread of its own, the library starts a
    short-lived process that lists the ports.
    """
    found: set[int] = set()
    try:
        children = Path(f"/proc/{process}/task/{process}/children").read_text().split()
    except OSError:
        return found
    for child in map(int, children):
        found |= {child} | descendants(child)
    return found


def is_gone(process: int) -> bool:
    """Whether a process has ended, even if its parent has not reaped it yet."""
    try:
        return Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()[0] == "Z"
    except OSError:
        return True
