"""Failures: their classes, errnos, names and words."""

import errno
import os
import pickle
from pathlib import Path

import korvex
import pytest


def test_a_failure_is_an_os_error_with_errno_filename_and_words(tmp_path: Path) -> None:
    path = tmp_path / "none.conf"
    with pytest.raises(OSError) as caught:
        korvex.read(path)
    failure = caught.value
    assert isinstance(failure, korvex.NoSuchFile)
    assert (failure.errno, failure.filename, failure.code) == (errno.ENOENT, str(path), "ENOENT")
    assert str(failure) == f"can't read '{path}': no such file or folder"
    assert failure.strerror == "no such file or folder"


@pytest.mark.parametrize(
    ("kind", "base"),
    [
        (korvex.NoSuchFile, FileNotFoundError),
        (korvex.NoSuchFile, korvex.NotFound),
        (korvex.NoSuchKey, KeyError),
        (korvex.NoSuchKey, korvex.NotFound),
        (korvex.LockTimeout, TimeoutError),
        (korvex.TimeIsOver, TimeoutError),
        (korvex.BadValue, ValueError),
        (korvex.PeerClosed, ConnectionError),
    ],
)
def test_a_script_can_catch_what_python_calls_it(kind: type[korvex.Error], base: type[Exception]) -> None:
    assert issubclass(kind, base)
    assert issubclass(kind, korvex.Error)
    assert issubclass(kind, OSError)


def test_a_missing_key_is_no_missing_file(conf: Path) -> None:
    with pytest.raises(KeyError) as caught:
        korvex.read(conf)["global"]["nobody"]
    assert not isinstance(caught.value, FileNotFoundError)
    assert str(caught.value) == f"can't read 'nobody' of [global] in '{conf}': no such key"


def test_errnos_have_the_class_that_open_raises(tmp_path: Path) -> None:
    with pytest.raises(IsADirectoryError):
        korvex.copy_file(__file__, tmp_path)
    (tmp_path / "link").symlink_to("nowhere")
    (tmp_path / "other").symlink_to("nowhere")
    with pytest.raises(FileExistsError) as caught:
        korvex.copy_link(tmp_path / "link", tmp_path / "other")
    assert isinstance(caught.value, korvex.Error)
    with pytest.raises(NotADirectoryError):
        korvex.Log(Path(__file__) / "app.log")


def test_permission_is_denied_as_for_open(tmp_path: Path, child) -> None:  # type: ignore[no-untyped-def]
    path = tmp_path / "secret"
    path.write_text("x")
    path.chmod(0)
    if os.geteuid() != 0:
        with pytest.raises(PermissionError):
            korvex.read_file(path)
        return
    for folder in [tmp_path, *tmp_path.parents][:-2]:
        folder.chmod(0o755)
    other = child(
        "os.setgid(65534); os.setuid(65534)\n"
        "try: korvex.read_file(sys.argv[1])\n"
        "except PermissionError as failure: print(isinstance(failure, korvex.Error), failure.errno)",
        path,
    )
    assert other.end()[1] == f"True {errno.EACCES}\n"


def test_an_error_made_by_hand_shows_as_an_os_error() -> None:
    failure = korvex.Error(5, "broken", "there")
    assert str(failure) == "[Errno 5] broken: 'there'"


def test_a_failure_travels_between_processes_as_it_is(tmp_path: Path) -> None:
    with pytest.raises(korvex.NoSuchFile) as caught:
        korvex.read(tmp_path / "none")
    copy = pickle.loads(pickle.dumps(caught.value))
    assert type(copy) is korvex.NoSuchFile
    assert (str(copy), copy.errno, copy.filename, copy.code) == (
        str(caught.value),
        caught.value.errno,
        caught.value.filename,
        "ENOENT",
    )


def test_a_path_with_a_nul_is_a_value_error() -> None:
    with pytest.raises(ValueError):
        korvex.read_file("a\0b")


def test_a_wrong_type_is_a_type_error(conf: Path) -> None:
    with pytest.raises(TypeError):
        korvex.get(conf, 1, "x")  # type: ignore[call-overload]
    with pytest.raises(TypeError):
        korvex.read_file(3.5)  # type: ignore[arg-type]


@pytest.mark.parametrize("time", [-1, float("nan"), 2.0**31])
def test_a_time_out_of_range_is_a_value_error(conf: Path, time: float) -> None:
    with pytest.raises(ValueError):
        korvex.lock(conf, time)
