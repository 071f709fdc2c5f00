#!/bin/sh
# Checks that the tests bring their own names of hosts: on a machine that knows none, and has no file that says where to
# ask, those that resolve names pass.
# Usage: check_own_names.sh TEST_PROGRAM GTEST_FILTER...
set -eu

if [ "$1" != --without-names ]; then
  if [ "$(id -u)" = 0 ]; then private="unshare -m"; else private="unshare -rm"; fi
  exec $private --propagation private "$0" --without-names "$@"
fi
shift

# A copy of /etc that lacks them.
mount -t tmpfs korvex-test /var/lock
mkdir /var/lock/etc
cp -a /etc/. /var/lock/etc
(cd /var/lock/etc && rm -f hosts nsswitch.conf resolv.conf gai.conf)
mount --bind /var/lock/etc /etc
umount -l /var/lock
mount -t tmpfs korvex-test /var/lock
if [ -e /etc/hosts ] || [ -e /etc/nsswitch.conf ]; then
  echo "the machine's names are still there"
  exit 1
fi

while [ $# -gt 0 ]; do
  "$1" --gtest_brief=1 --gtest_filter="$2" >/var/lock/output || { cat /var/lock/output && exit 1; }
  cat /var/lock/output
  grep -q 'PASSED.* [1-9]' /var/lock/output
  shift 2
done
