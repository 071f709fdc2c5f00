#!/bin/sh
# Installs the built tree into a fresh prefix, moves it elsewhere, and builds and runs hosts against it: one in C, found by
# pkg-config, one in C++, found by find_package, one on the C++ layer, found by both, and the programs of the layer's guide.
# Usage: check_install.sh BUILD_DIR HOSTS_DIR CC CXX [FLAGS]
set -eu
build=$1
hosts=$2
cc=$3
cxx=$4
flags=${5:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
library=$(dirname "$(find "$work/prefix" -name libkorvex_util.so.1)")
export LD_LIBRARY_PATH="$library"
export PKG_CONFIG_PATH="$library/pkgconfig"

echo "pkg-config: korvex_util $(pkg-config --modversion korvex_util)"
# shellcheck disable=SC2086,SC2046 # flags are lists
"$cc" -Wall -Wextra -Werror $flags "$hosts/c_host/main.c" $(pkg-config --cflags --libs korvex_util) -o "$work/c_host"
# shellcheck disable=SC2086,SC2046 # flags are lists
"$cxx" -std=c++20 -Wall -Wextra -Werror $flags "$hosts/layer_host/main.cpp" \
  $(pkg-config --cflags --libs korvex_util_cpp) -o "$work/layer_host"
cmake -S "$hosts/cpp_host" -B "$work/cpp_build" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_FLAGS="$flags" -G Ninja >/dev/null
cmake --build "$work/cpp_build" >/dev/null

# The configuration's lock is taken in /var/lock: the hosts get one of their own.
cat >"$work/hosts.sh" <<HOSTS
mount -t tmpfs korvex-test /var/lock
"$work/c_host" "$work/net.conf"
"$work/cpp_build/cpp_host" "$work/net.conf"
"$work/layer_host" "$work/net.conf"
"$work/cpp_build/layer_host" "$work/net.conf"
HOSTS
if [ "$(id -u)" = 0 ]; then private="unshare -m"; else private="unshare -rm"; fi
$private sh -e "$work/hosts.sh" | tee "$work/output"
[ "$(sort "$work/output" | uniq -c | sed 's/^ *//')" = "4 mtu 1500" ]

guide=$hosts/../../docs/cpp.md
sed -n 's/^## //p' "$guide" >"$work/titles"
[ -s "$work/titles" ]
while read -r title; do
  # shellcheck disable=SC2086,SC2046 # flags are lists
  python3 -B "$hosts/../cpp/check_guide.py" "$guide" "$title" "$cxx" $flags \
    $(pkg-config --cflags --libs korvex_util_cpp)
done <"$work/titles"

if [ -x "$work/prefix/bin/korvex" ]; then
  unset LD_LIBRARY_PATH # the installed tool finds its library by itself
  [ "$("$work/prefix/bin/korvex" conf get "$work/net.conf" mtu -s net)" = 1500 ]
  echo "korvex: found its library in the moved tree"
fi
