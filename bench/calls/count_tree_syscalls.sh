#!/bin/sh
# bench/count_tree_syscalls.sh BUILD_DIR: the system calls of measuring, copying and removing a tree of 100 folders with
# 100 files each, and of copying a file of 64 MiB, each side counted by strace.
set -eu
if [ $# -ne 1 ]; then
    echo "usage: $0 BUILD_DIR" >&2
    exit 2
fi
# shellcheck source-path=SCRIPTDIR source=calls.sh
. "$(dirname "$0")/calls.sh"
bench=$1/bench/tree_bench
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# counted JOB SIDE COMMAND...: the calls that the job repeats for each folder or file, the most frequent first. Starting
# up is in them with a few dozen: the loader looks for each object in many folders.
counted() {
    job=$1 side=$2
    shift 2
    strace -c -U calls,errors,syscall -S calls -o "$folder/trace" "$@" > "$folder/output"
    echo "== $job, $side: $(awk '$1 ~ /^[0-9]+$/ && $NF != "total" && $1 >= 100 { print $1, $NF }' "$folder/trace" |
        keep trees "$job" "$side" | joined)"
}

"$bench" make "$folder/tree" 100
"$bench" make "$folder/second" 100
head -c 64M /dev/zero > "$folder/large"

tree="100 folders of 100 files"
counted "measure $tree" korvex "$bench" measure "$folder/tree" ""
counted "measure $tree" "du -s" du -s "$folder/tree"
counted "copy $tree" korvex "$bench" copy "$folder/tree" "$folder/copy"
counted "copy $tree" "cp -a" cp -a --no-preserve=xattr,context --reflink=never "$folder/tree" "$folder/other"
counted "remove $tree" korvex "$bench" remove "$folder/tree" ""
counted "remove $tree" "rm -rf" rm -rf "$folder/second"
counted "copy 64 MiB, Copy_File" korvex "$bench" copy-file "$folder/large" "$folder/large.copy"
counted "copy 64 MiB, Copy_File" "bare read and write of 32 KiB" "$bench" bare-copy "$folder/large" "$folder/large.bare"
