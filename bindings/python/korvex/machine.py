"""What this machine is made of and what runs on it: mounts, shares, volumes, block devices, interfaces, processes."""

from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from enum import IntFlag
from pathlib import Path

from . import _korvex
from ._common import StrPath

__all__ = [
    "Block",
    "BlockContent",
    "Disk",
    "IPv6Address",
    "Interface",
    "Mount",
    "Share",
    "ShareFlags",
    "Volume",
    "ancestor_of",
    "blocks",
    "content_of",
    "find_block",
    "find_disk",
    "find_volume",
    "interfaces",
    "mounts",
    "parent_of",
    "process_exists",
    "processes_named",
    "share_link_to",
    "shares",
]

_EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)


@dataclass(frozen=True, slots=True)
class Mount:
    """One mounted file system."""

    source: str
    """the device, or what else is mounted"""
    folder: Path
    type: str
    options: str
    """separated by commas"""
    frequency: int
    """of dumps, in days"""
    pass_number: int
    """of fsck"""


class ShareFlags(IntFlag):
    """What is special about a share."""

    NONE = 0
    READ_ONLY = _korvex.SHARE_READ_ONLY
    """the volume is a disc"""
    HIDDEN = _korvex.SHARE_HIDDEN
    """not browsable"""
    EXTERNAL = _korvex.SHARE_EXTERNAL
    """on an external device that is itself a mount point"""
    DISC = _korvex.SHARE_DISC
    """on an ISO 9660 or UDF file system"""
    REMOVABLE = _korvex.SHARE_REMOVABLE
    """external or disc: set together with either"""


@dataclass(frozen=True, slots=True)
class Share:
    """One shared folder."""

    name: str
    flags: ShareFlags
    mode: int
    """type and permission bits of the folder"""
    user: int
    group: int
    modified: datetime
    """the folder's modification time"""
    file_system: int
    """magic number of the volume's file system"""
    block_size: int
    """of the volume, in bytes"""
    free_bytes: int
    """of the volume, those kept for root included"""


@dataclass(frozen=True, slots=True)
class Block:
    """What is on one block device; texts are empty for what it has not."""

    device: Path
    uuid: str
    type: str
    second_type: str
    """of a second TYPE in the same line, without its first character; mostly empty"""


@dataclass(frozen=True, slots=True)
class IPv6Address:
    """One IPv6 address of an interface."""

    address: str
    prefix: int
    """length in bits"""


@dataclass(frozen=True, slots=True)
class Interface:
    """One network interface."""

    name: str
    mac: str
    ipv4: str
    """the last one where there are several; empty without one"""
    ipv4_prefix: int
    ipv6: tuple[IPv6Address, ...]
    flags: int
    """IFF_UP and the others of <net/if.h>"""
    index: int
    """its place in the kernel's list, from 0"""


@dataclass(frozen=True, slots=True)
class Volume:
    """One volume. Texts are cut to the fields of the library's record."""

    device: Path
    mount_path: Path
    """/share/NAME where a link leads to the mount point, else that"""
    uuid: str
    type: str
    label: str
    model: str
    vendor: str
    partition: int
    """0 for a whole disk, and for the only partition of one"""
    free_bytes: int
    """for unprivileged users"""
    total_bytes: int
    """of the file system where the device was asked for, else of the device"""


@dataclass(frozen=True, slots=True)
class BlockContent:
    """What a device holds; texts are empty for what it has not."""

    device: Path
    uuid: str
    label: str
    type: str


@dataclass(frozen=True, slots=True)
class Disk:
    """What the kernel says of a disk."""

    vendor: str
    model: str
    size: int
    """in bytes; 0 where it can't be read"""
    partition: int
    """0 for a whole disk, and for partition 1 of a disk without a second"""


def mounts() -> list[Mount]:
    """The mounted file systems of /etc/mtab, the last line first."""
    return [
        Mount(source, Path(folder), type, options, frequency, pass_number)
        for source, folder, type, options, frequency, pass_number in _korvex.mounts()
    ]


def shares() -> list[Share]:
    """The shared folders, by name."""
    return [
        Share(
            name,
            ShareFlags(flags),
            mode,
            user,
            group,
            _EPOCH + timedelta(microseconds=modified // 1000),
            file_system,
            block_size,
            free_bytes,
        )
        for name, flags, mode, user, group, modified, file_system, block_size, free_bytes in _korvex.shares()
    ]


def blocks() -> list[Block]:
    """What the block-identification command prints, the last line first; empty where it can't be started."""
    return [Block(Path(device), uuid, type, second) for device, uuid, type, second in _korvex.blocks()]


def interfaces() -> list[Interface]:
    """The network interfaces that the kernel names when asked for those with IPv4 addresses, 18 at most."""
    return [
        Interface(name, mac, ipv4, prefix, tuple(IPv6Address(*one) for one in ipv6), flags, index)
        for name, mac, ipv4, prefix, ipv6, flags, index in _korvex.interfaces()
    ]


def find_volume(name: StrPath) -> Volume | None:
    """Describes a volume; ``None`` where there is no such volume, or it is not mounted.

    ``name``  a device ("/dev/sda3"), a mount point below /share, or a UUID
    """
    found = _korvex.find_volume(name)
    return None if found is None else Volume(Path(found[0]), Path(found[1]), *found[2:])


def content_of(device: StrPath) -> BlockContent | None:
    """Asks the block-identification command what a device holds; ``None`` where it does not name the device."""
    return _content(_korvex.content_of(device))


def find_block(uuid: str) -> BlockContent | None:
    """The same by UUID, which finds the device."""
    return _content(_korvex.find_block(uuid))


def _content(found: tuple[str, str, str, str] | None) -> BlockContent | None:
    return None if found is None else BlockContent(Path(found[0]), *found[1:])


def find_disk(device: StrPath) -> Disk | None:
    """The kernel's attributes of a device; ``None`` where it has no vendor, as md and device-mapper have none."""
    found = _korvex.find_disk(device)
    return None if found is None else Disk(*found)


def share_link_to(path: StrPath) -> Path | None:
    """The short path of a folder below /share: "/share/" and the name of the link that leads to it."""
    found = _korvex.share_link_to(path)
    return None if found is None else Path(found)


def process_exists(pid: int) -> bool:
    """Whether a process exists, whoever it belongs to."""
    return _korvex.process_exists(pid)


def parent_of(pid: int) -> int | None:
    """The parent of a process; ``None`` where there is no such process, or its parent can't be told."""
    return _korvex.parent_of(pid)


def processes_named(name: StrPath) -> list[int]:
    """The processes of a name or of a program, in the order of /proc.

    ``name``  a command's name as in /proc/PID/comm; or a path that begins with "/", which every command line matches that
              begins with it
    """
    return _korvex.processes_named(name)


def ancestor_of(name: StrPath) -> int | None:
    """Who started a program: the ancestor, just below process 1, of the first process of a name."""
    return _korvex.ancestor_of(name)
