"""What the tests share: a world of their own, other processes, and what must not be left behind."""

import gc
import os
import subprocess
import sys
import threading
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

if os.environ.get("KORVEX_OWN_WORLD") != "yes":
    sys.exit("these tests need a world of their own: tests/python/in_own_world.sh python3 -m pytest ...")


# Ctrl-C works also where the tests run in the background, for which a shell has it ignored.
PREPARED = """\
import korvex, os, signal, sys
signal.signal(signal.SIGINT, signal.default_int_handler)
"""


class Child:
    """Another Python process that runs a script; what it prints comes line by line."""

    def __init__(self, script: str, *arguments: object) -> None:
        command = [sys.executable, "-B", "-c", PREPARED + script, *map(str, arguments)]
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, bufsize=1
        )

    @property
    def pid(self) -> int:
        return self.process.pid

    def line(self) -> str:
        assert self.process.stdout is not None
        return self.process.stdout.readline().rstrip("\n")

    def say(self, line: str = "") -> None:
        assert self.process.stdin is not None
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def end(self) -> tuple[int, str, str]:
        out, err = self.process.communicate(timeout=60)
        return self.process.returncode, out, err


@pytest.fixture
def child() -> Iterator[Callable[..., Child]]:
    """Starts other processes, which are ended with the test."""
    made: list[Child] = []

    def start(script: str, *arguments: object) -> Child:
        made.append(Child(script, *arguments))
        return made[-1]

    yield start
    for one in made:
        if one.process.poll() is None:
            one.process.kill()
        one.process.communicate()


@pytest.fixture
def conf(tmp_path: Path) -> Path:
    """A configuration file."""
    path = tmp_path / "smb.conf"
    path.write_text("# of the house\n[global]\nworkgroup = HOME\nport = 445\n\n[homes]\nguest ok = yes\n")
    return path


def until(condition: Callable[[], object], what: str) -> None:
    """Waits until something is so; the limit only ends a test that would never end."""
    end = time.monotonic() + 60
    while not condition():
        assert time.monotonic() < end, f"never came: {what}"
        time.sleep(0.001)


def threads_of(pid: int) -> int:
    return len(os.listdir(f"/proc/{pid}/task"))


def descriptors() -> dict[str, str]:
    """What is open, by number."""
    gc.collect()
    found = {}
    for name in os.listdir("/proc/self/fd"):
        try:
            found[name] = os.readlink(f"/proc/self/fd/{name}")
        except FileNotFoundError:
            pass
    return {name: target for name, target in found.items() if not target.startswith("/proc/")}


@pytest.fixture(autouse=True)
def nothing_is_left() -> Iterator[None]:
    """After each test, failed calls included: no descriptor, no lock, no thread more than before."""
    open_before, threads_before = descriptors(), threading.active_count()
    yield
    gc.collect()
    until(lambda: threading.active_count() <= threads_before, "the end of all threads")
    assert descriptors() == open_before
    assert os.listdir("/var/lock") == []

