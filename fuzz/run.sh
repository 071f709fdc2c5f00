#!/bin/sh
# fuzz/run.sh SECONDS BUILD_DIR: runs every fuzz target for SECONDS, as many at once as there are processors, and
# prints a line for each. The result is non-zero where one found something.
set -eu
if [ $# -ne 2 ]; then
    echo "usage: $0 SECONDS BUILD_DIR" >&2
    exit 2
fi
printf '%s\n' parse_cache parse_stream key_reader key_editor netmask if_list addresses |
    xargs -P "$(nproc)" -I '{}' "$(dirname "$0")/run_target.sh" '{}' "$1" "$2"
