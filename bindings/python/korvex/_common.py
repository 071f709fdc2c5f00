"""What the modules share: times, and what stops a work."""

import mmap
import os
import threading
from collections.abc import Callable
from datetime import timedelta

StrPath = str | os.PathLike[str]
"""A path: a text, or a ``pathlib.Path``."""

Buffer = bytes | bytearray | memoryview | mmap.mmap
"""What has bytes in one piece (the buffer protocol); they are used in place. Other such objects work, too."""

Seconds = float | timedelta | None
"""A time: seconds, or a ``timedelta``. ``None`` is no limit."""

StopCall = Callable[[], bool] | None
"""What ends a work, as the library asks it."""

Stop = threading.Event | StopCall
"""What ends a work: an event that is set, or a callable that answers true. It is looked at about 20 times a second."""

Progress = Callable[[int], object] | None
"""Called about 20 times a second with the bytes moved so far. What it raises ends the work."""


def milliseconds(time: Seconds) -> int:
    """A time as the library takes it; what is too short for a millisecond, but not 0, is one."""
    if time is None:
        return -1
    seconds = time.total_seconds() if isinstance(time, timedelta) else time
    if not 0 <= seconds < 2**31:
        raise ValueError(f"a time is 0 s or more, and None for no limit, not {seconds}")
    count = round(seconds * 1000)
    return count if count > 0 or seconds == 0 else 1


def stopper(stop: Stop) -> StopCall:
    """What stops a work as the library asks it."""
    return stop.is_set if isinstance(stop, threading.Event) else stop
