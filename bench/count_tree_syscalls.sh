#!/bin/sh
# bench/count_tree_syscalls.sh BUILD_DIR: the system calls of measuring, copying and removing a tree of 100 folders with
# 100 files each, and of copying a file of 64 MiB, each side counted by strace.
set -eu
if [ $# -ne 1 ]; then
    echo "usage: $0 BUILD_DIR" >&2
    exit 2
fi
bench=$1/bench/tree_bench
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# counted TITLE COMMAND...: the calls that the job repeats, the most frequent first; what is called less than 10 times
# belongs to starting up.
counted() {
    title=$1
    shift
    strace -c -U calls,errors,syscall -S calls -o "$folder/trace" "$@" > "$folder/output"
    echo "== $title: $(awk '$1 ~ /^[0-9]+$/ && $NF != "total" && $1 >= 10 {
        printf "%s%s %s", separator, $1, $NF; separator = ", " }' "$folder/trace")"
}

"$bench" make "$folder/tree" 100
"$bench" make "$folder/second" 100
head -c 64M /dev/zero > "$folder/large"

counted "measure, korvex" "$bench" measure "$folder/tree" ""
counted "measure, du -s" du -s "$folder/tree"
counted "copy, korvex" "$bench" copy "$folder/tree" "$folder/copy"
counted "copy, cp -a" cp -a --no-preserve=xattr,context --reflink=never "$folder/tree" "$folder/other"
counted "remove, korvex" "$bench" remove "$folder/tree" ""
counted "remove, rm -rf" rm -rf "$folder/second"
counted "64 MiB, copy-file" "$bench" copy-file "$folder/large" "$folder/large.copy"
counted "64 MiB, bare loop" "$bench" bare-copy "$folder/large" "$folder/large.bare"
