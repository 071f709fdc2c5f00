"""What goes wrong: one class for all, and classes for what a script would catch.

Each failure is an ``Error``, and so an ``OSError``: it has ``errno`` and ``filename``. Where Python has a class for an
errno, the failure is one of that class, too: ``except FileNotFoundError`` and ``except PermissionError`` work as they do
for ``open``. ``str(error)`` says in one line what could not be done, to what, and why.
"""

import errno as _errno

from . import _korvex

__all__ = [
    "BadValue",
    "Canceled",
    "Changed",
    "Error",
    "LockLost",
    "LockTimeout",
    "NoSuchFile",
    "NoSuchKey",
    "NotCarriedOver",
    "NotFound",
    "NotVerified",
    "PeerClosed",
    "TimeIsOver",
]


class Error(OSError):
    """A failure of this package.

    ``errno``     the errno that stands for it
    ``filename``  the path or peer that it is about
    ``strerror``  why, without what and on what
    ``code``      its name: that of the errno ("ENOSPC"), or one of the library's own, such as "lock_lost"
    ``moved``     bytes that a failed transfer had moved; 0 for all else
    """

    code: str = ""
    moved: int = 0
    _line: str = ""

    def __str__(self) -> str:
        return self._line or super().__str__()


class NotFound(Error):
    """There is no such file, section or key."""


class NoSuchFile(NotFound, FileNotFoundError):
    """There is no such file or folder."""


class NoSuchKey(NotFound, KeyError):
    """There is no such section or key, where a mapping was read."""


class LockTimeout(Error, TimeoutError):
    """A lock was not obtained in time; the words name its holder."""


class TimeIsOver(Error, TimeoutError):
    """A connection or transfer did not come to its end in time."""


class Canceled(Error):
    """It was stopped by the caller's ``stop``."""


class Changed(Error):
    """Somebody else changed the file, or a value is not the expected one: nothing was written."""


class LockLost(Error):
    """The lock was taken over, or removed, before the work was done: nothing was written."""


class NotCarriedOver(Error):
    """An attribute of the old file can't be given to the new one: nothing was written."""


class BadValue(Error, ValueError):
    """A value is not of the type asked for, or would not read back as it is written."""


class PeerClosed(Error, ConnectionResetError):
    """The peer closed the connection before all had come."""


class NotVerified(Error):
    """The peer of a TLS session is not, or can't be shown to be, the one that it should be; ``code`` says why."""


class _Denied(Error, PermissionError):
    __doc__ = PermissionError.__doc__


class _Exists(Error, FileExistsError):
    __doc__ = FileExistsError.__doc__


class _IsFolder(Error, IsADirectoryError):
    __doc__ = IsADirectoryError.__doc__


class _IsNoFolder(Error, NotADirectoryError):
    __doc__ = NotADirectoryError.__doc__


class _Refused(Error, ConnectionRefusedError):
    __doc__ = ConnectionRefusedError.__doc__


class _Reset(Error, ConnectionResetError):
    __doc__ = ConnectionResetError.__doc__


class _Broken(Error, BrokenPipeError):
    __doc__ = BrokenPipeError.__doc__


_BY_NAME: dict[str, type[Error]] = {
    "no_such_section": NoSuchKey,
    "no_such_key": NoSuchKey,
    "lock_not_obtained": LockTimeout,
    "time_is_over": TimeIsOver,
    "canceled": Canceled,
    "changed_meanwhile": Changed,
    "expectation_failed": Changed,
    "lock_lost": LockLost,
    "would_not_read_back": BadValue,
    "not_carried_over": NotCarriedOver,
    "not_a_number": BadValue,
    "peer_closed": PeerClosed,
    "no_certificate": NotVerified,
    "not_trusted": NotVerified,
    "certificate_expired": NotVerified,
    "certificate_not_yet_valid": NotVerified,
    "name_mismatch": NotVerified,
    "not_verified": NotVerified,
    "ENOENT": NoSuchFile,
    "ERANGE": BadValue,
    "EACCES": _Denied,
    "EPERM": _Denied,
    "EEXIST": _Exists,
    "EISDIR": _IsFolder,
    "ENOTDIR": _IsNoFolder,
    "ECONNREFUSED": _Refused,
    "ECONNRESET": _Reset,
    "EPIPE": _Broken,
}
_NAMES = {number: name for name, number in _korvex.CODES.items()}


def _made(code: int, errno: int, reason: str, subject: str, line: str, moved: int) -> Error:
    """Makes the exception for a failure of the C++ layer, which calls this."""
    name = _NAMES[code] if code in _NAMES else _errno.errorcode.get(code, str(code))
    made = _BY_NAME.get(name, Error)(errno, reason, subject)
    made.code = name
    made.moved = moved
    made._line = line
    return made


def _no_such_key(key: str, section: str | None, path: str) -> NoSuchKey:
    """The failure of a mapping that has no such section, or no such key in a section."""
    is_section = section is None
    reason = "no such section" if is_section else "no such key"
    what = f"[{key}]" if is_section else f"'{key}' of [{section}]"
    made = NoSuchKey(_errno.ENODATA, reason, path)
    made.code = "no_such_section" if is_section else "no_such_key"
    made._line = f"can't read {what} in '{path}': {reason}"
    return made
