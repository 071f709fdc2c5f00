#!/bin/sh
# Checks that the shared object, stripped as it is installed, is small enough for the smallest appliance.
# Usage: check_size.sh SHARED_OBJECT
set -eu
limit=153600
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT

strip --strip-unneeded -o "$stripped" "$1"
size=$(stat -c %s "$stripped")
echo "size: $size of $limit bytes"
[ "$size" -le "$limit" ] || { echo "FAILED: too large" >&2 && exit 1; }
