"""Locks between processes."""

import os
import signal
import threading
from datetime import timedelta
from pathlib import Path

import korvex
import pytest

from conftest import threads_of, until


def test_a_lock_is_held_in_the_block_and_released_after_it(conf: Path) -> None:
    with korvex.lock(conf, timeout=2) as lock:
        assert lock.held
        assert timedelta(minutes=9) < lock.time_left <= timedelta(minutes=10)
        state = korvex.inspect_lock(conf)
        assert (state.status, state.pid) == (korvex.LockStatus.HELD, os.getpid())
        assert [(one.name, one.watched) for one in korvex.locks()] == [("smb.conf", False)]
    assert not lock.held
    assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE
    lock.release()
    with pytest.raises(korvex.Error, match="closed"):
        lock.time_left


def test_a_lock_is_released_when_the_block_is_left_by_an_exception(conf: Path) -> None:
    with pytest.raises(ZeroDivisionError), korvex.lock(conf):
        1 // 0
    assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE


def test_a_lock_that_nobody_keeps_is_released(conf: Path) -> None:
    korvex.lock(conf)
    assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE


def test_a_side_lock_lies_beside_the_file(conf: Path) -> None:
    with korvex.lock(conf, side=True):
        assert Path(f"{conf}.lck").exists()
        assert korvex.inspect_lock(conf, side=True).status is korvex.LockStatus.HELD
        assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE
    assert not Path(f"{conf}.lck").exists()


def test_what_another_process_holds_is_a_time_out(conf: Path, child) -> None:  # type: ignore[no-untyped-def]
    other = child("lock = korvex.lock(sys.argv[1]); print('held', flush=True); sys.stdin.readline(); lock.release()", conf)
    assert other.line() == "held"
    with pytest.raises(korvex.LockTimeout, match=rf"process {other.pid} \(.*\) holds it") as caught:
        korvex.lock(conf, 0)
    assert caught.value.filename == str(conf)
    assert korvex.try_lock(conf, timedelta(milliseconds=20)) is None
    other.say()
    assert other.end()[0] == 0
    lock = korvex.try_lock(conf)
    assert lock is not None
    lock.release()


def test_a_dead_process_is_followed(conf: Path, child) -> None:  # type: ignore[no-untyped-def]
    other = child("lock = korvex.lock(sys.argv[1]); print('held', flush=True); sys.stdin.read()", conf)
    assert other.line() == "held"
    other.process.kill()
    other.end()
    assert korvex.inspect_lock(conf).status is korvex.LockStatus.STALE
    with korvex.lock(conf, 5):
        assert korvex.inspect_lock(conf).pid == os.getpid()


def test_a_lock_that_can_never_be_taken_says_why(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError):
        korvex.lock(tmp_path / "no" / "folder", 5, side=True)


def test_a_folder_in_the_place_of_a_lock_blocks_it(conf: Path) -> None:
    in_its_place = Path(f"/var/lock/_{conf.name}.lck")
    in_its_place.mkdir()
    try:
        assert korvex.inspect_lock(conf).status is korvex.LockStatus.BLOCKED
        assert [one.state.reason for one in korvex.locks() if one.state.status is korvex.LockStatus.BLOCKED] == ["a folder"]
    finally:
        in_its_place.rmdir()


def test_a_lock_that_may_not_be_read_is_listed_as_such(child) -> None:  # type: ignore[no-untyped-def]
    secret = Path("/var/lock/_secret.lck")
    secret.touch(mode=0)
    try:
        other = child(
            "os.setgid(65534); os.setuid(65534)\n"
            "print([one.state.status.name for one in korvex.locks() if one.name == 'secret'])"
        )
        assert other.end()[1] == "['UNREADABLE']\n"
    finally:
        secret.unlink()


def test_an_event_ends_the_wait(conf: Path) -> None:
    stop = threading.Event()
    with korvex.lock(conf):
        asked = []

        def ask() -> bool:
            asked.append(True)
            if len(asked) == 3:
                stop.set()
            return stop.is_set()

        with pytest.raises(korvex.Canceled, match="stopped on request"):
            korvex.lock(conf, None, stop=ask)
        with pytest.raises(korvex.Canceled):
            korvex.lock(conf, None, stop=stop)
    assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE


