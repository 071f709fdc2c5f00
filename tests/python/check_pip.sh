#!/usr/bin/env bash
# Installs the package by pip, without network, in a fresh virtual environment, and uses it there.
# Usage: check_pip.sh SOURCE_DIR WORK_DIR
set -euo pipefail
source=$(realpath "$1")
work=$2
rm -rf "$work"
mkdir -p "$work"
work=$(realpath "$work")

# A copy, since pip builds where the sources are.
mkdir "$work/source"
(cd "$source" && git ls-files -z | tar --null -T - -c) | tar -x -C "$work/source"
/usr/bin/python3 -m venv --system-site-packages "$work/venv"
"$work/venv/bin/pip" install --quiet --no-build-isolation --no-index "$work/source/bindings/python"
cd "$work"
"$source/tests/python/in_own_world.sh" "$work/venv/bin/python" -c '
import sys
import korvex
assert korvex.__file__.startswith(sys.prefix), korvex.__file__
korvex.set("app.conf", "a", "b", 1)
assert korvex.get("app.conf", "a", "b") == "1"
with open("/proc/self/maps") as maps:
    libraries = {line.split()[-1] for line in maps if "libkorvex_util" in line}
assert len(libraries) == 1 and libraries.pop().startswith(sys.prefix), libraries
print("pip: korvex", korvex.__version__, "works in a virtual environment, with its own library")
'
echo "figures of the release build:"
"$source/tests/python/in_own_world.sh" "$work/venv/bin/python" "$source/bench/python/ratios.py"
"$work/venv/bin/pip" uninstall --quiet --yes korvex
! compgen -G "$work/venv/lib/python3*/site-packages/korvex" >/dev/null || { echo "pip leaves files behind" >&2 && exit 1; }
