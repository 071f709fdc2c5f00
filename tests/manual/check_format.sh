#!/bin/sh
# Formats every manual page as man and groff do, and has it looked at by mandoc: none of them may complain.
# Usage: check_format.sh MAN_DIR
set -eu
man_dir=$1
for tool in man groff mandoc; do
  command -v "$tool" >/dev/null || {
    echo "skipped: there is no $tool"
    exit 77
  }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
pages=0
failed=0

# complain PAGE TOOL: shows what a tool said of a page, if it did.
complain() {
  [ -s "$work/said" ] || return 0
  echo "$1: $2 says:"
  cat "$work/said"
  failed=1
}

for page in "$man_dir"/man[137]/korvex*.[137]; do
  LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings=w -l "$page" >"$work/text" 2>"$work/said"
  complain "$page" man
  [ "$(wc -l <"$work/text")" -gt 100 ] || {
    echo "$page: man shows no more than $(wc -l <"$work/text") lines"
    failed=1
  }
  LC_ALL=C.UTF-8 grep -En '.{81}' "$work/text" >"$work/said" || true
  complain "$page" "a terminal of 80 columns"
  groff -ww -Tutf8 -mdoc "$page" 2>"$work/said" >/dev/null
  complain "$page" groff
  mandoc -T lint -W warning "$page" >"$work/said" 2>&1 || true
  complain "$page" mandoc
  pages=$((pages + 1))
done

echo "$pages pages"
[ "$pages" -eq 10 ] || failed=1 # korvex(1), korvex_util(7) and those of eight modules
exit $failed
