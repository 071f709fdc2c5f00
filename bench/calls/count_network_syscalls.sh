#!/bin/sh
# bench/count_network_syscalls.sh BUILD_DIR: the system calls of listing 18 interfaces with an IPv4 and an IPv6 address
# each, in a network namespace of their own, in full and counted.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 BUILD_DIR" >&2
    exit 2
fi
if [ "${2:-}" != inside ]; then
    [ "$(id -u)" = 0 ] || exec unshare --map-root-user --net "$0" "$1" inside
    exec unshare --net "$0" "$1" inside
fi
# shellcheck source-path=SCRIPTDIR source=calls.sh
. "$(dirname "$0")/calls.sh"
trace=$(mktemp)
trap 'rm -f "$trace" "$trace.calls"' EXIT

ip link set lo up
for number in $(seq 17); do
    ip link add "net$number" type bridge
    ip address add "10.1.$number.1/24" dev "net$number"
    ip address add "fd00:0:0:$number::1/64" dev "net$number" nodad
    ip link set "net$number" up
done

strace -s 16 -o "$trace" "$1/bench/one_call" interfaces > "$trace.calls"
job="list $(tail -n 1 "$trace.calls")"
between_marks "$trace" > "$trace.calls"
echo "== $job: $(wc -l < "$trace.calls") system calls ($(tally "$trace.calls" | keep socket "$job" korvex | joined); $(
    sed -n 's/^ioctl([0-9]*, \([A-Z]*\),.*/\1/p' "$trace.calls" | sort | uniq -c | joined))"
cut -c -140 "$trace.calls"
