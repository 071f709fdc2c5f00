#!/bin/sh
# Runs a command where it can't touch the machine's own locks, shares, volumes and settings: in a mount namespace with a root
# folder of its own. That root shows the machine's folders, but its /etc is a copy, and its /share, /var/lock, /sys/block and
# /usr/local/sbin are empty.
# Usage: in_own_world.sh COMMAND...
set -eu
if [ "${KORVEX_OWN_WORLD:-}" != yes ]; then
  if ! unshare --mount true 2>/dev/null; then
    echo "SKIPPED: this machine does not let the tests have a mount namespace of their own" >&2
    exit 77
  fi
  export KORVEX_OWN_WORLD=yes
  exec unshare --mount --propagation private "$0" "$@"
fi

root=/mnt
mount -t tmpfs -o mode=755 korvex-test $root
for entry in /*; do
  [ -e "$entry" ] || continue
  if [ -L "$entry" ]; then
    cp -P "$entry" "$root$entry"
  elif [ "$entry" = /etc ]; then
    cp -a /etc "$root/etc"
  elif [ -d "$entry" ] && [ "$entry" != /share ] && [ "$entry" != $root ]; then
    mkdir "$root$entry"
    mount --rbind "$entry" "$root$entry"
  fi
done
mkdir -p $root/share $root/etc/config $root/mnt
printf '127.0.0.1 localhost\n' >$root/etc/hosts
here=$PWD
# shellcheck disable=SC2016 # the inner shell's
exec chroot $root sh -euc '
for empty in /var/lock /sys/block /usr/local/sbin; do
  mount -t tmpfs -o mode=755 korvex-test "$empty"
done
cd "$0" && exec "$@"' "$here" "$@"
