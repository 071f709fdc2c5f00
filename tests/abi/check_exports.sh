#!/bin/sh
# Compares what the shared object exports with the version script, with the public headers, with the C program that
# checks the interface and with the list of the Debian package: all five must name the same functions and globals.
# Usage: check_exports.sh SHARED_OBJECT SOURCE_DIR
set -eu
object=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

nm -D --defined-only "$object" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort >"$work/object"
sed -n '/global:/,/local:/ s/^ *\([A-Za-z_0-9]*\);$/\1/p' "$source/lib/exports.map" | sort >"$work/map"
# A declaration is `KORVEX_API type Name(` or `extern KORVEX_API type name;`.
cat "$source"/include/*.h |
  sed -n -e 's/^KORVEX_API [^(]*[ *]\([A-Za-z_0-9]*\)(.*/\1/p' -e 's/^extern KORVEX_API .*[ *]\([A-Za-z_0-9]*\)\(\[[0-9]*\]\)*;.*/\1/p' |
  sort >"$work/headers"
sed -n '/^#define FUNCTIONS/,/^\/\* record/ s/^    X(\([A-Za-z_0-9]*\),.*/\1/p' "$source/tests/abi/abi_contract.c" |
  sort >"$work/contract"
sed -n 's/^ \([A-Za-z_0-9]*\)@.*/\1/p' "$source/debian/libkorvex-util1.symbols" | grep -v '^KORVEX_UTIL_' |
  sort >"$work/package"

failed=0
for list in map headers contract package; do
  if ! diff -u "$work/object" "$work/$list" >"$work/diff"; then
    echo "the object's exports and the $list differ:"
    cat "$work/diff"
    failed=1
  fi
done
versions=$(nm -D --defined-only "$object" | awk '$2 != "A" { sub(/.*@/, "", $3); print $3 }' | sort -u)
blocks=$(sed -n 's/^\(KORVEX_UTIL_[0-9.]*\) {$/\1/p' "$source/lib/exports.map" | sort -u)
if [ "$versions" != "$blocks" ]; then
  echo "symbol versions: $versions, not those of the map: $blocks"
  failed=1
fi
echo "$(wc -l <"$work/object") names exported"
exit $failed
