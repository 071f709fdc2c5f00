#!/bin/sh
# Checks how the shared object is linked: its name, its one dependency, and its hardening.
# Usage: check_object.sh SHARED_OBJECT [fortified]
# "fortified": libc's checked functions must be called, as a release does.
set -eu
object=$1
fortified=${2:-}
failed=0
# shellcheck source=tests/abi/hardening.sh
. "$(dirname "$0")/hardening.sh"

check_hardening
expect "needed libraries" libc.so.6 "$(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | xargs)"
expect "SONAME" libkorvex_util.so.1 "$(echo "$dynamic" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
expect "symbolic binding" 0 "$(echo "$dynamic" | grep -c SYMBOLIC || true)"
# __cxa_finalize is libc's own.
expect "names of the C++ runtime" "" \
  "$(echo "$undefined" | grep -E '^(_Z|__cxa_|__gxx)' | grep -vx __cxa_finalize | xargs)"

if [ "$fortified" = fortified ]; then
  # The compiler leaves a call plain where it sees that the sizes fit, and has to where it does not know the object's
  # size. A format may always hold a surprise, so that printing into a stream is never left plain.
  plain=$(echo "$undefined" | grep -E '^(v?f?printf|v?sprintf|v?dprintf|v?asprintf|gets|realpath)$' || true)
  expect "calls left plain" "" "$(echo "$plain" | xargs)"
fi
exit $failed
