"""Connections."""

import os
import signal
import socket
import threading
from pathlib import Path

import korvex
import pytest

from conftest import threads_of, until


@pytest.fixture
def pair():  # type: ignore[no-untyped-def]
    one, other = socket.socketpair()
    with one, other:
        yield one, other


def free_port() -> int:
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return int(listener.getsockname()[1])


def test_connect_listen_and_accept_by_tcp() -> None:
    port = free_port()
    listeners = korvex.listen("127.0.0.1", port)
    assert len(listeners) == 1 and listeners[0].getsockname() == ("127.0.0.1", port)
    with listeners[0] as listener, korvex.connect("localhost", port, 5, local="127.0.0.1") as client:
        assert client.getsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY)
        with korvex.accept(listener, 5) as server:
            assert server.getpeername() == client.getsockname()
            korvex.send_all(client, b"hello", 5)
            assert korvex.receive_exactly(server, 5, 5) == b"hello"
            assert not os.get_inheritable(server.fileno())


def test_connections_that_fail() -> None:
    with pytest.raises(ConnectionRefusedError):
        korvex.connect("127.0.0.1", free_port(), 5)
    with pytest.raises(korvex.Error, match="port"):
        korvex.connect("127.0.0.1", 0)
    with pytest.raises(TypeError):
        korvex.connect("127.0.0.1", 70000)
    with pytest.raises(korvex.Error):
        korvex.connect("127.0.0.1", 1, local="not an address")
    with socket.create_server(("127.0.0.1", 0)) as taken, pytest.raises(korvex.Error) as caught:
        korvex.listen("127.0.0.1", taken.getsockname()[1])
    assert caught.value.code == "EADDRINUSE"


def test_local_sockets(tmp_path: Path) -> None:
    path = tmp_path / "socket"
    with korvex.listen_local(path) as listener, korvex.connect_local(path, 5) as client:
        with korvex.accept(listener, 5) as server:
            korvex.send_all(server, bytearray(b"hi"))
            assert korvex.receive_some(client, 100, 5) == b"hi"
            server.close()
            assert korvex.receive_some(client, 100, 5) == b""
    with pytest.raises(korvex.Error):
        korvex.connect_local(tmp_path / "none", 1)
    (tmp_path / "file").write_text("kept")
    with pytest.raises(FileExistsError):
        korvex.listen_local(tmp_path / "file")
    assert (tmp_path / "file").read_text() == "kept"


def test_waits_that_end_with_their_time(tmp_path: Path, pair) -> None:  # type: ignore[no-untyped-def]
    with korvex.listen_local(tmp_path / "socket") as listener, pytest.raises(korvex.TimeIsOver):
        korvex.accept(listener, 0.01)
    with pytest.raises(TimeoutError, match="0 of 3 bytes"):
        korvex.receive_exactly(pair[0], 3, 0.01)
    with pytest.raises(korvex.TimeIsOver):
        korvex.receive_some(pair[0], 3, 0.01)
    assert korvex.first_ready(pair, 0) is None
    assert korvex.wait_writable(pair[0], 0) is True


def test_a_time_out_of_the_python_socket_does_not_count(pair) -> None:  # type: ignore[no-untyped-def]
    pair[0].settimeout(0)
    thread = threading.Thread(target=lambda: korvex.send_all(pair[1], b"late"))
    thread.start()
    assert korvex.receive_exactly(pair[0], 4, 60) == b"late"
    thread.join()


def test_a_peer_that_closes_early_is_told_with_what_came(pair) -> None:  # type: ignore[no-untyped-def]
    pair[1].send(b"ab")
    pair[1].close()
    room = bytearray(4)
    with pytest.raises(korvex.PeerClosed, match="after 2 of 4 bytes") as caught:
        korvex.receive_exactly_into(pair[0], room, 5)
    assert room == b"ab\0\0" and caught.value.moved == 2
    with pytest.raises(BrokenPipeError):
        korvex.send_all(pair[0], b"x")


def test_buffers_are_used_in_place(pair) -> None:  # type: ignore[no-untyped-def]
    room = bytearray(b"......")
    korvex.send_all(pair[0], memoryview(b"abcdef")[2:4])
    korvex.receive_exactly_into(pair[1], memoryview(room)[1:3], 5)
    assert room == b".ab..".replace(b"ab", b"cd") + b"."
    with pytest.raises(BufferError):
        korvex.receive_exactly_into(pair[1], b"const", 5)
    with pytest.raises(BufferError):
        korvex.send_all(pair[0], memoryview(b"abcdef")[::2])
    room.append(1)  # no view of it is left


