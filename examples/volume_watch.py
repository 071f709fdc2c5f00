#!/usr/bin/python3
"""Watches the shares of an appliance: a volume that runs full is logged, and a key tells the web interface.

Usage: volume_watch.py LOG CONFIGURATION [LIMIT [SECONDS]]

LIMIT is the free space in bytes below which a volume counts as full (1 GiB), SECONDS the time between two looks (60; 0
looks once). Ends by SIGTERM or Ctrl-C. When a volume was cleaned up, that is logged, too, and the key is removed.
"""

import logging
import signal
import sys
import threading
from pathlib import Path

import korvex

SECTION = "full volumes"


def look(configuration: Path, limit: int, logger: logging.Logger) -> None:
    """Compares what is full with what the configuration says, and changes that in one step."""
    free = {share.name: share.free_bytes for share in korvex.shares()}
    with korvex.edit(configuration) as conf:
        known = conf[SECTION]
        for name in list(known):
            if free.get(name, 0) >= limit or name not in free:
                logger.info("%s has room again", name)
                del known[name]
        for name, space in free.items():
            if space < limit and name not in known:
                logger.warning("%s runs full: %d bytes are free", name, space)
                known[name] = space


def main() -> int:
    """Looks again and again until it is told to stop."""
    if not 3 <= len(sys.argv) <= 5:
        print(__doc__, file=sys.stderr)
        return 2
    log, configuration = Path(sys.argv[1]).absolute(), Path(sys.argv[2])
    limit = int(sys.argv[3]) if len(sys.argv) > 3 else 1 << 30
    pause = float(sys.argv[4]) if len(sys.argv) > 4 else 60.0

    logger = logging.getLogger("volume_watch")
    logger.setLevel(logging.INFO)
    logger.addHandler(korvex.LogHandler(log))
    stop = threading.Event()
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, lambda *_: stop.set())

    with korvex.library_messages(logger):
        while not stop.is_set():
            try:
                look(configuration, limit, logger)
            except korvex.Error as failure:
                # The next look may go better: a lock that somebody held too long, a disk that is full.
                logger.error("%s", failure)
            if pause == 0 or stop.wait(pause):
                break
    return 0


if __name__ == "__main__":
    sys.exit(main())
