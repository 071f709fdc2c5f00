#!/bin/sh
# Installs the built tree into a fresh prefix, moves it elsewhere, and builds and runs hosts against it: one in C, found by
# pkg-config, one in C++, found by find_package, one on the C++ layer, found by both, the example daemon of that layer, and
# the programs of its guide, as C++20 and C++23, by both compilers where both are there.
# Usage: check_install.sh BUILD_DIR HOSTS_DIR CC CXX CLANGXX    (CLANGXX may be empty)
set -eu
build=$1
hosts=$2
cc=$3
cxx=$4
clangxx=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
library=$(dirname "$(find "$work/prefix" -name libkorvex_util.so.1)")
export LD_LIBRARY_PATH="$library"
export PKG_CONFIG_PATH="$library/pkgconfig"

echo "pkg-config: korvex_util $(pkg-config --modversion korvex_util)"
# shellcheck disable=SC2046 # a list
"$cc" -Wall -Wextra -Werror "$hosts/c_host/main.c" $(pkg-config --cflags --libs korvex_util) -o "$work/c_host"
# shellcheck disable=SC2046 # a list
"$cxx" -std=c++20 -Wall -Wextra -Werror "$hosts/layer_host/main.cpp" \
  $(pkg-config --cflags --libs korvex_util_cpp) -o "$work/layer_host"
cmake -S "$hosts/cpp_host" -B "$work/cpp_build" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  -G Ninja >/dev/null
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

# shellcheck disable=SC2046 # a list
"$cxx" -std=c++20 -Wall -Wextra -Wconversion -Wpedantic -Werror "$hosts"/../../examples/settingsd_cpp/*.cpp \
  $(pkg-config --cflags --libs korvex_util_cpp) -o "$work/settingsd"
"$work/settingsd" --help | grep -q '^usage: settingsd'

guide=$hosts/../../docs/cpp.md
check_guide=$hosts/../cpp/check_guide.py
mkdir "$work/programs"
python3 -B "$check_guide" "$guide" --extract "$work/programs"
titles=$(sed -n 's/^## //p' "$guide")
[ -n "$titles" ]

# guide_by_pkg_config COMPILER STANDARD
guide_by_pkg_config() {
  echo "pkg-config, $1, C++$2:"
  for title in $titles; do
    # shellcheck disable=SC2046 # a list
    python3 -B "$check_guide" "$guide" "$title" "$1" "-std=c++$2" $(pkg-config --cflags --libs korvex_util_cpp)
  done
}

# guide_by_cmake COMPILER STANDARD
guide_by_cmake() {
  echo "find_package, $1, C++$2:"
  folder=$work/guide-$(basename "$1")-$2
  cmake -S "$hosts/guide_host" -B "$folder" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$1" \
    -DCMAKE_CXX_STANDARD="$2" -DSOURCES="$work/programs" -G Ninja >/dev/null
  cmake --build "$folder" >/dev/null
  for title in $titles; do python3 -B "$check_guide" "$guide" "$title" --built "$folder/$title"; done
}

# The tests of the layer compile them in the tree, by g++ as C++20.
guide_by_cmake "$cxx" 23
if [ -n "$clangxx" ]; then
  guide_by_pkg_config "$clangxx" 20
else
  echo "ATTENTION: not compiled by clang++"
fi

if [ -x "$work/prefix/bin/korvex" ]; then
  unset LD_LIBRARY_PATH # the installed tool finds its library by itself
  [ "$("$work/prefix/bin/korvex" conf get "$work/net.conf" mtu -s net)" = 1500 ]
  echo "korvex: found its library in the moved tree"
fi
