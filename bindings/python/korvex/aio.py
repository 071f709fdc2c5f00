"""The same for ``asyncio``: what waits runs in a thread, and a cancellation stops the work and waits for its end.

::

    async with korvex.aio.lock("/etc/app.conf", timeout=2):
        left_out = await korvex.aio.run(korvex.copy_tree, "/share/Public", "/share/Backup")
"""

import asyncio
import threading
from collections.abc import AsyncIterator, Callable
from contextlib import asynccontextmanager
from typing import Concatenate, ParamSpec, TypeVar

from . import conf as _conf
from . import locks as _locks
from ._common import Seconds, StrPath
from .locks import USUAL_WAIT

__all__ = ["edit", "lock", "run"]

_P = ParamSpec("_P")
_T = TypeVar("_T")


async def run(function: Callable[_P, _T], /, *args: _P.args, **kwargs: _P.kwargs) -> _T:
    """Runs a function of this package in a thread, and gives its result.

    When the task is cancelled the work is stopped, and the cancellation goes on when the work has ended: nothing of it is
    left in the background, and what it made meanwhile (a lock, a socket) is closed. The function must take a ``stop``; it
    is given one.
    """
    stop = threading.Event()
    kwargs["stop"] = stop
    return await _until_stopped(asyncio.get_running_loop().run_in_executor(None, lambda: function(*args, **kwargs)), stop)


async def _until_stopped(work: "asyncio.Future[_T]", stop: threading.Event) -> _T:
    try:
        return await asyncio.shield(work)
    except asyncio.CancelledError:
        stop.set()
        while not work.done():
            try:
                await asyncio.wait([work])
            except asyncio.CancelledError:
                pass  # the work ends soon
        if work.exception() is None:
            _give_back(work.result())
        raise


def _give_back(made: object) -> None:
    for one in made if isinstance(made, list) else [made]:
        for name in ("release", "cancel", "close"):
            end = getattr(one, name, None)
            if callable(end):
                end()
                break


@asynccontextmanager
async def lock(path: StrPath, timeout: Seconds = USUAL_WAIT, *, side: bool = False) -> AsyncIterator[_locks.Lock]:
    """As ``korvex.lock``: other tasks go on while this one waits."""
    held = await run(_locks.lock, path, timeout, side=side)
    try:
        yield held
    finally:
        held.release()


@asynccontextmanager
async def edit(
    path: StrPath,
    *,
    timeout: Seconds = USUAL_WAIT,
    durable: bool = True,
    backup: str = "",
    force: bool = False,
    lenient: bool = False,
) -> AsyncIterator[_conf.Edit]:
    """As ``korvex.edit``: other tasks go on while this one waits for the lock, and for the disk at the end."""
    changes = await run(
        _conf.edit, path, timeout=timeout, durable=durable, backup=backup, force=force, lenient=lenient
    )
    try:
        yield changes
        await _until_stopped(asyncio.get_running_loop().run_in_executor(None, changes.commit), threading.Event())
    finally:
        changes.cancel()
