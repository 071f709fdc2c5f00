#!/bin/sh
# Compiles a header alone, twice included, with every warning an error: by the first compiler as C++20, by others as C++23,
# and the header that includes all by each compiler as both.
# Usage: check_header.sh SOURCE_DIR HEADER COMPILER...
set -eu
source=$1
header=$2
shift 2
standards=c++20
for compiler in "$@"; do
  [ "$header" != korvex/korvex.hpp ] || standards="c++20 c++2b"
  for standard in $standards; do
    echo "$compiler -std=$standard $header"
    printf '#include "%s"\n#include "%s"\n' "$header" "$header" |
      "$compiler" -x c++ -std="$standard" -Wall -Wextra -Wconversion -Wpedantic -Wshadow -Werror -fsyntax-only \
        -I "$source/include" -
  done
  standards=c++2b
done
