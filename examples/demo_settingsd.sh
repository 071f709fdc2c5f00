# shellcheck shell=bash
# The part of demo.sh about settingsd, the example daemon: started, driven over its local socket and by TLS, killed
# under load, stopped. It uses the functions of demo.sh and its folder.
#
# shellcheck disable=SC2016,SC2154,SC2034  # as in demo.sh, which sets 'output' and reads 'settingsd'

# A port that nobody has on this machine.
free_port() {
  local port=$((20000 + RANDOM % 10000))
  while (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do port=$((port + 1)); done
  echo "$port"
}

# Starts the daemon as a child of this shell, shows how, and waits until it serves.
start_settingsd() {
  set -- --socket settings.socket --conf settings.conf --log "$PWD/settings.log" \
    --host 127.0.0.1 --port "$settings_port" --cert settings.pem
  printf '$ settingsd %s &\n' "$*"
  settingsd "$@" &
  settingsd=$!
  until grep -q "process $settingsd serves" settings.log 2>/dev/null || ! kill -0 "$settingsd" 2>/dev/null; do
    sleep 0.01
  done
}

# Ends it by a signal, and keeps its exit status.
end_settingsd() {
  printf '$ kill -%s %s\n' "$1" "$settingsd"
  kill "-$1" "$settingsd"
  wait "$settingsd" 2>/dev/null
  status=$?
}

# demo_settingsd FOLDER: the programs are in the folder.
demo_settingsd() {
  local PATH=$1:$PATH settings_port settingsd load status output
  settings_port=$(free_port)

  title 'settingsd, a daemon in C that is a host of the library'
  run 'openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj /CN=localhost \
    -keyout key.pem -out cert.pem 2>/dev/null && cat cert.pem key.pem > settings.pem'
  start_settingsd
  holds 'it serves' test -S settings.socket
  run "settings --socket settings.socket set 'netbios name' ATTIC-NAS"
  run "settings --port $settings_port --host 127.0.0.1 --cert settings.pem set volume 11"
  run 'settings --socket settings.socket list'
  holds 'what was set, over the local socket and by TLS' printed "$(printf 'netbios name=ATTIC-NAS\nvolume=11')"
  run 'settings --socket settings.socket set volume "12
[other section]"'
  holds 'nothing gets into the file but a value' failed_with 3 'settings: not a value'
  run 'korvex conf set settings.conf volume 13 -s settings; settings --socket settings.socket get volume'
  holds 'other programs change the same file' printed 13
  run 'settings --socket settings.socket unset volume; settings --socket settings.socket get volume'
  holds 'a key goes' failed_with 1 'settings: no such key'

  title 'Its 64 clients make 25 changes each, half of them by TLS; on the way it is killed twice'
  printf '$ %s &\n' "settings_load --socket settings.socket --port $settings_port --conf settings.conf --sets 25 ..."
  settings_load --socket settings.socket --host 127.0.0.1 --port "$settings_port" --cert settings.pem \
    --conf settings.conf --sets 25 >load.txt 2>&1 &
  load=$!
  for changes in 500 1000; do
    until [ "$(grep -c ^client settings.conf)" -ge "$changes" ] || ! kill -0 "$load" 2>/dev/null; do sleep 0.01; done
    end_settingsd KILL
    start_settingsd
  done
  wait "$load"
  load=$?
  run 'cat load.txt'
  holds 'every change that it acknowledged is there' test "$load" = 0
  run 'head -n 4 settings.conf; grep -c ^client settings.conf'
  holds 'in its file' matches '1600$'

  title 'It ends when it is told to'
  end_settingsd TERM
  holds 'at once, with exit status 0' test "$status" = 0
  run 'ls settings.socket'
  holds 'its socket is gone' test ! -e settings.socket
  run "grep -v '] set client' settings.log"
  holds 'three lives in one log, the last one without a leak' \
    matches 'serves.*serves.*serves.*stopping.*Mem Usage: GOOD'
  run "grep -Evc '^\[[-0-9]{10} [:0-9]{8}\] .' settings.log"
  holds 'and no line is cut' failed_with 1 0
}
