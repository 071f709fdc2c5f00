"""Logs, the handler for logging, and the library's own messages."""

import logging
import os
import re
import threading
from pathlib import Path

import korvex
import pytest

STAMP = r"\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] "


def lines(path: Path) -> list[str]:
    text = path.read_text()
    assert all(re.match(STAMP, line) for line in text.splitlines())
    return [re.sub(STAMP, "", line) for line in text.splitlines()]


def test_a_log_writes_stamped_lines(tmp_path: Path) -> None:
    path = tmp_path / "deep" / "app.log"
    with korvex.Log(path) as log:
        log.write("started")
        log.write("größer %s %n")
    assert lines(path) == ["started", "größer %s %n"]
    with pytest.raises(korvex.Error, match="closed"):
        log.write("after the end")
    log.close()


def test_clock_date_and_truncation(tmp_path: Path) -> None:
    path = tmp_path / "app.log"
    path.write_text("old\n")
    with korvex.Log(path, hours=12, date=korvex.DateFormat.DMY_DOTS, truncate=True) as log:
        log.write("x")
    assert re.fullmatch(r"\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d [ap]m\] x\n", path.read_text())
    with pytest.raises(ValueError):
        korvex.Log(path, hours=13)


def test_a_log_refuses_what_would_be_cut(tmp_path: Path) -> None:
    path = tmp_path / "app.log"
    with korvex.Log(path) as log:
        log.write("x" * korvex.Log.LONGEST_LINE)
        for line in ("x" * (korvex.Log.LONGEST_LINE + 1), "a\0b"):
            with pytest.raises(korvex.Error):
                log.write(line)
    assert lines(path) == ["x" * korvex.Log.LONGEST_LINE]


def test_a_relative_path_and_a_full_disk_are_failures() -> None:
    with pytest.raises(korvex.Error, match="absolute"):
        korvex.Log("app.log")
    with korvex.Log("/dev/full") as log, pytest.raises(korvex.Error) as caught:
        log.write("x")
    assert caught.value.code == "ENOSPC"


def test_reopen_follows_a_rotation(tmp_path: Path) -> None:
    path = tmp_path / "app.log"
    with korvex.Log(path) as log:
        log.write("one")
        path.rename(tmp_path / "app.log.1")
        log.write("two")
        log.reopen()
        log.write("three")
    assert lines(tmp_path / "app.log.1") == ["one", "two"]
    assert lines(path) == ["three"]


def test_threads_share_a_log(tmp_path: Path) -> None:
    path = tmp_path / "app.log"
    with korvex.Log(path) as log:

        def write(number: int) -> None:
            for i in range(200):
                log.write(f"{number} {i}")

        threads = [threading.Thread(target=write, args=(number,)) for number in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert sorted(lines(path)) == sorted(f"{n} {i}" for n in range(4) for i in range(200))


@pytest.fixture
def logger(tmp_path: Path):  # type: ignore[no-untyped-def]
    made = logging.getLogger("app")
    made.propagate = False
    handler = korvex.LogHandler(tmp_path / "app.log")
    made.addHandler(handler)
    yield made
    made.removeHandler(handler)
    handler.close()


def test_the_handler_writes_stamped_lines(tmp_path: Path, logger: logging.Logger) -> None:
    logger.warning("disk %s is full", "sda")
    try:
        1 // 0
    except ZeroDivisionError:
        logger.exception("failed")
    written = lines(tmp_path / "app.log")
    assert written[0] == "WARNING app: disk sda is full"
    assert written[1] == "ERROR app: failed"
    assert written[-1] == "ZeroDivisionError: integer division or modulo by zero"


def test_the_handler_loses_nothing_of_a_long_message(tmp_path: Path, logger: logging.Logger) -> None:
    text = "ä" * 20_000 + "\udcff" + "x" * 20_000
    logger.error("%s\0end", text)
    raw = (tmp_path / "app.log").read_bytes()
    parts = [re.sub(STAMP.encode(), b"", line) for line in raw.split(b"\n")[:-1]]
    assert len(parts) == 4
    assert b"".join(parts) == b"ERROR app: " + text.encode("utf-8", "surrogateescape") + b"\\0end"
    for part in parts[:2]:
        part.decode()  # cut between characters


def test_the_handler_reports_a_failure_as_logging_does(monkeypatch: pytest.MonkeyPatch) -> None:
    failed: list[logging.LogRecord] = []
    handler = korvex.LogHandler("/dev/full")
    monkeypatch.setattr(handler, "handleError", failed.append)
    handler.handle(logging.LogRecord("app", logging.INFO, "", 0, "x", (), None))
    handler.reopen()
    handler.close()
    assert len(failed) == 1


def test_library_messages_come_to_logging(conf: Path, caplog: pytest.LogCaptureFixture) -> None:
    with korvex.library_messages(), pytest.raises(korvex.Error):
        korvex.Log("/proc/none/app.log")
    assert [(one.name, one.levelname) for one in caplog.records] == [("korvex", "ERROR")]
    assert "/proc/none" in caplog.text and caplog.records[0].funcName == "Simp_Log_Create"

    caplog.clear()
    with pytest.raises(korvex.Error):
        korvex.Log("/proc/none/app.log")
    assert caplog.records == []


def test_debug_messages_come_on_request(conf: Path, caplog: pytest.LogCaptureFixture) -> None:
    caplog.set_level(logging.DEBUG)
    mine = logging.getLogger("mine")
    folder = conf.parent / "folder"
    folder.mkdir()
    os.mkfifo(folder / "pipe")
    with korvex.library_messages(mine, debug=True):
        korvex.copy_tree(folder, conf.parent / "copy")
        korvex.get(conf.parent / "none", "a", "b")
    assert caplog.records and {one.name for one in caplog.records} == {"mine"}
