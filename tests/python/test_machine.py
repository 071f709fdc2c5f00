"""Mounts, shares, volumes, block devices, interfaces and processes."""

import ctypes
import os
import shutil
from collections.abc import Iterator
from pathlib import Path

import korvex
import pytest

TOOL = Path("/usr/local/sbin/blkid")


def mount_disk(path: Path) -> None:
    libc = ctypes.CDLL(None, use_errno=True)
    assert libc.mount(b"korvex-test", os.fsencode(path), b"tmpfs", 0, b"size=1m") == 0, os.strerror(ctypes.get_errno())


@pytest.fixture
def appliance() -> Iterator[None]:
    """One disk with a volume that is shared as Public, and a hidden share on it."""
    TOOL.write_text('#!/bin/sh\necho \'/dev/sda1: LABEL="Data" UUID="id-data" TYPE="ext4"\'\n')
    TOOL.chmod(0o755)
    disk = Path("/sys/block/sda")
    for name, content in {"size": "9000", "sda1/size": "8000", "device/model": "Disk", "device/vendor": "Acme"}.items():
        (disk / name).parent.mkdir(parents=True, exist_ok=True)
        (disk / name).write_text(content + "\n")
    volume = Path("/share/VOL")
    volume.mkdir()
    mount_disk(volume)
    (volume / "Music").mkdir()
    Path("/share/Public").symlink_to("VOL")
    Path("/share/Music").symlink_to("VOL/Music")
    mtab = Path("/etc/mtab")
    mtab.unlink(missing_ok=True)
    mtab.write_text("/dev/sda1 /share/VOL ext4 rw,noatime 0 2\n")
    settings = Path("/etc/config/smb.conf")
    settings.write_text("[Music]\nbrowsable = no\n[Public]\nbrowsable = yes\n")
    yield
    ctypes.CDLL(None).umount2(os.fsencode(volume), 2)
    for name in os.listdir("/share"):
        path = Path("/share") / name
        path.unlink() if path.is_symlink() else path.rmdir()
    shutil.rmtree(disk)
    settings.unlink()
    TOOL.unlink()


@pytest.mark.usefixtures("appliance")
def test_mounts() -> None:
    assert korvex.mounts() == [korvex.Mount("/dev/sda1", Path("/share/VOL"), "ext4", "rw,noatime", 0, 2)]
    Path("/etc/mtab").unlink()
    with pytest.raises(korvex.Error):
        korvex.mounts()


@pytest.mark.usefixtures("appliance")
def test_shares() -> None:
    music, public = korvex.shares()
    assert (music.name, public.name) == ("Music", "Public")
    assert korvex.ShareFlags.HIDDEN in music.flags and korvex.ShareFlags.HIDDEN not in public.flags
    status = os.stat("/share/VOL/Music")
    assert (music.mode, music.user, music.group) == (status.st_mode, status.st_uid, status.st_gid)
    assert abs(music.modified.timestamp() - status.st_mtime) < 0.001
    assert public.free_bytes == 1 << 20 and public.file_system == 0x01021994
    with pytest.raises(AttributeError):
        music.name = "x"  # type: ignore[misc]


@pytest.mark.usefixtures("appliance")
@pytest.mark.parametrize("name", ["/dev/sda1", "id-data"])
def test_a_volume_by_its_names(name: str) -> None:
    volume = korvex.find_volume(name)
    assert volume is not None
    assert (volume.device, volume.mount_path) == (Path("/dev/sda1"), Path("/share/Public"))
    assert (volume.uuid, volume.type, volume.label) == ("id-data", "ext4", "Data")
    assert (volume.vendor, volume.model) == ("Acme", "Disk")
    assert volume.free_bytes <= 1 << 20 and volume.total_bytes > 0


@pytest.mark.usefixtures("appliance")
def test_blocks_and_disks() -> None:
    assert korvex.blocks() == [korvex.Block(Path("/dev/sda1"), "id-data", "ext4", "")]
    content = korvex.BlockContent(Path("/dev/sda1"), "id-data", "Data", "ext4")
    assert korvex.content_of("/dev/sda1") == content
    assert korvex.find_block("id-data") == content
    assert korvex.find_disk("/dev/sda1") == korvex.Disk("Acme", "Disk", 8000 * 512, 0)
    assert korvex.share_link_to("/share/VOL") == Path("/share/Public")


@pytest.mark.usefixtures("appliance")
def test_what_is_not_there_is_none() -> None:
    assert korvex.find_volume("/dev/sdz9") is None and korvex.find_volume("id-none") is None
    assert korvex.content_of("/dev/sdz9") is None and korvex.find_block("id-none") is None
    assert korvex.find_disk("/dev/md1") is None
    assert korvex.share_link_to("/share/NONE") is None


def test_without_shares_and_blocks() -> None:
    assert korvex.shares() == [] and korvex.blocks() == []


def test_interfaces() -> None:
    loopback = next(one for one in korvex.interfaces() if one.name == "lo")
    assert (loopback.ipv4, loopback.ipv4_prefix, loopback.mac) == ("127.0.0.1", 8, "00:00:00:00:00:00")
    assert loopback.flags & 1 and isinstance(loopback.ipv6, tuple)


def test_processes(child) -> None:  # type: ignore[no-untyped-def]
    other = child("open('/proc/self/comm', 'w').write('korvex-test-py'); print('named', flush=True); sys.stdin.read()")
    assert other.line() == "named"
    assert korvex.processes_named("korvex-test-py") == [other.pid]
    assert korvex.process_exists(other.pid) and korvex.parent_of(other.pid) == os.getpid()
    ancestor = korvex.ancestor_of("korvex-test-py")
    assert ancestor is None or korvex.process_exists(ancestor)
    other.process.kill()
    other.end()
    assert not korvex.process_exists(other.pid) and korvex.parent_of(other.pid) is None
    assert korvex.processes_named("korvex-test-py") == [] and korvex.ancestor_of("korvex-test-py") is None
