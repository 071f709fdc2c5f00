#!/bin/sh
# fuzz/run_target.sh TARGET SECONDS BUILD_DIR: runs one fuzz target over a copy of its kept corpus.
#
# The input of a finding stays under fuzz/findings/ and makes the result non-zero: `BUILD_DIR/fuzz/fuzz_TARGET FILE`
# shows it again. Once it is understood, keep it under fuzz/corpus/TARGET, where the tests replay it.
set -eu
target=$1 seconds=$2 build=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$here/findings"
cp -r "$here/corpus/$target" "$work/corpus"

# The stream parser takes lines in pieces of 4095 bytes, so its inputs must grow beyond that.
longest=4096
[ "$target" != parse_stream ] || longest=12288

case $target in
    netmask | if_list | addresses) dictionary=network.dict ;;
    *) dictionary=conf.dict ;;
esac

verdict=ok
"$build/fuzz/fuzz_$target" "$work/corpus" -max_total_time="$seconds" -max_len=$longest -dict="$here/$dictionary" \
    -timeout=10 -print_final_stats=1 -artifact_prefix="$here/findings/$target-" > "$work/log" 2>&1 || verdict=FINDING

executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log")
edges=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$work/log" | tail -n 1)
echo "fuzz $target: ${executions:-0} executions in $seconds s, ${edges:-0} edges, $verdict"
[ $verdict = ok ] || { tail -n 60 "$work/log" >&2; exit 1; }
