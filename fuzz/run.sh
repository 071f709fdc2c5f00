#!/bin/sh
# fuzz/run.sh SECONDS BUILD_DIR: runs every fuzz target for SECONDS, as many at once as there are processors, and
# prints a line for each. The result is non-zero where one found something.
set -eu
if [ $# -ne 2 ]; then
    echo "usage: $0 SECONDS BUILD_DIR" >&2
    exit 2
fi
here=$(dirname "$0")
# Each target has a folder of its name among the corpora, as the replay of them wants it.
(cd "$here/corpus" && printf '%s\n' *) |
    xargs -P "$(nproc)" -I '{}' "$here/run_target.sh" '{}' "$1" "$2"
