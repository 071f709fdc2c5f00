"""Files and folder trees."""

import os
from pathlib import Path

import korvex
import pytest


def test_read_and_write_whole_files(tmp_path: Path) -> None:
    path = tmp_path / "a"
    korvex.write_file(path, b"\0\xff")
    assert korvex.read_file(path) == b"\0\xff"
    korvex.write_file(path, "größer")
    assert korvex.read_file(path).decode() == "größer"
    korvex.write_file(path, memoryview(bytearray(b"abcdef"))[1:3], durable=False, backup="~")
    assert path.read_bytes() == b"bc"
    assert (tmp_path / "a~").read_text() == "größer"


def test_write_keeps_bits_and_links(tmp_path: Path) -> None:
    path, link = tmp_path / "a", tmp_path / "link"
    path.write_text("old")
    path.chmod(0o604)
    link.symlink_to("a")
    korvex.write_file(link, b"new")
    assert link.is_symlink() and path.read_text() == "new"
    assert path.stat().st_mode & 0o777 == 0o604


def test_what_can_not_be_read_or_written_is_a_failure(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError):
        korvex.read_file(tmp_path / "none")
    with pytest.raises(FileNotFoundError):
        korvex.write_file(tmp_path / "none" / "a", b"")
    with pytest.raises(korvex.Error, match="not a regular file"):
        korvex.read_file("/dev/zero")
    with pytest.raises(BufferError):
        korvex.write_file(tmp_path / "a", memoryview(b"abcdef")[::2])
    with pytest.raises(TypeError):
        korvex.write_file(tmp_path / "a", 3)  # type: ignore[arg-type]
    assert os.listdir(tmp_path) == []


def test_copy_file_carries_bits_and_time_and_tells_its_progress(tmp_path: Path) -> None:
    source, copy = tmp_path / "a", tmp_path / "b"
    source.write_bytes(b"x" * 3_000_000)
    source.chmod(0o640)
    os.utime(source, (1_000_000, 1_000_000))
    seen: list[int] = []
    korvex.copy_file(source, copy, durable=True, progress=seen.append)
    assert copy.read_bytes() == source.read_bytes()
    assert (copy.stat().st_mode & 0o777, copy.stat().st_mtime) == (0o640, 1_000_000)
    assert seen[-1] == 3_000_000 and seen == sorted(seen)


def test_a_stopped_copy_leaves_what_was_there(tmp_path: Path) -> None:
    source, copy = tmp_path / "a", tmp_path / "b"
    source.touch()
    os.truncate(source, 1 << 40)  # a hole, longer than anybody waits; it is stopped at the first look
    copy.write_text("old")
    with pytest.raises(korvex.Canceled, match="stopped on request"):
        korvex.copy_file(source, copy, stop=lambda: True)
    assert copy.read_text() == "old"
    assert sorted(os.listdir(tmp_path)) == ["a", "b"]


def test_what_progress_raises_ends_the_copy(tmp_path: Path) -> None:
    source = tmp_path / "a"
    source.write_bytes(b"x" * 1_000_000)

    def progress(moved: int) -> None:
        raise RuntimeError(str(moved))

    with pytest.raises(RuntimeError):
        korvex.copy_file(source, tmp_path / "b", progress=progress)


def test_a_failed_copy_says_what_failed(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError):
        korvex.copy_file(tmp_path / "none", tmp_path / "b")
    (tmp_path / "a").write_text("x")
    with pytest.raises(korvex.Error, match="same file"):
        korvex.copy_file(tmp_path / "a", tmp_path / "a")


def test_links_are_copied_and_files_removed(tmp_path: Path) -> None:
    (tmp_path / "link").symlink_to("nowhere")
    korvex.copy_link(tmp_path / "link", tmp_path / "copy")
    assert os.readlink(tmp_path / "copy") == "nowhere"
    assert korvex.remove_file(tmp_path / "copy") is True
    assert korvex.remove_file(tmp_path / "copy") is False
    with pytest.raises(korvex.Error):
        korvex.remove_file("/proc/self/status")


