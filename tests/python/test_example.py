"""The example: a watcher of volumes."""

import os
import re
import signal
import subprocess
import sys
from pathlib import Path

import korvex
import pytest

from conftest import until
from test_machine import appliance as appliance

WATCH = Path(os.environ["KORVEX_EXAMPLES"]) / "volume_watch.py"


def watch(*arguments: object) -> "subprocess.Popen[str]":
    return subprocess.Popen([sys.executable, "-B", WATCH, *map(str, arguments)], text=True, stderr=subprocess.PIPE)


def logged(log: Path) -> list[str]:
    return re.findall(r"^\[.*?\] (.*)$", log.read_text() if log.exists() else "", re.M)


@pytest.mark.usefixtures("appliance")
def test_a_volume_that_runs_full_is_logged_and_set_and_taken_back(tmp_path: Path) -> None:
    log, conf = tmp_path / "watch.log", tmp_path / "status.conf"
    conf.write_text("# status\n[other]\nk = v\n")
    assert watch(log, conf, 2 << 20, 0).wait(60) == 0
    assert dict(korvex.read(conf)["full volumes"]) == {"Music": "1048576", "Public": "1048576"}
    assert logged(log)[0] == "WARNING volume_watch: Music runs full: 1048576 bytes are free"

    assert watch(log, conf, 2 << 20, 0).wait(60) == 0
    assert len(logged(log)) == 2  # once is enough
    assert watch(log, conf, 1, 0).wait(60) == 0
    assert logged(log)[2] == "INFO volume_watch: Music has room again"
    assert dict(korvex.read(conf)["full volumes"]) == {} and korvex.get(conf, "other", "k") == "v"


def test_it_goes_on_after_a_failure_and_ends_by_a_signal(tmp_path: Path) -> None:
    log = tmp_path / "watch.log"
    other = watch(log, tmp_path / "none" / "status.conf", 1, 3600)
    until(lambda: logged(log), "the failure")
    assert "none" in logged(log)[0] and logged(log)[0].startswith("ERROR volume_watch: ")
    other.send_signal(signal.SIGTERM)
    assert other.wait(60) == 0
    assert other.stderr is not None
    assert other.stderr.read() == ""
    other.stderr.close()


def test_without_arguments_it_says_how_it_is_used() -> None:
    other = watch()
    assert other.communicate(timeout=60)[1].lstrip().startswith("Watches the shares")
    assert other.returncode == 2
