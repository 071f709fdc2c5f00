#!/bin/sh
# bench/count_syscalls.sh BUILD_DIR: the system calls of setting one key in a 10 KB file, of one log line, of one lock
# and its release, and of getting one key, each in full and counted.
set -eu
if [ $# -ne 1 ]; then
    echo "usage: $0 BUILD_DIR" >&2
    exit 2
fi
trace=$(mktemp)
trap 'rm -f "$trace"' EXIT

for call in set log lock get; do
    strace -s 32 -o "$trace" "$1/bench/one_call" "$call"
    sed -n '/korvex-begin/,/korvex-end/p' "$trace" | sed '1d;$d' > "$trace.calls"
    echo "== $call: $(wc -l < "$trace.calls") system calls ($(sed 's/(.*//' "$trace.calls" | sort | uniq -c |
        awk '{ printf "%s%s %s", separator, $1, $2; separator = ", " }'))"
    cat "$trace.calls"
    echo
done
rm -f "$trace.calls"
