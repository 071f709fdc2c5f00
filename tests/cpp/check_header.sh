#!/bin/sh
# Compiles a header alone, twice included, as C++20 and C++23 by each compiler, with every warning an error.
# Usage: check_header.sh SOURCE_DIR HEADER COMPILER...
set -eu
source=$1
header=$2
shift 2
for compiler in "$@"; do
  for standard in c++20 c++2b; do
    echo "$compiler -std=$standard $header"
    printf '#include "%s"\n#include "%s"\n' "$header" "$header" |
      "$compiler" -x c++ -std=$standard -Wall -Wextra -Wconversion -Wpedantic -Wshadow -Werror -fsyntax-only \
        -I "$source/include" -
  done
done
