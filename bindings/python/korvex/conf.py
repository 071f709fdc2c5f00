"""Configuration files: sections of "key = value" lines, read as mappings and changed as one step.

The format is that of the library: names are compared byte for byte, the first of a name counts, and ``""`` is the section
before the first header. Bytes that are no UTF-8 become lone surrogates, and are written back as they were.
"""

import math
import os
from collections.abc import Iterator, Mapping, MutableMapping
from pathlib import Path
from types import TracebackType
from typing import TypeVar, overload

from . import _korvex
from ._common import Seconds, Stop, StrPath, milliseconds, stopper
from .errors import _no_such_key
from .locks import USUAL_WAIT

__all__ = ["Conf", "Edit", "EditSection", "Section", "Value", "delete", "edit", "get", "parse", "read", "set"]

Value = str | bool | int | float
"""What a key can be set to: a truth value is written as yes or no, a number in decimal."""

_T = TypeVar("_T")
_LEAST_INT, _MOST_INT = -(2**63), 2**63 - 1


class Section(Mapping[str, str]):
    """One section: keys and their values, read-only. A missing key is a ``NoSuchKey``, which is a ``KeyError``."""

    def __init__(self, pairs: dict[str, str], name: str, path: str) -> None:
        self._pairs = pairs
        self._name = name
        self._path = path

    def __getitem__(self, key: str) -> str:
        value = self._find(key)
        if value is None:
            raise _no_such_key(key, self._name, self._path)
        return value

    def __iter__(self) -> Iterator[str]:
        return iter(self._all())

    def __len__(self) -> int:
        return len(self._all())

    def __repr__(self) -> str:
        return f"<{type(self).__name__} [{self._name}] {dict(self)!r}>"

    def _find(self, key: str) -> str | None:
        return self._pairs.get(key)

    def _all(self) -> dict[str, str]:
        return self._pairs

    @overload
    def get_bool(self, key: str) -> bool | None: ...
    @overload
    def get_bool(self, key: str, default: _T) -> bool | _T: ...
    def get_bool(self, key: str, default: _T | None = None) -> bool | _T | None:
        """Reads a truth value: true for yes, on, 1 and true, false for no, off, 0 and false, in any case.

        Returns ``default`` where there is no such key. Raises ``BadValue`` for any other text.
        """
        text = self._find(key)
        return default if text is None else _korvex.value_as_bool(text, self._path, self._name, key)

    @overload
    def get_int(self, key: str, *, least: int = ..., most: int = ...) -> int | None: ...
    @overload
    def get_int(self, key: str, default: _T, *, least: int = ..., most: int = ...) -> int | _T: ...
    def get_int(
        self, key: str, default: _T | None = None, *, least: int = _LEAST_INT, most: int = _MOST_INT
    ) -> int | _T | None:
        """Reads a number in decimal, from ``least`` to ``most``, which are 64 bits at most.

        Returns ``default`` where there is no such key. Raises ``BadValue`` for any other text.
        """
        text = self._find(key)
        return default if text is None else _korvex.value_as_int(text, self._path, self._name, key, least, most)

    @overload
    def get_float(self, key: str, *, least: float = ..., most: float = ...) -> float | None: ...
    @overload
    def get_float(self, key: str, default: _T, *, least: float = ..., most: float = ...) -> float | _T: ...
    def get_float(
        self, key: str, default: _T | None = None, *, least: float = -math.inf, most: float = math.inf
    ) -> float | _T | None:
        """Reads a number with or without fraction, from ``least`` to ``most``.

        Returns ``default`` where there is no such key. Raises ``BadValue`` for any other text.
        """
        text = self._find(key)
        return default if text is None else _korvex.value_as_float(text, self._path, self._name, key, least, most)


class Conf(Mapping[str, Section]):
    """A whole configuration as it was when it was read, read-only: sections by name.

    A missing section is a ``NoSuchKey``, which is a ``KeyError``.
    """

    def __init__(self, sections: dict[str, Section], path: str) -> None:
        self._sections = sections
        self._path = path

    def __getitem__(self, name: str) -> Section:
        section = self._sections.get(name)
        if section is None:
            raise _no_such_key(name, None, self._path)
        return section

    def __iter__(self) -> Iterator[str]:
        return iter(self._sections)

    def __len__(self) -> int:
        return len(self._sections)

    def __repr__(self) -> str:
        return f"<Conf {self._path!r} {list(self)!r}>"


def _conf(sections: list[tuple[str, list[tuple[str, str]]]], path: str) -> Conf:
    found: dict[str, Section] = {}
    for name, pairs in sections:
        if name not in found:  # the first one of a name counts, of sections and of keys
            values: dict[str, str] = {}
            for key, value in pairs:
                values.setdefault(key, value)
            found[name] = Section(values, name, path)
    return Conf(found, path)


def read(path: StrPath) -> Conf:
    """Reads a whole file. Takes no lock, since a file is only ever replaced as a whole.

    Raises ``NoSuchFile``, or what else keeps the file from being read.
    """
    return _conf(_korvex.conf_read(path), os.fspath(path))


def parse(text: str) -> Conf:
    """Reads a text as a configuration. Lines that are neither header, pair nor comment are passed over."""
    return _conf(_korvex.conf_parse(text), "a configuration")


@overload
def get(path: StrPath, section: str, key: str) -> str | None: ...
@overload
def get(path: StrPath, section: str, key: str, default: _T) -> str | _T: ...
def get(path: StrPath, section: str, key: str, default: _T | None = None) -> str | _T | None:
    """Reads one key; much faster than ``read`` for a single one. Takes no lock.

    Returns ``default`` where there is no such file, section or key; raises what else keeps the file from being read.
    """
    value = _korvex.conf_get(path, section, key)
    return default if value is None else value


