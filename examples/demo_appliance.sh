# What the machine and a sample appliance are made of: a part of demo.sh, which reads it in its own mount namespace and
# folder.
# shellcheck shell=bash disable=SC2016,SC2154  # 'run' shows commands as they stand; demo.sh has the variables

title 'The mounts and processes of this machine'
if [ -e /etc/mtab ]; then
  run 'korvex mounts | head -n 5'
  holds 'each in its line' matches '^device +path +type +options'
  run 'diff <(korvex mounts --json | grep -c "\"device\"") <(wc -l < /etc/mtab)'
  holds 'all that the system lists' printed ''
else
  echo '   this machine has no /etc/mtab'
fi
# A name of its own, so that no other process is meant. The shell is the parent of the copy of sleep.
cp "$(command -v sleep)" demo-worker
./demo-worker 1000 &
worker=$!
# Until it has become the program.
until [ "$(cat /proc/$worker/comm)" = demo-worker ]; do sleep 0.01; done
run 'korvex ps demo-worker'
holds 'a process is found by its name' printed "$worker"
run "korvex ps --parent $worker"
holds 'and its parent' printed "$$"
kill "$worker"
wait "$worker" 2> /dev/null
run 'korvex ps demo-worker'
holds 'one that ended is not found' failed_with 1 'korvex: ps: demo-worker: no such process'

# A root folder of its own shows the machine's folders, but /share, /etc and /dev, the disks and the identification
# command are the appliance's: nothing is made under those paths of the machine, which need not even have them.
# Only in a mount namespace that ends with the command: what removes the demo's folder must never see the machine's
# folders in it.
build_appliance() {
  local root=$1 path
  mount -t tmpfs korvex-appliance "$root" || return
  for path in /*; do
    case $path in
      /share | /etc | /dev) ;;
      *)
        if [ -L "$path" ]; then
          cp -P "$path" "$root$path" || return
        elif [ -d "$path" ]; then
          mkdir "$root$path" && mount --rbind "$path" "$root$path" || return
        fi
        ;;
    esac
  done
  mkdir -p "$root/dev" "$root/etc/config" "$root/share" || return
  : > "$root/dev/null" && mount --rbind /dev/null "$root/dev/null" || return
  cp /etc/ld.so.cache "$root/etc/" 2> /dev/null
  mount -t tmpfs korvex-appliance "$root/sys/block" && mount -t tmpfs korvex-appliance "$root/usr/local/sbin" || return

  mkdir -p "$root/sys/block/sda/device" "$root/sys/block/sda/sda3" "$root/sys/block/sda/sda2" || return
  echo 'Attic Disk' > "$root/sys/block/sda/device/model"
  echo Acme > "$root/sys/block/sda/device/vendor"
  echo 204800 > "$root/sys/block/sda/sda3/size"
  printf '%s\n' '#!/bin/sh' "echo '/dev/sda2: UUID=\"0a0b-0c0d\" TYPE=\"swap\"'" \
    "echo '/dev/sda3: LABEL=\"DataVol1\" UUID=\"5f1d-77aa\" TYPE=\"ext4\"'" > "$root/usr/local/sbin/blkid"
  chmod 755 "$root/usr/local/sbin/blkid"
  echo '/dev/sda3 /share/MD0_DATA ext4 rw,relatime 0 0' > "$root/etc/mtab"
  printf '[Public]\ncomment = for all\n[Attic]\nbrowsable = no\n' > "$root/etc/config/smb.conf"

  mkdir "$root/share/MD0_DATA" && mount -t tmpfs -o size=64m korvex-volume "$root/share/MD0_DATA" || return
  mkdir "$root/share/MD0_DATA/Public" "$root/share/MD0_DATA/Attic" || return
  ln -s MD0_DATA "$root/share/DataVol1"
  ln -s MD0_DATA/Public "$root/share/Public"
  ln -s MD0_DATA/Attic "$root/share/Attic"
}

title 'The shares and volumes of a sample appliance'
tool=$(command -v korvex)
mkdir appliance
# Runs the tool there; the library lies where it did.
on_appliance() {
  unshare --mount --propagation private bash -c "$(declare -f build_appliance)"'
    build_appliance "$1" && exec chroot "$@"' bash "$folder/appliance" "$tool" "$@"
}
run 'on_appliance mounts'
holds 'its volume is mounted' matches '/dev/sda3 +/share/MD0_DATA +ext4 +rw,relatime'
run 'on_appliance shares'
holds 'it shares a folder' matches ' -  +Public'
holds 'and one that is not shown to everybody' matches ' hidden +Attic'
run "on_appliance shares --json | grep '\"name\"' | tr -d ' '"
holds 'in the order of their names' printed $'"name":"Attic",\n"name":"DataVol1",\n"name":"Public",'
run 'on_appliance volume 5f1d-77aa'
holds 'a volume is found by its UUID' matches $'mounted +/share/DataVol1\nuuid +5f1d-77aa\nlabel +DataVol1\n'
run 'on_appliance volume /share/DataVol1 --json'
holds 'and by its place, exact to the byte' matches '"total_bytes": 104857600,'
run 'on_appliance blocks'
holds 'the block devices stand in the order of the command' matches $'second type\n/dev/sda2 .*\n/dev/sda3 '
run 'on_appliance volume /dev/sdz1'
holds 'a volume that is not there is not found' failed_with 1 'korvex: volume: /dev/sdz1: no such volume'
run 'on_appliance doctor'
holds 'the doctor names what is missing, with the remedy' matches 'warning: |failure: '
run "on_appliance snapshot > before.json; on_appliance snapshot > after.json; korvex snapshot diff before.json after.json"
holds 'two snapshots of the same machine are the same' printed ''
run "grep -o '\"schema\": [0-9]*' before.json"
holds 'a snapshot says which form it has' matches '"schema": [0-9]+'
