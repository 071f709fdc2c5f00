#!/bin/sh
# Checks how the shared object is linked: its name, its one dependency, and its hardening.
# Usage: check_object.sh SHARED_OBJECT
set -eu
object=$1
failed=0

# expect TEXT EXPECTED ACTUAL
expect() {
  if [ "$2" = "$3" ]; then
    echo "ok: $1: $3"
  else
    echo "FAILED: $1: expected '$2', got '$3'"
    failed=1
  fi
}

dynamic=$(readelf -dW "$object")
segments=$(readelf -lW "$object")
expect "needed libraries" libc.so.6 "$(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | xargs)"
expect "SONAME" libkorvex_util.so.1 "$(echo "$dynamic" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
expect "bound at load time" 1 "$(echo "$dynamic" | grep -c 'FLAGS.*BIND_NOW')"
expect "text relocations" 0 "$(echo "$dynamic" | grep -c TEXTREL || true)"
expect "symbolic binding" 0 "$(echo "$dynamic" | grep -c SYMBOLIC || true)"
expect "read-only after relocation" 1 "$(echo "$segments" | grep -c GNU_RELRO)"
expect "writable and executable segments" 0 "$(echo "$segments" | grep -c 'RWE' || true)"
# __cxa_finalize is libc's own.
expect "names of the C++ runtime" "" \
  "$(nm -D --undefined-only "$object" | awk '$2 ~ /^(_Z|__cxa_|__gxx)/ && $2 !~ /^__cxa_finalize/ { print $2 }' | xargs)"
exit $failed
