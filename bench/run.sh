#!/bin/sh
# bench/run.sh BUILD_DIR [FILTER]: the benchmarks whose name contains FILTER (all without one), one after the other.
set -eu
if [ $# -lt 1 ]; then
    echo "usage: $0 BUILD_DIR [FILTER]" >&2
    exit 2
fi
build=$1 filter=${2:-}

for name in conf_bench lock_bench log_bench conf_scale_bench tree_bench socket_bench count_syscalls \
    count_tree_syscalls count_network_syscalls; do
    case $name in
        *"$filter"*) ;;
        *) continue ;;
    esac
    echo "==== $name"
    case $name in
        count_*) "$(dirname "$0")/$name.sh" "$build" ;;
        *) "$build/bench/$name" ;;
    esac
done
