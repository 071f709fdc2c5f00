#!/usr/bin/env bash
# bench/run.sh BUILD_DIR [FILTER]: the benchmarks whose name contains FILTER (all without one), one after the other, and
# how long each took. Where KORVEX_BENCH_TIMES names a file, the times go there, too. KORVEX_BENCH_ROUNDS=1 and
# KORVEX_BENCH_LARGEST=1000 make a trial short: fewer rounds, and no larger size where growth is shown.
set -euo pipefail
if (($# < 1)); then
    echo "usage: $0 BUILD_DIR [FILTER]" >&2
    exit 2
fi
build=$1 filter=${2:-}
names=(conf_bench conf_scale_bench conf_growth lock_bench lock_growth tree_bench tree_growth socket_bench queue_bench
    tracer_bench sysinfo_bench sysinfo_growth log_bench log_growth cpp_bench load_bench tool_bench
    count_syscalls count_tree_syscalls count_network_syscalls count_sysinfo_syscalls)
times=$(mktemp)
trap 'rm -f "$times"' EXIT

for name in "${names[@]}"; do
    [[ $name == *"$filter"* ]] || continue
    case $name in
        count_*) program=$(dirname "$0")/calls/$name.sh arguments=("$build") ;;
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
