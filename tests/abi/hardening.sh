# What the shared object and the tool have in common: how they are hardened. Sourced by check_object.sh and
# check_program.sh, which set `object`, `fortified` and `failed`.
# shellcheck shell=sh disable=SC2034,SC2154 # those are the sourcing script's

# expect TEXT EXPECTED ACTUAL
expect() {
  if [ "$2" = "$3" ]; then
    echo "ok: $1: $3"
  else
    echo "FAILED: $1: expected '$2', got '$3'"
    failed=1
  fi
}

# at_least TEXT LEAST ACTUAL
at_least() {
  if [ "$3" -ge "$2" ]; then
    echo "ok: $1: $3"
  else
    echo "FAILED: $1: $3, expected at least $2"
    failed=1
  fi
}

check_hardening() {
  dynamic=$(readelf -dW "$object")
  segments=$(readelf -lW "$object")
  undefined=$(nm -D --undefined-only "$object" | awk '{ sub(/@.*/, "", $2); print $2 }')
  expect "bound at load time" 1 "$(echo "$dynamic" | grep -c 'FLAGS.*BIND_NOW')"
  expect "text relocations" 0 "$(echo "$dynamic" | grep -c TEXTREL || true)"
  expect "read-only after relocation" 1 "$(echo "$segments" | grep -c GNU_RELRO)"
  expect "flags of the stack's segment" RW "$(echo "$segments" | awk '$1 == "GNU_STACK" { print $7 }')"
  expect "writable and executable segments" 0 "$(echo "$segments" | grep -Ec ' (RWE|WE) ' || true)"
  expect "stack protector" __stack_chk_fail "$(echo "$undefined" | grep -x __stack_chk_fail || true)"

  if [ "$fortified" = fortified ]; then
    checked=$(echo "$undefined" | sed -n 's/^__\(.*\)_chk$/\1/p')
    at_least "functions of libc that are called with sizes to check" 2 "$(echo "$checked" | wc -w)"
    echo "fortified: $(echo "$checked" | xargs)"
  else
    echo "fortified calls: not asked for in this build"
  fi

  if readelf -hW "$object" | grep -q 'Machine:.*X86-64'; then
    check_code
  else
    echo "ATTENTION: stack-clash and control-flow protection are looked at on x86-64 alone"
  fi
}

check_code() {
  code=$(objdump -d --no-show-raw-insn "$object")
  # A large frame is taken page by page, and each page is touched.
  # shellcheck disable=SC2016 # a dollar of the assembler
  at_least "places where the stack grows by pages that are touched" 1 "$(echo "$code" | grep -Ec '\<or[lq]? +\$0x0,.*\(%rsp')"
  at_least "places where indirect jumps may land" 150 "$(echo "$code" | grep -c 'endbr64')"
  # The mark of the whole is the linker's, who gives it only where the compiler's own start files have it, too.
  echo "control-flow protection by note: $(readelf -nW "$object" | sed -n 's/.*x86 feature: //p' | grep . || echo none)"
}
