"""Files and folder trees: read, written, copied, measured and removed, with the truth about what was left out."""

from dataclasses import dataclass
from pathlib import Path
from types import TracebackType

from . import _korvex
from ._common import Buffer, Progress, Stop, StrPath, stopper

__all__ = [
    "LeftOut",
    "TemporaryFile",
    "TreeState",
    "copy_file",
    "copy_link",
    "copy_tree",
    "is_temporary_name",
    "measure_tree",
    "read_file",
    "remove_file",
    "remove_tree",
    "write_file",
]


def read_file(path: StrPath, *, stop: Stop = None) -> bytes:
    """Reads a whole file. A link of another user, root's excepted, is not followed; a pipe or device is refused."""
    return _korvex.read_file(path, stopper(stop))


def write_file(
    path: StrPath, content: str | Buffer, *, durable: bool = True, backup: str = "", lenient: bool = False
) -> None:
    """Writes a whole file: readers see the old content or the new one, and after a failure the old one is there, whole.

    A link stays a link; owner, group, permission bits, access list and attributes of the old file stay. Takes no lock.

    ``content``  bytes, which are not copied, or a text, which is written as UTF-8
    ``durable``  on the disk when it is done
    ``backup``   keeps the old file under its name and this suffix
    ``lenient``  goes on where an attribute of the old file can't be given to the new one

    Raises ``Changed`` where somebody else changed the file meanwhile, ``NotCarriedOver``, or what writing met.
    """
    content = content.encode("utf-8", "surrogateescape") if isinstance(content, str) else content
    _korvex.write_file(path, content, durable, backup, lenient)


def copy_file(
    source: StrPath, destination: StrPath, *, durable: bool = False, progress: Progress = None, stop: Stop = None
) -> None:
    """Copies a file's content, permission bits (no set-id bits), owner and modification time.

    The copy is renamed into its place when it is whole, so a failed or stopped one leaves what was there.

    ``durable``   on the disk when it is done
    ``progress``  called with the bytes copied so far
    ``stop``      ends it: ``Canceled``
    """
    _korvex.copy_file(source, destination, durable, progress, stopper(stop))


def copy_link(source: StrPath, destination: StrPath) -> None:
    """Copies a link itself, dangling or not, with its owner and time. What is at the destination is not replaced."""
    _korvex.copy_link(source, destination)


def remove_file(path: StrPath) -> bool:
    """Removes a file; false where there was none."""
    return _korvex.remove_file(path)


@dataclass(frozen=True, slots=True)
class LeftOut:
    """One entry that an operation on a tree left out."""

    path: Path
    reason: str


@dataclass(frozen=True, slots=True)
class TreeState:
    """What is in a folder tree."""

    files: int
    """regular files and links"""
    folders: int
    """the top one included"""
    bytes: int
    """sizes of files and links"""
    blocks: int
    """of 512 bytes, of files, links and folders: what the disk holds"""


def _left_out(entries: list[tuple[str, str]]) -> list[LeftOut]:
    return [LeftOut(Path(path), reason) for path, reason in entries]


def copy_tree(source: StrPath, destination: StrPath, *, durable: bool = False, stop: Stop = None) -> list[LeftOut]:
    """Copies a folder with all files, links and folders in it, with their bits, owners and times.

    Returns what was left out, and why: devices, pipes and sockets, and what could not be read. Empty means that the copy is
    whole. A destination that exists is merged into: its files are replaced; a subfolder or link of the same name is in the
    way. What was copied before a failure or a stop stays.
    """
    return _left_out(_korvex.copy_tree(source, destination, durable, stopper(stop)))


def remove_tree(path: StrPath, *, stop: Stop = None) -> list[LeftOut]:
    """Removes a folder with all that is in it, or a name that is no folder; a link is removed itself.

    Returns what is still there, and why; empty when all is gone. Raises ``NoSuchFile`` where there is none.
    """
    return _left_out(_korvex.remove_tree(path, stopper(stop)))


def measure_tree(path: StrPath, *, stop: Stop = None) -> TreeState:
    """Adds up what is in a folder; what can't be looked at does not count."""
    return TreeState(*_korvex.measure_tree(path, stopper(stop)))


def is_temporary_name(path: StrPath) -> bool:
    """Whether a path has a name of the kind that ``TemporaryFile`` gives; the file need not exist."""
    return _korvex.is_temporary_name(path)


class TemporaryFile:
    """A file in the folder of another, under a name of its own that marks it as temporary.

    It is removed when the ``with`` block is left or it is closed, unless it was kept.

    ``beside``  the file that it will stand for: its folder is used, its name is not
    ``mode``    permission bits, less the umask
    """

    def __init__(self, beside: StrPath, mode: int = 0o600) -> None:
        self._file = _korvex.TemporaryFile(beside, mode)

    def __enter__(self) -> "TemporaryFile":
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    @property
    def path(self) -> Path:
        """Its path; as relative as the path that it was made beside."""
        return Path(self._file.path())

    def fileno(self) -> int:
        """Its descriptor, open for reading and writing; it stays this object's. ``open(..., closefd=False)`` takes it."""
        return self._file.descriptor()

    def keep(self) -> Path:
        """Lets the file stay, and closes its descriptor. Returns its path."""
        return Path(self._file.keep())

    def close(self) -> None:
        """Removes it; nothing when it is closed or kept already."""
        self._file.close()
