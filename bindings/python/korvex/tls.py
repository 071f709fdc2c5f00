"""TLS sessions whose peers can be verified::

    own = korvex.tls.Credentials("/etc/app/host.pem", authorities="/etc/app/authorities.pem")
    with korvex.tls.connect("nas.local", 4000, own) as session:
        session.send_all(b"hello\\n")

``connect`` verifies the peer before anything is sent. The OpenSSL of the process is used, or the system's.
"""

import socket
from dataclasses import dataclass, field
from types import TracebackType

from . import _korvex, net
from ._common import Buffer, Seconds, Stop, StopCall, StrPath, milliseconds, stopper
from .net import _in_time

__all__ = ["Credentials", "Session", "client", "connect", "server"]


@dataclass(frozen=True, slots=True)
class Credentials:
    """What one side shows, and whom it trusts. The library needs all of it on both sides."""

    certificate: StrPath
    """PEM: the chain, the own certificate first, and its private key"""
    pass_phrase: str = field(default="", repr=False)
    """of the key"""
    authorities: StrPath = ""
    """PEM: certificates of those who are trusted"""


class Session:
    """An open TLS session with its socket. When it is closed the peer is told. Threads that share it wait for each other."""

    def __init__(self, session: _korvex.TlsSession) -> None:
        self._session = session

    def __enter__(self) -> "Session":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def verify_peer(self, host: str) -> None:
        """Raises ``NotVerified`` unless the peer is the one that it should be.

        Its certificate is there, a trusted authority vouches for it, its time is now, and it is for the name ``host``,
        or for the numeric address. ``code`` of the failure says what is wrong.
        """
        self._session.verify_peer(host)

    def send_all(self, content: Buffer, timeout: Seconds = None, *, stop: Stop = None) -> None:
        """As ``korvex.send_all``. After a failure the session can only be closed."""
        self._session.send_all(content, milliseconds(timeout), stopper(stop))

    def receive_exactly(self, count: int, timeout: Seconds = None, *, stop: Stop = None) -> bytes:
        """As ``korvex.receive_exactly``."""
        return self._session.receive_exactly(count, milliseconds(timeout), stopper(stop))

    def receive_some(self, most: int, timeout: Seconds = None, *, stop: Stop = None) -> bytes:
        """As ``korvex.receive_some``; a connection that is cut without a word raises ``PeerClosed``."""
        return _in_time(
            self._session.receive(most, milliseconds(timeout), stopper(stop)), "can't receive from 'peer'"
        )

    def peek_exactly(self, count: int, timeout: Seconds, *, stop: Stop = None) -> bytes:
        """Waits until so many bytes have come, 16 KiB at most, and gives them without taking them."""
        return self._session.peek_exactly(count, milliseconds(timeout), stopper(stop))

    def fileno(self) -> int:
        """The descriptor of its socket; it stays the session's."""
        return self._session.descriptor()

    def close(self) -> None:
        """Tells the peer and closes the socket; nothing when it is closed already."""
        self._session.close()


def connect(
    host: str,
    port: int,
    own: Credentials,
    timeout: Seconds = 120,
    *,
    verify: bool = True,
    stop: Stop = None,
) -> Session:
    """Connects to a host, opens a session as the client, and verifies that the peer is this host.

    ``timeout``  for the connection, and once more for the handshake; ``TimeIsOver`` afterwards
    ``verify``   false: nobody looks at the peer's certificate; call ``verify_peer`` with the name that it has
    """
    session = client(net.connect(host, port, timeout, stop=stop), own, timeout, stop=stop)
    if verify:
        try:
            session.verify_peer(host)
        except BaseException:
            session.close()
            raise
    return session


def client(link: socket.socket, own: Credentials, timeout: Seconds = 120, *, stop: Stop = None) -> Session:
    """Opens a session as the client on a connected socket, which belongs to the session from here on.

    Nobody has looked at the peer's certificate: call ``verify_peer`` next.
    """
    return Session(_korvex.tls_client(*_arguments(link, own, timeout, stop)))


def server(link: socket.socket, own: Credentials, timeout: Seconds = 120, *, stop: Stop = None) -> Session:
    """Opens a session as the server on an accepted socket. It does not ask the client for a certificate."""
    return Session(_korvex.tls_server(*_arguments(link, own, timeout, stop)))


def _arguments(
    link: socket.socket, own: Credentials, timeout: Seconds, stop: Stop
) -> tuple[int, StrPath, str, StrPath, int, StopCall]:
    limit = milliseconds(timeout)
    return link.detach(), own.certificate, own.pass_phrase, own.authorities, limit, stopper(stop)
