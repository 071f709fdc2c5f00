#!/bin/sh
# Checks that the sweep can make every function of the system fail that the library calls: each is defined by the test
# program, or stands here among those that cannot fail or are out of the sweep's reach.
# Usage: check_calls.sh SHARED_OBJECT TEST_PROGRAM
set -eu
object=$1
program=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/beyond" <<'EOF'
__errno_location    answers an address
endmntent           always answers 1
ferror              looks at a mark
__fpurge            forgets what stands in a buffer
geteuid             always succeeds
getpid              always succeeds
inet_addr           computes
memchr              computes
getenv              looks at the environment
hasmntopt           computes
memcmp              computes
memcpy              computes
memmove             computes
memset              computes
qsort               computes; the memory that it would like it can do without
snprintf            of numbers and short texts into room that is there
__snprintf_chk      the same
stdout              is a variable
stpcpy              computes
strcasecmp          computes
strcat              computes
strchr              computes
strcmp              computes
strcpy              computes
strcspn             computes
strlen              computes
strncasecmp         computes
strncmp             computes
strnlen             computes
strrchr             computes
strspn              computes
strstr              computes
strtol              computes
strtoll             computes
strtoul             computes
strtoull            computes
tzset               reports nothing
dlopen              tests/late_binding has its failures: the wrappers themselves need the loader
dlsym               the same
dladdr              looks something up in the loader's own tables
EOF

# Setting OpenSSL up: tests/late_binding. Of the rest of OpenSSL what can fail is defined by the test program.
cat >>"$work/beyond" <<'EOF'
OPENSSL_init_ssl
SSL_CTX_new_ex
SSL_CTX_set_num_tickets
SSL_CTX_set_options
SSL_library_init
SSL_load_error_strings
SSLv23_method
TLS_method
EOF

# What compiler and instrumentation add is no call of the library's.
nm -D --undefined-only "$object" | awk '{ sub(/@.*/, "", $2); print $2 }' |
  grep -Ev '^(_ITM_|__cxa_finalize|__gmon_start__|__stack_chk_|__asan_|__ubsan_|__sanitizer_|__gcov_|__lsan_)' |
  sort -u >"$work/called"
[ -s "$work/called" ] || { echo "nothing is known of what $object calls" && exit 1; }
nm -D --defined-only "$program" | awk '{ sub(/@.*/, "", $3); print $3 }' >"$work/defined"
awk '{ print $1 }' "$work/beyond" >>"$work/defined"
sort -u "$work/defined" -o "$work/defined"

comm -23 "$work/called" "$work/defined" >"$work/missing"
if [ -s "$work/missing" ]; then
  echo "the library calls these, which the sweep can't make fail (see tests/support/faults.h):"
  cat "$work/missing"
  exit 1
fi
echo "$(wc -l <"$work/called") functions of the system, all within reach or named"
