#!/usr/bin/env bash
# Runs the device's rcmd and nvram, which signal process 1, kill by name and restart the machine, in
# PID, mount, network and IPC namespaces of their own: in_namespaces.sh FOLDER-OF-PROGRAMS. There they
# enrol with a server, take settings and commands, and flash an image; the restart that follows ends
# the namespaces. Exit status 77: this machine gives nobody such namespaces.
set -euo pipefail
readonly kSpaces=(pid mnt net ipc)

say_spaces() {
  local space
  for space in "${kSpaces[@]}"; do
    readlink "/proc/self/ns/$space"
  done
}

# Outside: makes the namespaces, and takes what the restart leaves: their end by a hang-up signal.
if [ "${1:-}" != --inside ]; then
  bin=$(readlink -f "$1")
  spaces=(unshare --pid --fork --mount --net --ipc --kill-child)
  [ "$(id -u)" -eq 0 ] || spaces+=(--user --map-root-user)
  if ! "${spaces[@]}" --mount-proc mount -t tmpfs tmpfs /tmp 2>/dev/null; then
    echo "no namespaces here"
    exit 77
  fi
  told=$(mktemp)
  trap 'rm -f "$told"' EXIT
  status=0
  # The shell in between keeps the hang-up signal from this one.
  bash -c '"$@"; exit $?' - "${spaces[@]}" --mount-proc "$(readlink -f "$0")" --inside "$bin" \
    "$(say_spaces | tr '\n' ' ')" >"$told" 2>&1 || status=$?
  cat "$told"
  grep -q '^ready for the restart$' "$told" && [ "$status" -eq 129 ] && exit 0
  echo "the namespaces ended with status $status; 129 is that of a restart"
  exit 1
fi

bin=$2 outside=$3
for space in $(say_spaces); do
  if [[ " $outside " == *" $space "* ]]; then
    echo "not in a namespace of its own: $space"
    exit 1
  fi
done
[ $$ -eq 1 ] || { echo "not process 1"; exit 1; }

rcmd_pid='' signalled=no
trap 'signalled=yes' TERM

fail() {
  echo "FAILED: $*"
  tail -n 20 /tmp/rcmd.log /tmp/server.log /tmp/console.log 2>/dev/null
  exit 1
}

within() {
  local end=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [ $SECONDS -lt "$end" ] || return 1
    sleep 0.05
  done
}

# A bare router: memory for /tmp and /etc, a console that remembers, and tools of its own.
make_router() {
  local device
  exec 9<"$bin" # may lie where something is mounted over
  mount -t tmpfs tmpfs /mnt
  mkdir /mnt/bin /mnt/tmp
  mount --bind /proc/self/fd/9 /mnt/bin
  mount --bind /mnt/tmp /tmp
  mkdir /tmp/etc /tmp/sbin /tmp/dev
  mount --bind /tmp/etc /etc
  for device in null urandom; do
    touch "/tmp/dev/$device"
    mount --bind "/dev/$device" "/tmp/dev/$device"
  done
  mkfifo /tmp/dev/console
  ln -s /proc/self/fd /tmp/dev/fd
  mount --bind /tmp/dev /dev
  cat <>/dev/console >/tmp/console.log &
  cat >/tmp/sbin/mtd <<'MTD'
#!/bin/bash
[ "$1 $3" = "upgrade_trx linux" ] && cp "$2" /tmp/flash
MTD
  cp /mnt/bin/nvram /tmp/sbin/nvram
  chmod +x /tmp/sbin/mtd
  PATH=/mnt/bin:/tmp/sbin:/bin:/usr/bin
  cp "$(command -v ip)" /tmp/sbin/ip
  mount --bind /tmp/sbin /usr/sbin
  [ /sbin -ef /usr/sbin ] || mount --bind /tmp/sbin /sbin
  ip link set lo up
}

start_rcmd() {
  rcmd -s 127.0.0.1 -m lab -d >>/tmp/rcmd.log 2>&1 &
  rcmd_pid=$!
}

is_registered() {
  rcmctl --json devices | grep -q '"registrations":1'
}

server_holds() {
  rcmctl --json get DEVICE000001 "$1" | grep -q "\"value\":\"$2\""
}

was_signalled() {
  [ "$signalled" = yes ]
}

make_router
nvram set SN=DEVICE000001 && nvram set version_firmware=1.0.0 && nvram set hostname=bench &&
  nvram commit || fail "nvram"
rcm-server --bind 127.0.0.1 --db :memory: --keepalive-interval 60 >/tmp/server.log 2>&1 &
ring-syslogd >/tmp/syslogd.log 2>&1 & # without its ring the daemon ends
within 10 test -S /dev/log || fail "no log socket"
start_rcmd
within 20 is_registered || fail "the device does not register"
within 10 server_holds hostname bench || fail "the settings do not arrive"
within 10 server_holds lan_lease_maxunit 0 || fail "the status does not arrive"

rcmctl set DEVICE000001 hostname=field || fail "a setting is not taken"
[ "$(nvram get hostname)" = field ] || fail "the setting is not in nvram"
rcmctl commit DEVICE000001 & # ends once the device is back
within 10 was_signalled || fail "process 1 has no signal"
grep -q 'hostname=field' -a /etc/nvram/image || fail "the image does not hold the setting"

# What process 1 does then: end everything, and start over with empty memory.
kill -KILL "$rcmd_pid"
wait "$rcmd_pid" 2>/dev/null || true
rm -rf /tmp/nvram
sleep 1.1 # a registration of the same second counts as the first one, sent again
start_rcmd
within 20 rcmctl status DEVICE000001 || fail "the device does not take orders after its restart"
[ "$(nvram get hostname)" = field ] || fail "the setting did not last"

head -c 200000 /dev/urandom >/tmp/payload
mktrx make --version 2.0.0 -o /tmp/new.trx /tmp/payload >/dev/null || fail "mktrx"
echo "ready for the restart"
rcmctl upgrade DEVICE000001 /tmp/new.trx &
within 30 cmp -s /tmp/new.trx /tmp/flash || fail "the flash does not hold the image"
sleep 20
fail "no restart"
