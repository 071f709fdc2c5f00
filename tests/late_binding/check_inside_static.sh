#!/bin/sh
# Gives the host with the static OpenSSL a certificate, and runs it.
# Usage: check_inside_static.sh PROGRAM
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj /CN=nas.test \
  -keyout "$work/key" -out "$work/certificate" 2>"$work/log" || { cat "$work/log" && exit 1; }
cat "$work/certificate" "$work/key" >"$work/both"
"$1" "$work/both"
