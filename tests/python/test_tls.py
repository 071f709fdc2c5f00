"""TLS sessions."""

import gc
import socket
import subprocess
import threading
from collections.abc import Callable
from pathlib import Path

import korvex
import pytest
from korvex import tls

from conftest import descriptors


@pytest.fixture(scope="session")
def certificates(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("certificates")
    script = Path(__file__).resolve().parent.parent / "cpp" / "make_certificates.sh"
    subprocess.run([script, folder], check=True)
    return folder


def credentials(certificates: Path, name: str = "good", authority: str = "root") -> tls.Credentials:
    return tls.Credentials(certificates / f"{name}.pem", authorities=certificates / f"{authority}.crt")


class Server:
    """A server in a thread, with one connection."""

    def __init__(self, own: tls.Credentials, serve: Callable[[tls.Session], object]) -> None:
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port: int = self.listener.getsockname()[1]
        self.failure: BaseException | None = None
        self.thread = threading.Thread(target=self.run, args=(own, serve))
        self.thread.start()

    def run(self, own: tls.Credentials, serve: Callable[[tls.Session], object]) -> None:
        try:
            with tls.server(korvex.accept(self.listener, 60), own, 60) as session:
                serve(session)
        except korvex.Error as failure:
            self.failure = failure

    def __enter__(self) -> "Server":
        return self

    def __exit__(self, *_: object) -> None:
        self.thread.join(60)
        self.listener.close()


def test_bytes_travel_both_ways(certificates: Path) -> None:
    own = credentials(certificates)

    def serve(session: tls.Session) -> None:
        session.send_all(session.receive_exactly(5, 60).upper(), 60)
        assert session.receive_some(10, 60) == b""

    with Server(own, serve) as server:
        with tls.connect("127.0.0.1", server.port, own, 60) as session:
            session.send_all(b"hello", 60)
            assert session.peek_exactly(2, 60) == b"HE"
            assert session.receive_some(3, 60) + session.receive_exactly(2, 60) == b"HELLO"
            assert session.fileno() > 2
            with pytest.raises(korvex.TimeIsOver):
                session.receive_some(1, 0.01)
            with pytest.raises(korvex.Canceled):
                session.receive_exactly(1, stop=lambda: True)
        with pytest.raises(korvex.Error, match="closed"):
            session.send_all(b"x")
    assert server.failure is None


@pytest.mark.parametrize(
    ("name", "authority", "code"),
    [
        ("expired", "root", "certificate_expired"),
        ("early", "root", "certificate_not_yet_valid"),
        ("good", "other", "not_trusted"),
        ("nas.test", "root", "name_mismatch"),
    ],
)
def test_a_peer_that_is_not_the_right_one_is_refused(certificates: Path, name: str, authority: str, code: str) -> None:
    with Server(credentials(certificates, name), lambda session: session.receive_some(1, 60)) as server:
        with pytest.raises(korvex.NotVerified) as caught:
            tls.connect("127.0.0.1", server.port, credentials(certificates, "good", authority), 60)
        assert caught.value.code == code


def test_the_name_may_be_another(certificates: Path) -> None:
    own = credentials(certificates)
    with Server(own, lambda session: session.receive_some(1, 60)) as server:
        with tls.connect("127.0.0.1", server.port, own, 60, verify=False) as session:
            session.verify_peer("nas.test")
            with pytest.raises(korvex.NotVerified):
                session.verify_peer("other.test")


def test_failures_close_the_socket(certificates: Path, tmp_path: Path) -> None:
    before = descriptors()
    one, other = socket.socketpair()
    with pytest.raises(FileNotFoundError):
        tls.client(one, tls.Credentials(tmp_path / "none.pem", authorities=certificates / "root.crt"), 1)
    assert one.fileno() == -1
    other.close()

    one, other = socket.socketpair()
    with other, pytest.raises(korvex.Error):
        tls.client(one, credentials(certificates), 0.05)
    gc.collect()
    assert descriptors() == before


def test_a_pass_phrase_is_not_shown(certificates: Path) -> None:
    own = tls.Credentials(certificates / "locked.pem", "secret", certificates / "root.crt")
    assert "secret" not in repr(own)
    with Server(own, lambda session: session.send_all(b"x", 60)) as server:
        with tls.connect("127.0.0.1", server.port, credentials(certificates), 60) as session:
            assert session.receive_exactly(1, 60) == b"x"
