#!/bin/sh
# Shows that the guard of the binary interface stops what it should: small objects that define one function and one
# global are compared with the file, as the library is. What they lack is missed; the two that they have are found
# unchanged or changed, as they are.
# Usage: check_guard.sh ABI_FILE SOURCE_DIR CC
set -eu
file=$1
source=$2
cc=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/two.c" <<'C'
#include <korvex_util.h>
__typeof__(g_idLogLevel) g_idLogLevel = 1;
int32_t Query_Volume_Info_BY_Path(const char *pszPath, Volume_Info *pInfo) {
    pInfo->nPartition = pszPath != 0;
    return 0;
}
C

# object NAME [HEADER EDIT]: compiles the two against the public headers, of which one may be edited.
object() {
  cp -r "$source/include" "$work/$1"
  if [ $# -gt 1 ]; then
    sed -i "$3" "$work/$1/$2"
    ! cmp -s "$work/$1/$2" "$source/include/$2" || { echo "FAILED: the edit does not fit $2" && exit 1; }
  fi
  "$cc" -g -shared -fPIC -I "$work/$1" "$work/two.c" -o "$work/$1.so" -Wl,-soname,libkorvex_util.so.1 \
    -Wl,--version-script="$source/lib/exports.map"
}

# expect_stopped NAME TEXT...: the guard must fail on the object, and say each text.
expect_stopped() {
  name=$1
  shift
  if "$source/tests/abi/check_abi.sh" "$file" "$work/$name.so" >"$work/output" 2>&1; then
    echo "FAILED: '$name' passed"
    exit 1
  fi
  for text in "$@"; do
    grep -qF "$text" "$work/output" || { echo "FAILED: '$name' without '$text':" && cat "$work/output" && exit 1; }
    echo "ok: $name: $text"
  done
}

object missing
expect_stopped missing "168 Removed, 0 Changed, 0 Added functions" "10 Removed, 0 Changed, 0 Added variables" \
  "int32_t Link_Queue_Init("

object record sysinfo.h 's/szModel\[32\]/szModel[40]/'
expect_stopped record "168 Removed, 1 Changed, 0 Added functions" "10 Removed, 0 Changed, 0 Added variables" \
  "type size changed from 1792 to 1856 (in bits)"

object global simplog.h '/g_idLogLevel/ s/int32_t/int64_t/'
expect_stopped global "168 Removed, 0 Changed, 0 Added functions" "10 Removed, 1 Changed, 0 Added variables" \
  "int32_t g_idLogLevel"
