#!/bin/sh
# bench/count_syscalls.sh BUILD_DIR: the system calls of setting one key in a 10 KB file, of one log line, of one lock
# and its release, and of getting one key, each in full and counted.
set -eu
if [ $# -ne 1 ]; then
    echo "usage: $0 BUILD_DIR" >&2
    exit 2
fi
# shellcheck source-path=SCRIPTDIR source=calls.sh
. "$(dirname "$0")/calls.sh"
trace=$(mktemp)
trap 'rm -f "$trace" "$trace.calls"' EXIT

# counted BUILD_DIR FAMILY CALL JOB
counted() {
    strace -s 32 -o "$trace" "$1/bench/one_call" "$3"
    between_marks "$trace" > "$trace.calls"
    echo "== $4: $(wc -l < "$trace.calls") system calls ($(tally "$trace.calls" | keep "$2" "$4" korvex | joined))"
    cat "$trace.calls"
    echo
}

counted "$1" conf set "set a key in 10 KB"
counted "$1" conf get "get a key"
counted "$1" locks lock "Get_File_Lock and Release_File_Lock"
# Without TZ there is the look at /etc/localtime, too.
(unset TZ && counted "$1" log log "log line, TZ not set")
(TZ=UTC && export TZ && counted "$1" log log "log line, TZ set")
