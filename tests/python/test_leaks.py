"""References and descriptors after calls, failed ones included."""

import contextlib
import gc
import socket
import sys
import threading
from collections.abc import Callable, Iterator
from pathlib import Path

import korvex
import pytest

from conftest import descriptors


class World:
    """What the calls are given; the same objects each time, so that a reference that stays is seen."""

    def __init__(self, folder: Path) -> None:
        self.conf = folder / "smb.conf"
        self.none = folder / "none" / "deep"
        self.copy = folder / "copy"
        self.tree = folder / "tree"
        self.tree.mkdir()
        self.log = str(folder / "app.log")
        self.section = "".join(["glo", "bal"])
        self.key = "".join(["po", "rt"])
        self.content = bytes(bytearray(b"content"))
        self.room = bytearray(7)
        self.stop = threading.Event()
        self.stopped = threading.Event()
        self.stopped.set()
        self.one, self.other = socket.socketpair()

    def progress(self, moved: int) -> None:
        """Gets on."""

    def broken(self, moved: int) -> None:
        """Breaks."""
        raise RuntimeError

    def close(self) -> None:
        self.one.close()
        self.other.close()


def edit(world: World) -> None:
    with korvex.edit(world.conf, durable=False, stop=world.stop) as conf:
        conf[world.section][world.key] = 1


def broken_edit(world: World) -> None:
    with korvex.edit(world.conf) as conf:
        conf[world.section][world.key] = "two\nlines"


def handled(world: World) -> None:
    handler = korvex.LogHandler(world.log)
    handler.close()


def echo(world: World) -> None:
    korvex.send_all(world.one, world.content)
    korvex.receive_exactly_into(world.other, world.room, 60, stop=world.stop)


CALLS: dict[str, Callable[[World], object]] = {
    "get": lambda w: korvex.get(w.conf, w.section, w.key),
    "get, a folder": lambda w: korvex.get(w.tree, w.section, w.key),
    "read": lambda w: dict(korvex.read(w.conf)[w.section]),
    "read, no file": lambda w: korvex.read(w.none),
    "read, no key": lambda w: korvex.read(w.conf)[w.section][w.log],
    "edit": edit,
    "edit, a bad value": broken_edit,
    "edit, no folder": lambda w: korvex.set(w.none, w.section, w.key, w.section),
    "lock": lambda w: korvex.lock(w.conf, stop=w.stop).release(),
    "lock, no folder": lambda w: korvex.lock(w.none, 0, side=True),
    "lock, stopped": lambda w: korvex.lock(w.conf, None, stop=w.stopped),
    "inspect": lambda w: (korvex.inspect_lock(w.conf), korvex.locks()),
    "log": lambda w: korvex.Log(w.log).write(w.section),
    "log, a NUL": lambda w: korvex.Log(w.log).write("a\0b"),
    "log, relative": lambda w: korvex.Log(w.section),
    "handler": handled,
    "read_file": lambda w: korvex.read_file(w.conf),
    "write_file": lambda w: korvex.write_file(w.copy, w.content, durable=False),
    "write_file, no folder": lambda w: korvex.write_file(w.none, w.content),
    "copy_file": lambda w: korvex.copy_file(w.conf, w.copy, progress=w.progress, stop=w.stop),
    "copy_file, broken": lambda w: korvex.copy_file(w.conf, w.copy, progress=w.broken),
    "copy_file, stopped": lambda w: korvex.copy_file(w.conf, w.copy, stop=w.stopped),
    "copy_file, no folder": lambda w: korvex.copy_file(w.conf, w.none),
    "copy_tree": lambda w: korvex.copy_tree(w.tree, w.copy),
    "measure_tree": lambda w: korvex.measure_tree(w.tree, stop=w.stop),
    "remove_tree, none": lambda w: korvex.remove_tree(w.none),
    "temporary": lambda w: korvex.TemporaryFile(w.conf).close(),
    "temporary, no folder": lambda w: korvex.TemporaryFile(w.none),
    "interfaces": lambda w: korvex.interfaces(),
    "processes": lambda w: (korvex.processes_named(w.section), korvex.parent_of(1)),
    "send and receive": echo,
    "receive, time is over": lambda w: korvex.receive_exactly(w.one, 3, 0),
    "receive, read-only": lambda w: korvex.receive_exactly_into(w.one, w.content, 0),
    "receive, stopped": lambda w: korvex.receive_some(w.one, 3, stop=w.stopped),
    "connect, a bad port": lambda w: korvex.connect(w.section, 0),
    "tls, no certificate": lambda w: korvex.tls.client(
        socket.socketpair()[0], korvex.tls.Credentials(w.none, w.section, w.conf), 1
    ),
}


@pytest.fixture
def world(tmp_path: Path, conf: Path) -> Iterator[World]:
    made = World(tmp_path)
    yield made
    made.close()


@pytest.mark.parametrize("name", CALLS)
@pytest.mark.filterwarnings("ignore::ResourceWarning")
def test_calls_keep_no_reference_and_no_descriptor(name: str, world: World) -> None:
    call, attributes = CALLS[name], vars(world)

    def repeated(times: int) -> None:
        for _ in range(times):
            with contextlib.suppress(OSError, RuntimeError, BufferError):
                call(world)

    def state() -> tuple[dict[str, int], dict[str, str]]:
        gc.collect()
        return {attribute: sys.getrefcount(value) for attribute, value in attributes.items()}, descriptors()

    repeated(3)
    before, objects = state(), len(gc.get_objects())
    repeated(20)
    assert state() == before
    assert abs(len(gc.get_objects()) - objects) < 20
