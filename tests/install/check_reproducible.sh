#!/bin/sh
# Checks that what is installed depends on the sources alone: they are built once more in a folder of another name, and
# every installed file must have the same bytes. The first build is not made here, so that it is not made twice.
# Usage: check_reproducible.sh SOURCE_DIR BUILD_DIR
# BUILD_DIR is where the preset "shipped" was built.
set -eu
source=$(realpath "$1")
build=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

copy="$work/a folder of quite another name"
mkdir "$copy"
tar -C "$source" --exclude=./build --exclude=./.git -cf - . | tar -C "$copy" -xf -
(cd "$copy" && cmake --preset shipped >/dev/null && cmake --build --preset shipped) >"$work/log" 2>&1 ||
  { tail -n 40 "$work/log" && exit 1; }
cmake --install "$build" --strip --prefix "$work/here" >/dev/null
cmake --install "$copy/build/shipped" --strip --prefix "$work/there" >/dev/null

files=$(find "$work/here" -type f | wc -l)
[ "$files" -gt 10 ] || { echo "FAILED: only $files files are installed" && exit 1; }
diff -r "$work/here" "$work/there" || { echo "FAILED: two builds in two folders differ" && exit 1; }
if grep -rlF -e "$source" -e "$copy" "$work/here" "$work/there"; then
  echo "FAILED: these tell where they were built"
  exit 1
fi
echo "ok: $files files, the same from two folders"
