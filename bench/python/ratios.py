#!/usr/bin/env python3
"""What a get, a set and a log line cost in Python, beside configparser and logging.FileHandler; all in one run.

Usage: ratios.py [ROUNDS]

Both sides of a row do the same to the same file, a configuration of 40 sections with 10 keys each, or a log. Rounds take
turns, and the median of each side counts. configparser loses comments, takes no lock, and leaves a cut file where it is
killed; the row "set, durable" has no peer in it, and is beside a write with fsync and rename.
"""

import configparser
import logging
import os
import statistics
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

import korvex

TEXT = "".join(f"[section{s}]\n" + "".join(f"key{k} = value {k}\n" for k in range(10)) + "\n" for s in range(40))


def parsed(path: Path) -> configparser.ConfigParser:
    """The file, as configparser reads it."""
    parser = configparser.ConfigParser(interpolation=None)
    parser.read(path)
    return parser


def peer_set(path: Path, value: str) -> None:
    """As most scripts do it."""
    parser = parsed(path)
    parser["section20"]["key5"] = value
    with open(path, "w") as file:
        parser.write(file)


def peer_durable_set(path: Path, value: str) -> None:
    """As a careful script does it; still without a lock, owner and attributes."""
    parser = parsed(path)
    parser["section20"]["key5"] = value
    with open(f"{path}.new", "w") as file:
        parser.write(file)
        file.flush()
        os.fsync(file.fileno())
    os.rename(f"{path}.new", path)
    folder = os.open(path.parent, os.O_RDONLY)
    os.fsync(folder)
    os.close(folder)


def cost(work: Callable[[int], object], times: int) -> float:
    """Microseconds of one call."""
    begin = time.perf_counter()
    for number in range(times):
        work(number)
    return (time.perf_counter() - begin) / times * 1e6


def logger_with(handler: logging.Handler) -> logging.Logger:
    """A logger of its own, with one handler."""
    logger = logging.Logger("bench")
    logger.addHandler(handler)
    return logger


def main() -> None:
    """Prints a row for each pair."""
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 15
    with tempfile.TemporaryDirectory() as folder:
        ours, theirs = Path(folder, "ours.conf"), Path(folder, "theirs.conf")
        ours.write_text(TEXT)
        theirs.write_text(TEXT)
        plain = logging.FileHandler(Path(folder, "theirs.log"))
        plain.setFormatter(logging.Formatter("[%(asctime)s] %(levelname)s %(name)s: %(message)s", "%Y-%m-%d %H:%M:%S"))
        their_log, handler = logger_with(plain), korvex.LogHandler(Path(folder, "ours.log"))
        our_log, log = logger_with(handler), korvex.Log(Path(folder, "lines.log"))
        rows: dict[str, tuple[Callable[[int], object], Callable[[int], object], int]] = {
            "get of one key": (
                lambda _: korvex.get(ours, "section20", "key5"),
                lambda _: parsed(theirs)["section20"]["key5"],
                30,
            ),
            "read of the whole file": (lambda _: korvex.read(ours), lambda _: parsed(theirs), 30),
            "set of one key": (
                lambda n: korvex.set(ours, "section20", "key5", n, durable=False),
                lambda n: peer_set(theirs, str(n)),
                20,
            ),
            "set, durable": (
                lambda n: korvex.set(ours, "section20", "key5", -n - 1),
                lambda n: peer_durable_set(theirs, str(n)),
                10,
            ),
            "log line through logging": (
                lambda n: our_log.warning("disk %d is full", n),
                lambda n: their_log.warning("disk %d is full", n),
                1000,
            ),
            "log line, Log.write": (
                lambda n: log.write(f"disk {n} is full"),
                lambda n: their_log.warning("disk %d is full", n),
                1000,
            ),
        }
        print(f"{'':26} {'korvex':>10} {'peer':>10} {'ratio':>7}   microseconds; configparser, FileHandler")
        for name, (our, their, times) in rows.items():
            pairs = [(cost(our, times), cost(their, times)) for _ in range(rounds)]
            mine = statistics.median(pair[0] for pair in pairs)
            peer = statistics.median(pair[1] for pair in pairs)
            print(f"{name:26} {mine:10.1f} {peer:10.1f} {mine / peer:7.3f}")
        log.close()
        handler.close()
        plain.close()


if __name__ == "__main__":
    main()