@pytest.fixture
def tree(tmp_path: Path) -> Path:
    top = tmp_path / "tree"
    (top / "sub" / "deep").mkdir(parents=True)
    (top / "one").write_text("12345")
    (top / "sub" / "two").write_text("1234567")
    (top / "sub" / "link").symlink_to("two")
    return top


def test_measure_adds_up(tree: Path) -> None:
    state = korvex.measure_tree(tree)
    assert (state.files, state.folders, state.bytes) == (3, 3, 5 + 7 + 3)
    assert state.blocks >= 0
    with pytest.raises(FileNotFoundError):
        korvex.measure_tree(tree / "none")


def test_copy_tree_copies_all_and_reports_what_it_left_out(tree: Path) -> None:
    copy = tree.with_name("copy")
    assert korvex.copy_tree(tree, copy, durable=True) == []
    assert (copy / "sub" / "two").read_text() == "1234567" and (copy / "sub" / "link").is_symlink()

    os.mkfifo(tree / "sub" / "pipe")
    left = korvex.copy_tree(tree, tree.with_name("again"))
    assert [one.path for one in left] == [tree / "sub" / "pipe"]
    assert "pipe" in left[0].reason
    with pytest.raises(FileExistsError, match="in the way"):
        korvex.copy_tree(tree, copy)
    with pytest.raises(korvex.Error):
        korvex.copy_tree(tree, tree / "inside")


def test_remove_tree_removes_all_and_reports_what_stayed(tree: Path) -> None:
    assert korvex.remove_tree(tree) == []
    assert not tree.exists()
    with pytest.raises(FileNotFoundError):
        korvex.remove_tree(tree)
    with pytest.raises(korvex.Error):
        korvex.remove_tree("/")
    left = korvex.remove_tree("/proc/self/fdinfo")
    assert left and all(one.reason for one in left)


def test_work_on_trees_is_stopped(tree: Path) -> None:
    # A callable that is asked before the work begins, and says yes, stops it for certain.
    for work in (korvex.measure_tree, korvex.remove_tree):
        with pytest.raises(korvex.Canceled):
            work(tree, stop=lambda: True)
    with pytest.raises(korvex.Canceled):
        korvex.copy_tree(tree, tree.with_name("copy"), stop=lambda: True)
    assert (tree / "sub" / "two").exists()


def test_ctrl_c_ends_a_copy(tmp_path: Path, child) -> None:  # type: ignore[no-untyped-def]
    source = tmp_path / "a"
    # Its holes are copied as such where the file system can tell them: a ramfs can't, so the copy goes on and on.
    other = child(
        "import subprocess\n"
        "memory = os.path.dirname(sys.argv[1])\n"
        "libc = __import__('ctypes').CDLL(None)\n"
        "assert libc.unshare(0x20000) == 0\n"
        "subprocess.run(['mount', '--make-rprivate', '/'], check=True)\n"
        "subprocess.run(['mount', '-t', 'ramfs', 'memory', memory], check=True)\n"
        "open(sys.argv[1], 'w').close()\n"
        "os.truncate(sys.argv[1], 1 << 40)\n"
        "def progress(moved): os.kill(os.getpid(), signal.SIGINT)\n"
        "try: korvex.copy_file(sys.argv[1], sys.argv[2], progress=progress)\n"
        "except KeyboardInterrupt: print('interrupted', os.listdir(memory))",
        source,
        tmp_path / "b",
    )
    assert other.end()[1] == "interrupted ['a']\n"


def test_a_temporary_file_goes_or_is_kept(tmp_path: Path) -> None:
    with korvex.TemporaryFile(tmp_path / "a.conf") as temporary:
        path = temporary.path
        assert path.parent == tmp_path and korvex.is_temporary_name(path)
        assert os.write(temporary.fileno(), b"x") == 1
        assert path.stat().st_mode & 0o777 == 0o600
    assert not path.exists()
    temporary.close()
    with pytest.raises(korvex.Error, match="closed"):
        temporary.fileno()

    kept = korvex.TemporaryFile(tmp_path / "a.conf", 0o640).keep()
    assert kept.exists()
    assert not korvex.is_temporary_name(tmp_path / "a.conf")
    with pytest.raises(FileNotFoundError):
        korvex.TemporaryFile(tmp_path / "none" / "a")
