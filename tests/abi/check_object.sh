#!/bin/sh
# Checks how the shared object is linked: its name, its one dependency, and its hardening.
# Usage: check_object.sh SHARED_OBJECT [fortified]
# "fortified": libc's checked functions must be called, as a release does.
set -eu
object=$1
fortified=${2:-}
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
expect "flags of the stack's segment" RW "$(echo "$segments" | awk '$1 == "GNU_STACK" { print $7 }')"
expect "writable and executable segments" 0 "$(echo "$segments" | grep -Ec ' (RWE|WE) ' || true)"
undefined=$(nm -D --undefined-only "$object" | awk '{ sub(/@.*/, "", $2); print $2 }')
# __cxa_finalize is libc's own.
expect "names of the C++ runtime" "" \
  "$(echo "$undefined" | grep -E '^(_Z|__cxa_|__gxx)' | grep -vx __cxa_finalize | xargs)"
expect "stack protector" __stack_chk_fail "$(echo "$undefined" | grep -x __stack_chk_fail || true)"

if [ "$fortified" = fortified ]; then
  checked=$(echo "$undefined" | sed -n 's/^__\(.*\)_chk$/\1/p')
  expect "some calls are fortified" yes "$([ -n "$checked" ] && echo yes || echo no)"
  echo "fortified: $(echo "$checked" | xargs)"
  # The compiler leaves a call plain where it sees that the sizes fit, and has to where it does not know the object's
  # size. A format may always hold a surprise, so that printing into a stream is never left plain.
  plain=$(echo "$undefined" | grep -E '^(v?f?printf|v?sprintf|v?dprintf|v?asprintf|gets|realpath)$' || true)
  expect "calls left plain" "" "$(echo "$plain" | xargs)"
else
  echo "fortified calls: not asked for in this build"
fi

# The linker notes control-flow protection only where every part of the object has it.
control_flow=$(readelf -nW "$object" | sed -n 's/.*x86 feature: //p')
if [ -n "$control_flow" ]; then
  expect "control-flow protection" "IBT, SHSTK" "$control_flow"
else
  echo "control-flow protection: not in this build"
fi
exit $failed
