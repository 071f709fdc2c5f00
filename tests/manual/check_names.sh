#!/bin/sh
# Installs the manual pages and looks each exported name up among them: there is a page of its name, and the page that
# it leads to describes it.
# Usage: check_names.sh BUILD_DIR SOURCE_DIR
set -eu
build=$1
source=$2
command -v man >/dev/null || {
  echo "skipped: there is no man"
  exit 77
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build/man" --prefix "$work" >/dev/null
pages=$(dirname "$(find "$work" -type d -name man3)")

sed -n '/global:/,/local:/ s/^ *\([A-Za-z_0-9]*\);$/\1/p' "$source/lib/exports.map" >"$work/names"
failed=0
while read -r name; do
  if ! target=$(sed -n 's/^\.so man3\///p' "$pages/man3/$name.3") || [ -z "$target" ]; then
    echo "$name has no page"
    failed=1
    continue
  fi
  case $name in
    g_*)
      grep -q "^\.Vt .*[* ]${name}[[;]" "$pages/man3/$target" && grep -q "^\.It Va $name$" "$pages/man3/$target"
      ;;
    *)
      grep -q "^\.Fo $name$" "$pages/man3/$target" && grep -q "^\.Ss $name$" "$pages/man3/$target"
      ;;
  esac || {
    echo "$target does not describe $name"
    failed=1
  }
done <"$work/names"

# As a user asks for it.
MANWIDTH=80 LC_ALL=C.UTF-8 man -M "$pages" Get_File_Lock >"$work/text"
grep -q 'Takes the held lock of a path, /var/lock/_BASE.lck' "$work/text" || {
  echo "man Get_File_Lock does not show it"
  failed=1
}
for page in "1 korvex" "7 korvex_util" "3 korvex_links"; do
  # shellcheck disable=SC2086 # section and name
  man -M "$pages" -w $page >/dev/null || failed=1
done
echo "$(wc -l <"$work/names") names"
exit $failed