def test_what_a_stop_raises_ends_the_wait_and_leaves_as_it_is(conf: Path) -> None:
    def ask() -> bool:
        raise RuntimeError("not asked")

    with korvex.lock(conf), pytest.raises(RuntimeError, match="not asked"):
        korvex.lock(conf, None, stop=ask)


def test_ctrl_c_ends_a_wait_and_leaves_no_lock(conf: Path, child) -> None:  # type: ignore[no-untyped-def]
    with korvex.lock(conf):
        other = child(
            "try: korvex.lock(sys.argv[1], None)\n"
            "except KeyboardInterrupt: print('interrupted', flush=True)\n"
            "sys.stdin.readline()",
            conf,
        )
        until(lambda: threads_of(other.pid) == 2, "the wait")
        os.kill(other.pid, signal.SIGINT)
        assert other.line() == "interrupted"
    # The other one lives, and holds nothing.
    assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE
    other.say()
    assert other.end()[0] == 0


def test_a_signal_with_a_handler_does_not_end_a_wait(conf: Path, child) -> None:  # type: ignore[no-untyped-def]
    with korvex.lock(conf):
        other = child(
            "import signal\n"
            "signal.signal(signal.SIGUSR1, lambda *_: print('handled', flush=True))\n"
            "with korvex.lock(sys.argv[1], None): print('locked')",
            conf,
        )
        until(lambda: threads_of(other.pid) == 2, "the wait")
        os.kill(other.pid, signal.SIGUSR1)
        assert other.line() == "handled"
    assert other.end()[:2] == (0, "locked\n")


def test_other_threads_run_while_one_waits(conf: Path) -> None:
    held = korvex.lock(conf)
    begun, got = threading.Event(), []

    def wait() -> None:
        begun.set()
        with korvex.lock(conf, None):
            got.append(True)

    waiting = [threading.Thread(target=wait) for _ in range(4)]
    for thread in waiting:
        thread.start()
    begun.wait()
    # If the waiting threads kept the interpreter, this would never come to its end, and the lock never be released.
    assert sum(range(200_000)) > 0 and not got
    held.release()
    for thread in waiting:
        thread.join(60)
    assert got == [True] * 4


def test_a_forked_child_does_not_release_its_parents_lock(conf: Path) -> None:
    with korvex.lock(conf) as lock:
        pid = os.fork()
        if pid == 0:
            lock.release()
            del lock
            os._exit(0)
        os.waitpid(pid, 0)
        assert korvex.inspect_lock(conf).pid == os.getpid()


def test_wait_until_free_waits_for_watched_locks(conf: Path, child) -> None:  # type: ignore[no-untyped-def]
    assert korvex.wait_until_free(conf, 0) is True
    watched = Path("/var/lock/smb.conf.lck")
    # As another program makes it: the time in milliseconds, its process and 0.
    other = child(
        "import struct, time\n"
        "open(sys.argv[1], 'wb').write(struct.pack('qii', int(time.time() * 1000), os.getpid(), 0))\n"
        "print('held', flush=True); sys.stdin.readline(); os.unlink(sys.argv[1])",
        watched,
    )
    assert other.line() == "held"
    assert [(one.name, one.watched) for one in korvex.locks()] == [("smb.conf", True)]
    assert korvex.wait_until_free(conf, 0.1) is False
    with pytest.raises(korvex.Canceled):
        korvex.wait_until_free(conf, None, stop=lambda: True)
    other.say()
    assert korvex.wait_until_free(conf, 60) is True
    assert other.end()[0] == 0


def test_daemon_threads_that_wait_do_not_disturb_the_end(conf: Path, child) -> None:  # type: ignore[no-untyped-def]
    other = child(
        "import threading, time\n"
        "held = korvex.lock(sys.argv[1])\n"
        "def wait(stop): korvex.lock(sys.argv[1], None, stop=stop)\n"
        "for stop in [threading.Event(), lambda: sum(range(1000)) < 0] * 10:\n"
        "    threading.Thread(target=wait, args=(stop,), daemon=True).start()\n"
        "class Late:\n"
        "    def __del__(self):\n"  # while the interpreter ends, all of them come back and ask for its lock
        "        end = time.monotonic() + 0.3\n"
        "        while time.monotonic() < end: pass\n"
        "sys.modules['late'] = Late()",
        conf,
    )
    assert other.end() == (0, "", "")
    with korvex.lock(conf):  # of a process that has ended
        pass
