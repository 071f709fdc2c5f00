#!/bin/sh
# Checks that the first program of a page, in C, says what happened where its file is not there, and makes none.
# Usage: check_missing_file.sh PAGE FLAG...    FLAG: for the compiler, which CC names
set -eu
page=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

fail() {
  echo "FAILED: $1" >&2
  exit 1
}

awk '/^```c$/ { inside = 1; next } /^```$/ && inside { exit } inside' "$page" >"$folder/first.c"
"$CC" -std=gnu11 "$folder/first.c" -o "$folder/first" "$@"
cd "$folder"
status=0
./first 2>output || status=$?
[ $status = 1 ] || fail "its exit status is $status"
[ "$(cat output)" = "can't read smb.conf: No such file or directory" ] || fail "it says '$(cat output)'"
[ ! -e smb.conf ] || fail "it made the file"
echo "it says so, and makes none"
