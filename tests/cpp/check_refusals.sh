#!/bin/sh
# A snippet compiles as it stands, and does not with each of its mistakes: lines between `#ifdef MISTAKE_n` and #endif, n
# from 1. The comment at the mistake, "// error: TEXT", says a part of what a compiler must answer, so that no other
# mistake passes for this one; "TEXT | TEXT" where the compilers have different words.
# Usage: check_refusals.sh SOURCE_DIR SNIPPET COMPILER...
set -eu
source=$1
snippet=$2
shift 2
mistakes=$(grep -c '^#ifdef MISTAKE_' "$snippet")
[ "$mistakes" -gt 0 ]
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for compiler in "$@"; do
  compile() { "$compiler" -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I "$source/include" "$@" "$snippet"; }
  compile
  number=1
  while [ "$number" -le "$mistakes" ]; do
    expected=$(sed -n "/^#ifdef MISTAKE_$number\$/,/^#endif/s,.*// error: ,,p" "$snippet")
    [ -n "$expected" ] || { echo "FAILED: mistake $number of $snippet says no error" && exit 1; }
    if compile "-DMISTAKE_$number" 2>"$work/errors"; then
      echo "FAILED: $compiler lets mistake $number of $snippet pass" && exit 1
    fi
    pattern=$(printf '%s' "$expected" | sed 's/ | /|/g')
    grep -qE "$pattern" "$work/errors" ||
      { echo "FAILED: $compiler does not say '$expected' about mistake $number:" && cat "$work/errors" && exit 1; }
    number=$((number + 1))
  done
  echo "$compiler: refuses $mistakes"
done
