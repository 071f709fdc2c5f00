"""asyncio: other tasks go on, and a cancellation stops the work."""

import asyncio
import socket
from pathlib import Path

import korvex
import pytest
from korvex import aio


def run(main) -> None:  # type: ignore[no-untyped-def]
    """Runs a coroutine; the loop ends its threads."""
    asyncio.run(main)


def test_run_gives_results_and_failures(conf: Path) -> None:
    async def main() -> None:
        assert (await aio.run(korvex.measure_tree, conf.parent)).files == 1
        with pytest.raises(FileNotFoundError):
            await aio.run(korvex.measure_tree, conf.parent / "none")

    run(main())


def test_other_tasks_go_on_while_one_waits_for_a_lock(conf: Path) -> None:
    async def main() -> None:
        order = []

        async def wait() -> None:
            async with aio.lock(conf, None) as lock:
                order.append("locked")
                assert lock.held

        with korvex.lock(conf):
            task = asyncio.create_task(wait())
            for _ in range(50):
                await asyncio.sleep(0)
            order.append("went on")
        await task
        assert order == ["went on", "locked"]

    run(main())
    assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE


def test_a_cancellation_stops_the_wait_and_leaves_nothing(conf: Path) -> None:
    async def main() -> None:
        async def wait() -> None:
            async with aio.lock(conf, None):
                pytest.fail("it was never free")

        with korvex.lock(conf):
            task = asyncio.create_task(wait())
            await asyncio.sleep(0)
            task.cancel()
            with pytest.raises(asyncio.CancelledError):
                await task
        # Nobody waits any more: else the lock would be taken again.
        assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE

    run(main())


def test_what_was_made_in_spite_of_a_cancellation_is_given_back(conf: Path) -> None:
    async def main() -> None:
        begun = asyncio.Event()
        loop = asyncio.get_running_loop()

        def make(path: Path, *, stop: object = None) -> korvex.Lock:
            lock = korvex.lock(path)
            loop.call_soon_threadsafe(begun.set)
            assert stop.wait(60)  # type: ignore[attr-defined]
            return lock

        task = asyncio.create_task(aio.run(make, conf))
        await begun.wait()
        task.cancel()
        with pytest.raises(asyncio.CancelledError):
            await task
        assert korvex.inspect_lock(conf).status is korvex.LockStatus.FREE

    run(main())


def test_a_cancelled_receive_ends(conf: Path) -> None:
    async def main() -> None:
        one, other = socket.socketpair()
        with one, other:
            task = asyncio.create_task(aio.run(korvex.receive_exactly, one, 3))
            await asyncio.sleep(0)
            task.cancel()
            with pytest.raises(asyncio.CancelledError):
                await task
            other.send(b"abc")
            assert await aio.run(korvex.receive_exactly, one, 3, 60) == b"abc"

    run(main())


def test_edit_commits_or_not(conf: Path) -> None:
    async def main() -> None:
        async with aio.edit(conf) as edit:
            edit["global"]["port"] = 1
        assert korvex.get(conf, "global", "port") == "1"
        with pytest.raises(ZeroDivisionError):
            async with aio.edit(conf) as edit:
                edit["global"]["port"] = 2
                1 // 0
        assert korvex.get(conf, "global", "port") == "1"
        with korvex.lock(conf), pytest.raises(korvex.LockTimeout):
            async with aio.edit(conf, timeout=0.05):
                pass

    run(main())
