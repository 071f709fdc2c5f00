#!/bin/sh
# Compares a shared object with the binary interface that was written down, and fails on any difference, also on one
# that abidiff takes for harmless: a program that was linked to the release must never notice.
# Usage: check_abi.sh ABI_FILE SHARED_OBJECT
set -eu
file=$1
object=$2

# abidiff passes an object without debug information, of which it sees the names alone.
readelf -SW "$object" | grep -q ' \.debug_info ' || { echo "$object has no debug information" >&2 && exit 1; }

# Not restricted to types of the public headers again: abidiff would pass over all types of a file without places.
if abidiff --fail-no-debug-info --harmless --redundant --no-show-locs "$file" "$object"; then
  echo "ok: no difference to $file"
else
  echo "FAILED: the binary interface differs from $file" >&2
  exit 1
fi