def test_large_transfers_come_whole(pair) -> None:  # type: ignore[no-untyped-def]
    content = os.urandom(3_000_000)
    thread = threading.Thread(target=lambda: korvex.send_all(pair[1], content, 60))
    thread.start()
    assert korvex.receive_exactly(pair[0], len(content), 60) == content
    thread.join()


def test_first_ready_and_stop(pair) -> None:  # type: ignore[no-untyped-def]
    pair[1].send(b"x")
    one, other = socket.socketpair()
    with one, other:
        assert korvex.first_ready([one, pair[0]], 60) is pair[0]
        with pytest.raises(korvex.Canceled):
            korvex.receive_exactly(one, 1, stop=lambda: True)
        with pytest.raises(korvex.Canceled):
            korvex.first_ready([one], stop=lambda: True)


def test_a_closed_socket_is_refused() -> None:
    one, other = socket.socketpair()
    one.close()
    other.close()
    with pytest.raises(korvex.Error) as caught:
        korvex.receive_some(one, 1, 1)
    assert caught.value.code == "EBADF"


def test_a_file_is_received(tmp_path: Path) -> None:
    port = free_port()
    content = os.urandom(300_000)
    seen: list[int] = []
    with korvex.listen("127.0.0.1", port)[0] as listener, korvex.connect("127.0.0.1", port, 5) as client:
        with korvex.accept(listener, 5) as server, open(tmp_path / "film", "wb") as file:
            thread = threading.Thread(target=lambda: korvex.send_all(client, content, 60))
            thread.start()
            korvex.receive_into_file(server, file, len(content), silence=60, progress=seen.append)
            thread.join()
            client.close()
            with pytest.raises(korvex.PeerClosed):
                korvex.receive_into_file(server, file, 1, silence=60)
    assert (tmp_path / "film").read_bytes() == content and seen[-1] == len(content)


def test_ctrl_c_ends_a_wait_for_a_connection(tmp_path: Path, child) -> None:  # type: ignore[no-untyped-def]
    other = child(
        "listener = korvex.listen_local(sys.argv[1])\n"
        "try: korvex.accept(listener)\n"
        "except KeyboardInterrupt: print('interrupted')",
        tmp_path / "socket",
    )
    until(lambda: threads_of(other.pid) == 2, "the wait")
    os.kill(other.pid, signal.SIGINT)
    assert other.end()[1] == "interrupted\n"


def test_ctrl_c_ends_a_connection_that_does_not_come(tmp_path: Path, child) -> None:  # type: ignore[no-untyped-def]
    # A local listener that accepts nobody: the second connection waits.
    with socket.socket(socket.AF_UNIX) as listener, socket.socket(socket.AF_UNIX) as first:
        listener.bind(str(tmp_path / "socket"))
        listener.listen(0)
        first.connect(str(tmp_path / "socket"))
        other = child(
            "try: korvex.connect_local(sys.argv[1])\nexcept KeyboardInterrupt: print('interrupted')", tmp_path / "socket"
        )
        until(lambda: threads_of(other.pid) == 2, "the wait")
        os.kill(other.pid, signal.SIGINT)
        assert other.end()[1] == "interrupted\n"
        with pytest.raises(korvex.TimeIsOver):
            korvex.connect_local(tmp_path / "socket", 0.01)


def test_addresses() -> None:
    assert korvex.resolve("127.0.0.1") == korvex.Address("127.0.0.1", False)
    assert korvex.resolve("::1").is_ipv6
    with pytest.raises(korvex.Error):
        korvex.resolve("no-such-host.invalid")
    assert korvex.is_local("127.0.0.1") and not korvex.is_local("192.0.2.77")
    assert korvex.same_subnet("10.0.0.1", "10.0.0.9", 28) and not korvex.same_subnet("10.0.0.1", "10.0.0.9", 29)
    with pytest.raises(korvex.Error):
        korvex.same_subnet("10.0.0.1", "10.0.0.9", 33)
    assert korvex.scope_of("::1") is None or isinstance(korvex.scope_of("::1"), int)
    with pytest.raises(korvex.Error):
        korvex.scope_of("10.0.0.1")
