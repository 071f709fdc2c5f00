#!/bin/sh
# Checks who includes whom: each folder may use the headers listed here and no others, and a few calls belong to one
# place only.
# Usage: check_layers.sh SOURCE_DIR
set -eu
cd "$1"
failed=0

# allow FOLDER HEADER... : the quoted headers that the sources of a folder may include, besides their own.
allow() {
  folder=$1
  shift
  allowed=" $* "
  # shellcheck disable=SC2013 # file names without blanks
  for include in $(grep -rhoE '^#include "[^"]+"' "$folder" | sed 's/.*"\(.*\)"/\1/' | sort -u); do
    [ -e "$folder/$include" ] && continue
    case "$allowed" in
      *" $include "*) ;;
      *)
        echo "$folder may not include \"$include\":"
        grep -rn "#include \"$include\"" "$folder"
        failed=1
        ;;
    esac
  done
}

base=$(cd lib && echo base/*.h)
# shellcheck disable=SC2086 # a list
{
  allow lib/base $base simplog.h miscfunc.h
  allow lib/miscfunc $base miscfunc.h
  allow lib/simplog $base simplog.h fileio.h miscfunc.h
  allow lib/fileio $base fileio.h miscfunc.h
  allow lib/conffile $base conffile.h fileio.h miscfunc.h
  # conffile/watched_file.h: see docs/architecture.md.
  allow lib/sysinfo $base sysinfo.h conffile.h conffile/watched_file.h fileio.h miscfunc.h
  allow lib/tracer $base tracer.h
  allow lib/links $base links.h
  allow lib/socket $base socket.h sysinfo.h miscfunc.h
  # shellcheck disable=SC2046 # lists
  allow tools/korvex $(cd include && echo ./*.h korvex/*.hpp | sed 's,\./,,g')
  allow examples/settingsd
  allow examples/settingsd_cpp
  # shellcheck disable=SC2046 # lists
  allow bindings/python/src $(cd include && echo korvex/*.hpp)
  # shellcheck disable=SC2046 # lists
  allow include/korvex $(cd include && echo ./*.h korvex/*.hpp korvex/detail/*.hpp | sed 's,\./,,g')
}

# forbid PATTERN PATHS WHY
forbid() {
  # shellcheck disable=SC2086 # a list of paths
  if grep -rnE "$1" $2; then
    echo "^ $3"
    failed=1
  fi
}

modules="lib/conffile lib/fileio lib/miscfunc lib/simplog lib/socket lib/sysinfo lib/tracer lib/links"
forbid '\bgoto\b' "lib" "owners clean up, no jump does"
forbid '\b(strtok|atoi|sprintf|dup2?)\(' "lib" "a call that can't be used safely"
forbid '\b(throw|dynamic_cast|typeid)\b|\btry *\{' "lib" "the library has no exceptions and no type information"
forbid '(^|[^:_a-z])(close|free)\(' "$modules" "lib/base/handles.h gives back"
forbid 'Simp_Log_Write\(g_ptslLog' "$modules" "messages go through LOG_ERROR and LOG_DEBUG"
forbid '^#include <(vector|string|map|iostream|fstream|functional|mutex|thread)>' "lib" "no C++ runtime in the library"
if grep -rnE '^ *# *define ' include/korvex | grep -vE '#define KORVEX_[A-Z0-9_]*_HPP$'; then
  echo "^ the C++ layer has no macro but include guards"
  failed=1
fi
forbid '\busing namespace\b' "include/korvex" "a header takes no names into its users' scopes"

[ $failed = 0 ] && echo "layers hold"
exit $failed