def _text_of(value: Value) -> str:
    if isinstance(value, str):
        return value
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, float) and not math.isfinite(value):
        raise ValueError(f"{value} is no number that would read back")
    return repr(value)


class EditSection(Section, MutableMapping[str, str]):
    """One section of a file that is edited: what is set here is in the file when the edit ends.

    Any name gives a section; one that is not in the file is added with its first key, and the header of one that loses its
    last key stays. A value may be a text, a number or a
    truth value. What would not read back as it is written is a ``BadValue``: line feeds, blanks around, "=" in a key.
    """

    def __init__(self, transaction: _korvex.Transaction, name: str, path: str) -> None:
        super().__init__({}, name, path)
        self._transaction = transaction

    def _find(self, key: str) -> str | None:
        return self._transaction.get(self._name, key)

    def _all(self) -> dict[str, str]:
        section = parse(self._transaction.text()).get(self._name)
        return {} if section is None else section._pairs

    def __setitem__(self, key: str, value: Value) -> None:
        self._transaction.set(self._name, key, _text_of(value))

    def __delitem__(self, key: str) -> None:
        if not self._transaction.erase(self._name, key):
            raise _no_such_key(key, self._name, self._path)


class Edit(Mapping[str, EditSection]):
    """Several changes of one file as one step. Made by ``edit``.

    It holds the file's lock, for which the library's own setters and the tool wait, too. Leaving the ``with`` block
    replaces the file; leaving it by an exception changes nothing. It must be done within ten minutes, when others take the
    lock over. Threads may share it, and wait for each other.
    """

    def __init__(self, transaction: _korvex.Transaction) -> None:
        self._transaction = transaction
        self._path = transaction.path()

    def __enter__(self) -> "Edit":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        try:
            if kind is None and self._transaction.is_open():
                self._transaction.commit()
        finally:
            self._transaction.close()

    def __getitem__(self, name: str) -> EditSection:
        return EditSection(self._transaction, name, self._path)

    def __contains__(self, name: object) -> bool:
        return name in parse(self._transaction.text())

    def __iter__(self) -> Iterator[str]:
        return iter(parse(self._transaction.text()))

    def __len__(self) -> int:
        return len(parse(self._transaction.text()))

    @property
    def path(self) -> Path:
        """The file that is edited: where a link leads to."""
        return Path(self._path)

    @property
    def text(self) -> str:
        """What the file will hold."""
        return self._transaction.text()

    def diff(self) -> str:
        """What will be changed, as ``diff -u`` writes it; empty for nothing."""
        return self._transaction.diff()

    def expect(self, section: str, key: str, value: Value | None) -> None:
        """Makes the change conditional: it fails with ``Changed`` unless the file had this value when the edit began.

        ``None`` says that the key must not have been there.
        """
        self._transaction.expect(section, key, None if value is None else _text_of(value))

    def commit(self) -> None:
        """Replaces the file now, and ends the edit; after a failure it can be tried again.

        Raises, and the file is the old one: ``Changed`` where somebody who takes no lock changed it, or a value is not the
        expected one; ``LockLost``; ``NotCarriedOver``; or what writing met, such as a full disk. Where nothing is changed,
        nothing is written.
        """
        self._transaction.commit()

    def cancel(self) -> None:
        """Ends the edit; nothing happened."""
        self._transaction.close()


def edit(
    path: StrPath,
    *,
    timeout: Seconds = USUAL_WAIT,
    durable: bool = True,
    backup: str = "",
    force: bool = False,
    lenient: bool = False,
    stop: Stop = None,
) -> Edit:
    """Begins several changes of a file as one step::

        with korvex.edit("/etc/config/smb.conf") as conf:
            conf["global"]["workgroup"] = "ATTIC"
            del conf["homes"]["guest ok"]

    Every other line stays as it is, and so do owner, group, permission bits, access list and extended attributes. A link
    stays a link. Wherever it fails or is killed, the file is the old one or the new one, whole.

    ``path``     the file; it need not exist, its folder must
    ``timeout``  how long to wait for the file's lock; ``LockTimeout`` afterwards
    ``durable``  the new file is on the disk when the edit ends; without it that takes a while, and is faster
    ``backup``   keeps the old file under its name and this suffix, such as "~"
    ``force``    goes over what somebody changed meanwhile without taking the lock
    ``lenient``  goes on where an attribute of the old file can't be given to the new one
    ``stop``     ends the wait for the lock
    """
    return Edit(_korvex.Transaction(path, milliseconds(timeout), durable, backup, force, lenient, stopper(stop)))


def set(
    path: StrPath,
    section: str,
    key: str,
    value: Value,
    *,
    timeout: Seconds = USUAL_WAIT,
    durable: bool = True,
    stop: Stop = None,
) -> None:
    """Sets one key: an ``edit`` with one change."""
    with edit(path, timeout=timeout, durable=durable, stop=stop) as conf:
        conf[section][key] = value


def delete(
    path: StrPath, section: str, key: str, *, timeout: Seconds = USUAL_WAIT, durable: bool = True, stop: Stop = None
) -> bool:
    """Removes one key's line; false where there is none."""
    with edit(path, timeout=timeout, durable=durable, stop=stop) as conf:
        if conf._transaction.erase(section, key):
            return True
        conf.cancel()
        return False
