#!/bin/sh
# bench/count_sysinfo_syscalls.sh BUILD_DIR: the system calls of searching 200 processes for a name, counted, and those
# for one process in full, in a space of process numbers of its own.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 BUILD_DIR" >&2
    exit 2
fi
if [ "${2:-}" != inside ]; then
    [ "$(id -u)" = 0 ] || exec unshare --map-root-user --pid --fork --mount-proc "$0" "$1" inside
    exec unshare --pid --fork --mount-proc "$0" "$1" inside
fi
# shellcheck source-path=SCRIPTDIR source=calls.sh
. "$(dirname "$0")/calls.sh"
trace=$(mktemp)
trap 'rm -f "$trace" "$trace.calls"' EXIT

# They end with this shell, which is process 1 here.
for _ in $(seq 200); do
    sleep 3600 &
    last=$!
done

strace -s 16 -o "$trace" "$1/bench/one_call" processes > "$trace.calls"
found=$(tail -n 1 "$trace.calls")
between_marks "$trace" > "$trace.calls"
job="search $(grep -c '^newfstatat([0-9]*, "[0-9][0-9]*"' "$trace.calls") processes"
echo "== $job, $found: $(wc -l < "$trace.calls") system calls ($(
    tally "$trace.calls" | keep sysinfo "$job" korvex | joined))"
sed -n "/^newfstatat([0-9]*, \"$last\"/,/^close/p" "$trace.calls"
