#!/bin/sh
# Checks the package, its tests and the examples by mypy --strict, and compares the stub of the module with the module.
# Usage: check_types.sh PYTHON SOURCE_DIR BUILD_DIR
set -eu
python=$1
source=$2
build=$3
cache=$(mktemp -d)
trap 'rm -rf "$cache"' EXIT
cd "$build"
export MYPYPATH="$build:$source/tests/python"
"$python" -m mypy --strict --cache-dir "$cache" -p korvex
"$python" -m mypy --strict --cache-dir "$cache" "$source"/tests/python/*.py "$source"/examples/volume_watch.py \
  "$source"/bench/python/ratios.py
"$python" -m mypy.stubtest --allowlist "$source/tests/python/stubtest_allowlist.txt" korvex._korvex
