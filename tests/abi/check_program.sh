#!/bin/sh
# Checks how the tool is hardened.
# Usage: check_program.sh PROGRAM [fortified]
set -eu
object=$1
fortified=${2:-}
failed=0
# shellcheck source=tests/abi/hardening.sh
. "$(dirname "$0")/hardening.sh"

check_hardening
expect "can be loaded anywhere" 1 "$(echo "$dynamic" | grep -c 'FLAGS_1.*PIE')"
exit $failed
