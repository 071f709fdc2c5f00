"""Logs: stamped lines appended to a file that several processes may share; and the library's own messages."""

import logging
import re
import threading
from collections.abc import Iterator
from contextlib import contextmanager
from enum import IntEnum
from types import TracebackType

from . import _korvex
from ._common import StrPath

__all__ = ["DateFormat", "Log", "LogHandler", "library_messages"]


class DateFormat(IntEnum):
    """How the date of a stamp is written: the order of year, month and day, and what stands between them."""

    YMD_SLASHES = 1
    YMD_DOTS = 2
    YMD_DASHES = 3
    MDY_SLASHES = 4
    MDY_DOTS = 5
    MDY_DASHES = 6
    DMY_SLASHES = 7
    DMY_DOTS = 8
    DMY_DASHES = 9


class Log:
    """A log that is open until it is closed, or the ``with`` block is left. Threads may share it.

    ``path``      absolute; the folders above it are made
    ``hours``     24 or 12: the clock of the stamp
    ``date``      how its date is written
    ``truncate``  empty the file first
    """

    LONGEST_LINE = _korvex.LONGEST_LINE
    """The longest line that is written, in bytes."""

    def __init__(
        self, path: StrPath, *, hours: int = 24, date: DateFormat = DateFormat.YMD_DASHES, truncate: bool = False
    ) -> None:
        if hours not in (12, 24):
            raise ValueError(f"a clock has 12 or 24 hours, not {hours}")
        self._log = _korvex.Log(path, hours, DateFormat(date), truncate)

    def __enter__(self) -> "Log":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def write(self, line: str) -> None:
        """Writes one line with its stamp; lines of several processes do not mix.

        Raises where not all could be written, as on a full disk, and refuses a line that has a NUL or is longer than
        ``LONGEST_LINE``. Waits up to 10 s while another program holds the log's lock, then writes in any case.
        """
        self._log.write(line)

    def reopen(self) -> None:
        """Opens the file anew: after something else has moved it away."""
        self._log.reopen()

    def close(self) -> None:
        """Closes it; nothing when it is closed already."""
        self._log.close()


class LogHandler(logging.Handler):
    """Writes what ``logging`` reports as stamped lines into a log that other processes and daemons share.

    The stamp is the log's, so the formatter should give none. A message with line feeds becomes several lines, a NUL
    becomes "\\0", and what is too long for one line goes on in the next: nothing is lost, nothing looks like another
    process's line. Takes the arguments of ``Log``.
    """

    def __init__(
        self,
        path: StrPath,
        level: int | str = logging.NOTSET,
        *,
        hours: int = 24,
        date: DateFormat = DateFormat.YMD_DASHES,
    ) -> None:
        super().__init__(level)
        self.setFormatter(logging.Formatter("%(levelname)s %(name)s: %(message)s"))
        self._log = Log(path, hours=hours, date=date)

    def emit(self, record: logging.LogRecord) -> None:
        """Writes a record; a failure goes to ``handleError``, as with the handlers of ``logging``."""
        try:
            text = self.format(record)
            if len(text) * 4 <= Log.LONGEST_LINE and "\n" not in text and "\0" not in text:
                self._log.write(text)
            else:
                for line in _lines(text):
                    self._log.write(line)
        except RecursionError:
            raise
        except Exception:
            self.handleError(record)

    def reopen(self) -> None:
        """Opens the file anew: after something else has moved it away."""
        self._log.reopen()

    def close(self) -> None:
        """Closes the log."""
        self._log.close()
        super().close()


def _lines(text: str) -> Iterator[str]:
    for line in text.replace("\0", "\\0").split("\n"):
        rest = line.encode("utf-8", "surrogateescape")
        while len(rest) > Log.LONGEST_LINE:
            cut = _end_of_character(rest, Log.LONGEST_LINE)
            yield rest[:cut].decode("utf-8", "surrogateescape")
            rest = rest[cut:]
        yield rest.decode("utf-8", "surrogateescape")


def _end_of_character(text: bytes, most: int) -> int:
    """The largest place up to ``most`` that does not lie inside a character."""
    place = most
    while place > most - 4 and text[place] & 0xC0 == 0x80:
        place -= 1
    return place


_MESSAGE = re.compile(r"\[(error|debug)\] (\w+)\((\d+)\): (.*)", re.S)
_LEVELS = {"error": logging.ERROR, "debug": logging.DEBUG}


@contextmanager
def library_messages(logger: logging.Logger | None = None, *, debug: bool = False) -> Iterator[None]:
    """Hands the library's own messages to ``logging`` as long as the ``with`` block lasts.

    ``logger``  who gets them; the logger "korvex" when nothing is said
    ``debug``   its debug messages, too

    Errors come with ``logging.ERROR``, debug messages with ``logging.DEBUG``, and the name of the library's function is the
    record's ``funcName``. A thread hands them over, so they may come a moment later; when the block is left, all have come.
    The library has one place for its messages, so blocks may be nested but not overlap, and begin before there are threads
    that use the library.
    """
    messages = _korvex.Messages(3 if debug else 1)
    target = logger or logging.getLogger("korvex")

    def hand_over() -> None:
        while (line := messages.next()) is not None:
            _report(target, line)

    reader = threading.Thread(target=hand_over, name="korvex messages", daemon=True)
    reader.start()
    try:
        yield
    finally:
        messages.close()
        reader.join()


def _report(target: logging.Logger, line: str) -> None:
    match = _MESSAGE.fullmatch(line)
    level, function, number, text = match.groups() if match else ("error", "", "0", line)
    if target.isEnabledFor(_LEVELS[level]):
        target.handle(
            target.makeRecord(target.name, _LEVELS[level], "libkorvex_util", int(number), text, (), None, function)
        )
