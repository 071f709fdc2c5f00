#!/bin/sh
# Writes down the binary interface of a built shared object: what it exports, with the types of the public headers. What
# belongs to one machine or one build (paths, lines, names of parameters) is left out. `./run abi` makes the file that
# the test "abi: unchanged" compares with. The object must be built with debug information and without link-time
# optimisation, under which abidw does not see the types of the globals.
# Usage: dump.sh SHARED_OBJECT SOURCE_DIR OUTPUT
set -eu
object=$1
source=$(cd "$2" && pwd)
output=$3

abidw --headers-dir "$source/include" --drop-private-types --exported-interfaces-only --drop-undefined-syms \
  --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names --type-id-style hash \
  --out-file "$output" "$object"
sed -i -e "s|path='$source/|path='|" -e "s|comp-dir-path='[^']*' ||" "$output"
if grep -n "='/" "$output" >&2; then
  echo "$output names a path of this machine" >&2
  exit 1
fi

# count KIND: how many of the exported names are described with their types.
count() { grep "<$1-decl" "$output" | grep -o "elf-symbol-id='[^']*'" | sort -u | wc -l; }
names=$(grep -c '^    [A-Za-z_0-9]*;$' "$source/lib/exports.map")
echo "$output: $(count function) functions, $(count var) globals"
[ $(($(count function) + $(count var))) = "$names" ] || { echo "there should be $names" >&2 && exit 1; }
