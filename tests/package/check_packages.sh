#!/usr/bin/env bash
# Installs the packages in a fresh Debian system of its own, builds the README's first program there as a user would,
# runs it and the tool, purges the packages, and looks for what they leave behind.
# Usage: check_packages.sh SOURCE_DIR PACKAGES_DIR BASE_TAR
# BASE_TAR keeps the bare system for the next run; it is made where it is missing.
# shellcheck disable=SC2016 # dpkg-query's formats look like variables
set -euo pipefail
source=$(realpath "$1")
packages=$(realpath "$2")
base=$(realpath -m "$3")
suite=bookworm
mirror=http://deb.debian.org/debian
names=(libkorvex-util1 libkorvex-util-dev korvex-tools python3-korvex)

# In a mount namespace of its own, so that nothing stays mounted.
if [[ ${KORVEX_PRIVATE:-} != yes ]]; then
  exec env KORVEX_PRIVATE=yes unshare --mount --propagation private "$0" "$@"
fi
work=$(mktemp -d "$(dirname "$base")/package-test.XXXXXX")
trap 'umount -R "$work/root" "$work/over" 2>/dev/null || true; rm -rf --one-file-system "$work"' EXIT
root=$work/root
mkdir "$root"

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# make_base: the bare system with a compiler and Python, as a tar archive. Its name appears only when it is whole.
make_base() {
  debootstrap --variant=minbase --include=gcc,libc6-dev,man-db,pkg-config,python3 "$suite" "$work/bare" "$mirror" \
    >"$work/debootstrap.log" 2>&1 || return 1
  tar -C "$work/bare" --numeric-owner --exclude='./var/cache/apt/archives/*.deb' --exclude='./var/lib/apt/lists/*' \
    -cf "$base.part" .
  mv "$base.part" "$base"
  rm -rf "$work/bare"
}

# One that an earlier version made lacks Python.
if tar -tf "$base" ./usr/bin/python3 >/dev/null 2>&1 || make_base; then
  tar -C "$root" -xf "$base"
  echo "system: Debian $(cat "$root/etc/debian_version") by debootstrap"
else
  tail -n 5 "$work/debootstrap.log" >&2
  echo "ATTENTION: debootstrap can't make a system here. The packages are tested over a private copy of this" >&2
  echo "ATTENTION: machine's own, which may have what they should have asked for." >&2
  mkdir "$work/over"
  mount -t tmpfs korvex-package-test "$work/over"
  mkdir "$work/over/upper" "$work/over/work"
  mount -t overlay korvex-package-test "$root" \
    -o "lowerdir=/,upperdir=$work/over/upper,workdir=$work/over/work"
  mount -t tmpfs korvex-package-test "$root/run"
  mkdir "$root/run/lock"
  mount --rbind /dev "$root/dev"
