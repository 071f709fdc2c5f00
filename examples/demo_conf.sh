# Changes of a configuration that are one step and lose nothing: a part of demo.sh, which reads it in its own mount
# namespace and folder.
# shellcheck shell=bash disable=SC2016,SC2034,SC2154  # 'run' shows commands as they stand; demo.sh has the variables

title 'Several keys as one step: seen beforehand, with a backup, on a condition'
cp "$sample" share.conf
run "korvex conf set share.conf -s Public 'guest ok=no' 'read only=yes' --dry-run"
holds 'the change is shown' matches $'\n-\tguest ok = yes\n-\tread only = no\n\\+guest ok = no\n\\+read only = yes\n'
holds 'and not made' cmp -s share.conf "$sample"
run "korvex conf set share.conf -s Public 'guest ok=no' 'read only=yes' --backup"
holds 'now it is made' printed ''
run 'korvex conf diff share.conf~ share.conf'
holds 'the old file stays under another name' \
  failed_with 1 $' [Public]\n-guest ok = yes\n+guest ok = no\n-read only = no\n+read only = yes'
run "korvex conf get share.conf 'read only' -s Public --type bool"
holds 'yes is true' printed true
run 'korvex conf set share.conf workgroup CELLAR -s global --if ATTIC'
holds 'a value that somebody else changed is left alone' failed_with 1 \
  "korvex: conf set: share.conf: key 'workgroup' in section 'global' is 'WORKGROUP', expected 'ATTIC'"
run 'korvex conf get share.conf workgroup'
holds 'a forgotten section is guessed' failed_with 1 \
  "korvex: conf get: share.conf: no key 'workgroup' before the first section; did you mean -s global?"

title 'A private file behind a link, with CR LF: all of that stays'
sed 's/$/\r/' "$sample" > private.conf
run 'chmod 0600 private.conf && ln -s private.conf link.conf && cp private.conf before.conf'
run "korvex conf set link.conf deadtime 30 -s global && stat -c '%F %a' link.conf private.conf"
holds 'link and bits' printed $'symbolic link 777\nregular file 600'
run 'diff before.conf private.conf | cat -A'
holds 'one line changed, with its CR LF' printed $'16c16$\n< deadtime=15^M$\n---$\n> deadtime = 30^M$'

title 'A section is removed: what is around it stays'
cp share.conf before.conf
run 'korvex conf section remove share.conf Multimedia && diff before.conf share.conf'
holds 'its own lines go, and no comment above it' eval '[[ $output == *"< [Multimedia]"* && $output != *"< #  Media"* && $output != *"> "* ]]'
rm -f share.conf~ private.conf link.conf before.conf

