"""Connections: made, waited for, and transfer of exactly what was asked for.

Sockets are Python's: each function takes a ``socket.socket``, or what else has a ``fileno``, and gives one back. A time-out
that is set on a socket (``settimeout``) does not count here; each call has its own.
"""

import socket
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Protocol, TypeVar

from . import _korvex
from ._common import Buffer, Progress, Seconds, Stop, StrPath, milliseconds, stopper
from .errors import TimeIsOver

__all__ = [
    "Address",
    "HasFileno",
    "accept",
    "connect",
    "connect_local",
    "first_ready",
    "is_local",
    "listen",
    "listen_local",
    "receive_exactly",
    "receive_exactly_into",
    "receive_into_file",
    "receive_some",
    "resolve",
    "same_subnet",
    "scope_of",
    "send_all",
    "wait_writable",
]


class HasFileno(Protocol):
    """What has a descriptor, such as a ``socket.socket``."""

    def fileno(self) -> int:
        """The descriptor; it stays the object's."""


_Link = TypeVar("_Link", bound=HasFileno)


@dataclass(frozen=True, slots=True)
class Address:
    """An address of a host."""

    text: str
    """"10.0.0.1" or "fd00::1\""""
    is_ipv6: bool


def connect(host: str, port: int, timeout: Seconds = 120, *, local: str = "", stop: Stop = None) -> socket.socket:
    """Connects to the first address of a host by TCP. The socket sends without delay.

    ``timeout``  for the connection, but not for the name; ``TimeIsOver`` afterwards
    ``local``    IPv4 address to come from; empty: the system's choice
    ``stop``     ends it: ``Canceled``
    """
    return _socket(_korvex.connect(host, port, milliseconds(timeout), local, stopper(stop)))


def listen(host: str, port: int, *, backlog: int = 128, stop: Stop = None) -> list[socket.socket]:
    """Listens by TCP on every address of a host, one socket an address; an empty host is all of this machine's."""
    return [_socket(one) for one in _korvex.listen(host, port, backlog, stopper(stop))]


def connect_local(path: StrPath, timeout: Seconds = None, *, stop: Stop = None) -> socket.socket:
    """Connects to a local socket; the path is shorter than 108 bytes."""
    return _socket(_korvex.connect_local(path, milliseconds(timeout), stopper(stop)))


def listen_local(path: StrPath) -> socket.socket:
    """Listens on a path; everybody who reaches it may connect.

    A socket that lies there, in use or not, is replaced; anything else is left alone (``FileExistsError``). The path stays
    behind: remove it when it is no longer used.
    """
    return _socket(_korvex.listen_local(path))


def _socket(descriptor: int) -> socket.socket:
    made = socket.socket(fileno=descriptor)
    made.setblocking(True)
    return made


def accept(listener: HasFileno, timeout: Seconds = None, *, stop: Stop = None) -> socket.socket:
    """Takes a connection. Raises ``TimeIsOver`` when none has come in time."""
    link = _korvex.accept(listener.fileno(), milliseconds(timeout), stopper(stop))
    return _socket(_in_time(link, "can't accept from 'listener'"))


def first_ready(links: Sequence[_Link], timeout: Seconds = None, *, stop: Stop = None) -> _Link | None:
    """Waits until one of some sockets can be received from, or has a connection to accept; ``None`` when the time is over."""
    place = _korvex.first_ready([link.fileno() for link in links], milliseconds(timeout), stopper(stop))
    return None if place is None else links[place]


def wait_writable(link: HasFileno, timeout: Seconds = None, *, stop: Stop = None) -> bool:
    """Waits until something can be sent, or sending would fail at once; false when the time is over."""
    return _korvex.wait_writable(link.fileno(), milliseconds(timeout), stopper(stop))


def send_all(link: HasFileno, content: Buffer, timeout: Seconds = None, *, stop: Stop = None) -> None:
    """Sends all bytes; they are not copied. ``timeout`` is for all of them.

    Raises ``TimeIsOver``, ``BrokenPipeError`` or ``ConnectionResetError``; ``moved`` of the failure tells how far it came.
    """
    _korvex.send_all(link.fileno(), content, milliseconds(timeout), stopper(stop))


def receive_exactly(link: HasFileno, count: int, timeout: Seconds = None, *, stop: Stop = None) -> bytes:
    """Receives exactly so many bytes. ``timeout`` is for all of them.

    Raises ``PeerClosed`` at once when the peer closes early, and ``TimeIsOver``; what came is lost, and ``moved`` tells how
    much it was. Use ``receive_exactly_into`` to keep it.
    """
    return _korvex.receive_exactly(link.fileno(), count, milliseconds(timeout), stopper(stop))


def receive_exactly_into(link: HasFileno, buffer: Buffer, timeout: Seconds = None, *, stop: Stop = None) -> None:
    """The same into a writable buffer, to its end; after a failure it has what came."""
    _korvex.receive_exactly_into(link.fileno(), buffer, milliseconds(timeout), stopper(stop))


def receive_some(link: HasFileno, most: int, timeout: Seconds = None, *, stop: Stop = None) -> bytes:
    """Receives what has come, at most so many bytes; waits until something comes.

    Empty when the peer has closed. Raises ``TimeIsOver``.
    """
    came = _korvex.receive_some(link.fileno(), most, milliseconds(timeout), stopper(stop))
    return _in_time(came, "can't receive from 'peer'")


def receive_into_file(
    link: HasFileno,
    file: HasFileno,
    length: int,
    *,
    silence: Seconds = None,
    progress: Progress = None,
    stop: Stop = None,
) -> None:
    """Receives bytes into a file at its position, through the kernel alone.

    ``file``     open for writing, not for appending; flush what is buffered first
    ``silence``  how long nothing may come
    Raises ``PeerClosed`` or ``TimeIsOver``, or what writing met; what the file has by then stays in it.
    """
    _korvex.receive_into_file(link.fileno(), file.fileno(), length, milliseconds(silence), progress, stopper(stop))


def resolve(host: str, *, stop: Stop = None) -> Address:
    """Finds the first address of a host, by name or address."""
    return Address(*_korvex.resolve(host, stopper(stop)))


def is_local(host: str, *, stop: Stop = None) -> bool:
    """Whether a name or an address is one of this host's."""
    return _korvex.is_local(host, stopper(stop))


def same_subnet(one: str, other: str, prefix: int) -> bool:
    """Whether two addresses agree in their first ``prefix`` bits. Addresses of two families never do."""
    return _korvex.same_subnet(one, other, prefix)


def scope_of(address: str) -> int | None:
    """The scope id to reach a link-local IPv6 address by; ``None`` where the kernel lists no interface."""
    return _korvex.scope_of(address)


_Answer = TypeVar("_Answer")


def _in_time(answer: _Answer | None, line: str) -> _Answer:
    if answer is None:
        failure = TimeIsOver(_ETIME, "the time is over")
        failure.code = "time_is_over"
        failure._line = f"{line}: the time is over"
        raise failure
    return answer


_ETIME = 62
