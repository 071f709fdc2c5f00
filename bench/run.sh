#!/usr/bin/env bash
# bench/run.sh BUILD_DIR [FILTER]: the benchmarks whose name contains FILTER (all without one), one after the other, and
# how long each took. Where KORVEX_BENCH_TIMES names a file, the times go there, too.
set -euo pipefail
if (($# < 1)); then
    echo "usage: $0 BUILD_DIR [FILTER]" >&2
    exit 2
fi
build=$1 filter=${2:-}
names=(conf_bench conf_scale_bench lock_bench tree_bench socket_bench queue_bench tracer_bench sysinfo_bench log_bench
    cpp_bench load_bench count_syscalls count_tree_syscalls count_network_syscalls count_sysinfo_syscalls)
times=$(mktemp)
trap 'rm -f "$times"' EXIT

for name in "${names[@]}"; do
    [[ $name == *"$filter"* ]] || continue
    case $name in
        count_*) program=$(dirname "$0")/$name.sh arguments=("$build") ;;
        *) program=$build/bench/$name arguments=() ;;
    esac
    echo "==== $name"
    TIMEFORMAT="$name,%R,%U,%S"
    # What the program itself says on standard error stays there.
    { time "$program" "${arguments[@]}" 2>&3; } 3>&2 2>>"$times"
done

[[ -s $times ]] || { echo "no benchmark has '$filter' in its name: ${names[*]}" >&2 && exit 2; }

echo "==== seconds: elapsed, of processor time in user mode and in the kernel"
awk -F, '{ printf "%-24s %8s %8s %8s\n", $1, $2, $3, $4 }' "$times"
[[ -z ${KORVEX_BENCH_TIMES:-} ]] || cp "$times" "$KORVEX_BENCH_TIMES"
