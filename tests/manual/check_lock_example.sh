#!/bin/sh
# Runs the shell example of korvex_util(7): what it makes is a lock for the library, and it waits for the library's.
# Usage: check_lock_example.sh PAGE KORVEX
set -eu
page=$1
korvex=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The block behind the heading "Example", as roff shows it.
sed -n '/^\.Ss Example$/,/^\.Ed$/p' "$page" | sed -e '1,/^\.Bd/d' -e '/^\.Ed$/d' -e 's/\\(aq/'"'"'/g' -e 's/\\-/-/g' \
  -e 's/\\e/\\/g' >"$work/example"
grep -q '^# \.\.\. change smb.conf \.\.\.$' "$work/example"

# In the place of the change: what the library says of the lock.
# shellcheck disable=SC2016 # for the shell that runs the example
sed 's/^# \.\.\. change .*/echo "$$"; "$KORVEX" lock --status smb.conf/' "$work/example" >"$work/holder"
# The same with a shorter time-out, for the lock of somebody else.
sed 's/10000/20/' "$work/holder" >"$work/waiter"

cat >"$work/steps" <<STEPS
mount -t tmpfs korvex-test /var/lock
export KORVEX="$korvex"
sh "$work/holder" >"$work/held"
"$korvex" lock --status smb.conf >"$work/after"
"$korvex" lock smb.conf -- sh "$work/waiter" >"$work/refused" && echo "took a lock that was held" >&2
"$korvex" lock --status smb.conf >>"$work/after"
STEPS
if [ "$(id -u)" = 0 ]; then private="unshare -m"; else private="unshare -rm"; fi
$private sh -e "$work/steps"

cat "$work/held"
pid=$(sed -n 1p "$work/held")
sed -n 2p "$work/held" | grep -Eqx "held pid $pid age [0-9]+ ms"
[ "$(cat "$work/after")" = "free
free" ]
[ ! -s "$work/refused" ]
