# shellcheck shell=sh
# What the count_*.sh share: looking at a trace of strace, and keeping what was counted.

# between_marks TRACE: the calls between the two marks of one_call.
between_marks() { sed -n '/korvex-begin/,/korvex-end/p' "$1" | sed '1d;$d'; }

# tally CALLS: how often each call was made, as lines "COUNT CALL".
tally() { sed 's/(.*//' "$1" | sort | uniq -c; }

# joined: such lines as one.
joined() { awk '{ printf "%s%s %s", separator, $1, $2; separator = ", " }'; }

# keep FAMILY JOB SIDE: appends such lines to the file that KORVEX_BENCH_CSV names, as figures.h describes its rows, and
# hands them on.
keep() {
    awk -v family="$1" -v job="$2" -v side="$3" -v file="${KORVEX_BENCH_CSV:-/dev/null}" '{
        printf "%s,\"%s\",\"%s\",%d,%s,,,calls\n", family, job, side, $1, $2 >> file
        print
    }'
}