fi
# The dpkg of a minimal system may leave out documentation, of which the manual pages are a part here.
rm -f "$root"/etc/dpkg/dpkg.cfg.d/*

# inside COMMAND...: in the system, with processes of its own and no network.
inside() {
  unshare --pid --fork --net --mount-proc="$root/proc" \
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"
}

# Where packages put files; without the records of dpkg itself, logs, and the index that man-db keeps of all pages.
files_of_root() {
  (cd "$root" && find etc opt srv usr var -xdev \
    \( -path var/lib/dpkg -o -path var/log -o -path var/cache/man \) -prune -o -print | LC_ALL=C sort)
}

files_of_root >"$work/before"
mkdir "$root/packages"
for name in "${names[@]}"; do
  cp "$packages/$name"_*.deb "$root/packages/"
done
inside sh -c 'dpkg --install /packages/*.deb' >"$work/install.log" 2>&1 ||
  { cat "$work/install.log" && fail "the packages can't be installed"; }
inside dpkg-query -W -f '${Package} ${Version} ${db:Status-Status}, ${Installed-Size} KiB\n' "${names[@]}"
inside dpkg --verify "${names[@]}"
suggested=$(inside dpkg-query -W -f '${Suggests}' libkorvex-util1)
[[ $suggested == libssl3 ]] || fail "libkorvex-util1 suggests '$suggested', not libssl3"

# The first program of the README, as it stands there.
mkdir "$root/first"
awk '/^```c$/ { inside = 1; next } /^```$/ && inside { exit } inside' "$source/README.md" >"$root/first/first.c"
grep -q '^int main' "$root/first/first.c" || fail "the README has no first program in C"
inside sh -ec 'cd /first && cc first.c $(pkg-config --cflags --libs korvex_util) -o first'
mkdir -p "$root/etc/config"
printf '# of the house\n[global]\n  workgroup = HOME\n' >"$root/etc/config/smb.conf"
cp "$root/etc/config/smb.conf" "$work/expected"
# A key that is added ends its section, and an empty line separates it from what may follow.
printf 'netbios name = ATTIC\n\n' >>"$work/expected"
inside /first/first /etc/config/smb.conf | tee "$work/output"
[[ $(cat "$work/output") == "this is ATTIC in HOME" ]] || fail "the first program's output"
diff -u "$work/expected" "$root/etc/config/smb.conf" || fail "what the first program wrote"
if inside /first/first /etc/config/none.conf 2>"$work/output"; then fail "the first program reads a file that is not there"; fi
grep -qx "can't read /etc/config/none.conf: No such file or directory" "$work/output" ||
  fail "the first program does not say that its file is not there"
echo "first.c: built and run, and the configuration is as it should be"

# A C++ compiler is not in the bare system: that the layer compiles, tests/install shows.
inside pkg-config --exists korvex_util_cpp || fail "korvex_util_cpp is not known to pkg-config"
(cd "$source/include" && find korvex -name '*.hpp' | LC_ALL=C sort) >"$work/headers"
(cd "$root/usr/include/korvex_util" && find korvex -name '*.hpp' | LC_ALL=C sort) | diff -u "$work/headers" - ||
  fail "headers of the C++ layer"

[[ $(inside korvex conf get /etc/config/smb.conf "netbios name" -s global) == ATTIC ]] || fail "korvex conf get"
inside korvex conf set /etc/config/smb.conf workgroup ATTIC -s global
[[ $(inside korvex conf get /etc/config/smb.conf workgroup -s global) == ATTIC ]] || fail "korvex conf set"
echo "$(inside korvex --version): reads what the program wrote, and writes"

for page in "1 korvex" "3 Get_Conf_File_String_Value" "7 korvex_util"; do
  # shellcheck disable=SC2086 # section and name
  inside man -w $page
done

inside test -f /usr/share/doc/libkorvex-util1/examples/root-only-lock.conf ||
  fail "the example for systemd-tmpfiles is missing"

# The first recipe of the guide for Python.
mkdir -p "$root/srv/app"
awk '/^```python$/ { inside = 1; next } /^```$/ && inside { exit } inside' "$source/docs/python.md" >"$root/srv/app/first.py"
awk '/^```text$/ { inside = 1; next } /^```$/ && inside { exit } inside' "$source/docs/python.md" >"$work/expected"
grep -q '^import korvex' "$root/srv/app/first.py" || fail "the guide for Python has no first recipe"
inside sh -ec 'cd /srv/app && python3 first.py' >"$work/output"
diff -u "$work/expected" "$work/output" || fail "the first recipe's output"
echo "first.py: $(inside python3 --version), and it prints what the guide says"

rm -r "$root/first" "$root/etc/config" "$root/srv/app"
inside dpkg --purge "${names[@]}" >"$work/purge.log" 2>&1 || { cat "$work/purge.log" && fail "purge"; }
rm -r "$root/packages"
files_of_root >"$work/after"
diff -u "$work/before" "$work/after" || fail "purge does not leave the system as it was"
[[ -z $(inside dpkg-query -W -f '${Package}\n' '*korvex*' 2>/dev/null) ]] || fail "dpkg still knows the packages"
echo "purge: nothing is left of ${names[*]}"
