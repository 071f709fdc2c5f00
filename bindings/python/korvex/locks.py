"""Locks between processes: files that name their holder, taken over when it has ended."""

from dataclasses import dataclass
from datetime import timedelta
from enum import Enum
from types import TracebackType

from . import _korvex
from ._common import Seconds, Stop, StrPath, milliseconds, stopper
from .errors import LockTimeout

__all__ = ["Lock", "LockState", "LockStatus", "NamedLock", "inspect_lock", "lock", "locks", "try_lock", "wait_until_free"]

USUAL_WAIT: Seconds = _korvex.USUAL_WAIT
"""How long the library itself waits for a lock."""


class LockStatus(Enum):
    """What a look at a lock says."""

    FREE = 0
    HELD = 1
    """by a live process, for less than ten minutes"""
    STALE = 2
    """whoever waits for it takes it over"""
    INCOMPLETE = 3
    """created, but not filled; taken over after two seconds"""
    BLOCKED = 4
    """a folder, a pipe or the like is in its place, and nobody gets the lock while it is there"""
    UNREADABLE = 5
    """there, but this process can't read it; only among those that ``locks`` lists"""


@dataclass(frozen=True, slots=True)
class LockState:
    """A lock, seen from the outside, at one moment."""

    status: LockStatus
    pid: int
    """who holds it, or held it"""
    program: str
    """that process's name; empty where it has ended"""
    age: timedelta
    """since its holder began to wait for it"""
    reason: str
    """why it is stale"""


@dataclass(frozen=True, slots=True)
class NamedLock:
    """One lock among those of /var/lock."""

    name: str
    """of the file that it protects, without its folder, which the lock does not tell"""
    watched: bool
    """made by other programs, and waited for by a log"""
    state: LockState


class Lock:
    """A lock that is held until it is released, or the ``with`` block is left. Made by ``lock``.

    Whoever waits takes a lock over once it is ten minutes old, even if its holder lives. A child made by ``os.fork`` has a
    copy of this object that releases nothing.
    """

    def __init__(self, path: StrPath, timeout: Seconds, side: bool, stop: Stop) -> None:
        self._lock = _korvex.Lock(path, milliseconds(timeout), side, stopper(stop))

    def __enter__(self) -> "Lock":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.release()

    def release(self) -> None:
        """Releases it; nothing when it is released already."""
        self._lock.release()

    @property
    def held(self) -> bool:
        """Whether the lock file is still the one that this took: it can have been taken over, or removed."""
        return self._lock.is_held()

    @property
    def time_left(self) -> timedelta:
        """How long others still leave it alone; not positive when it is to be taken over."""
        return timedelta(milliseconds=self._lock.time_left())


def lock(path: StrPath, timeout: Seconds = USUAL_WAIT, *, side: bool = False, stop: Stop = None) -> Lock:
    """Waits for a lock and takes it::

        with korvex.lock("/etc/app.conf", timeout=2):
            ...

    ``path``     the file to protect, which need not exist
    ``timeout``  how long to wait; ``LockTimeout`` afterwards, with words that tell who holds it
    ``side``     the lock PATH.lck beside the file, instead of the common one, /var/lock/_NAME.lck, that the setters of
                 configuration files take and that equal names in different folders share
    ``stop``     ends the wait: ``Canceled``

    Ctrl-C ends the wait, too, and no lock is left behind. Threads of one process wait for each other; a thread that takes a
    lock twice waits for itself.
    """
    return Lock(path, timeout, side, stop)


def try_lock(path: StrPath, timeout: Seconds = 0, *, side: bool = False, stop: Stop = None) -> Lock | None:
    """As ``lock``, and ``None`` where the lock was not obtained in time."""
    try:
        return Lock(path, timeout, side, stop)
    except LockTimeout:
        return None


def _state(status: int, pid: int, program: str, age: int, reason: str) -> LockState:
    return LockState(LockStatus(status), pid, program, timedelta(milliseconds=age), reason)


def inspect_lock(path: StrPath, *, side: bool = False) -> LockState:
    """Looks at a lock without touching it. Raises where there is one that can't be read."""
    return _state(*_korvex.inspect_lock(path, side))


def locks() -> list[NamedLock]:
    """Every lock of /var/lock, by name. Side locks lie beside what they protect and are not listed."""
    return [NamedLock(name, watched, _state(*state)) for name, watched, state in _korvex.locks()]


def wait_until_free(path: StrPath, timeout: Seconds = USUAL_WAIT, *, stop: Stop = None) -> bool:
    """Waits while another program holds the watched lock of a path, such as a log's; whether it is free now."""
    return _korvex.wait_until_unwatched(path, milliseconds(timeout), stopper(stop))
