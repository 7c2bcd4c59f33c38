# What scripts/demo and its steps share. Sourced, with bin, work, router_dir and serial set.

steps=0

finish() {
  local status=$?
  trap - EXIT INT TERM
  for pid in $watch_pid $router_pid $server_pid; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  if [ "$status" -ne 0 ] && [ "$status" -ne 130 ] && [ -d "$work" ]; then
    for log in server router; do
      echo "-- the last lines of $log.log"
      tail -n 15 "$work/$log.log" 2>/dev/null || true
    done
  fi
  rm -rf "$work"
  exit "$status"
}

# The story's clock: the unattended router lives an hour a minute, so that hourly reports come.
if [ "$once" = yes ]; then
  scale=60 keepalive=60
else
  scale=1 keepalive=5
fi

# start_server [OPTION...]: further options inject faults into the link
start_server() {
  rcm-server --bind 127.0.0.1 --db "$work/server.db" --keepalive-interval "$keepalive" \
    --keepalive-maxretries 3 "$@" >>"$work/server.log" 2>&1 &
  server_pid=$!
  within 30 rcmctl devices >/dev/null || { echo "rcm-server does not answer"; exit 1; }
}

stop_server() {
  kill "$server_pid"
  wait "$server_pid" 2>/dev/null || true
  server_pid=
}

# start_router [OPTION...]
start_router() {
  virtual-router --dir "$router_dir" --address 127.0.0.1 --server 127.0.0.1 --domain demo \
    --serial "$serial" --debug --time-scale "$scale" "$@" >>"$work/router.log" 2>&1 &
  router_pid=$!
}

stop_router() {
  kill "$router_pid"
  wait "$router_pid" 2>/dev/null || true
  router_pid=
}

# within SECONDS COMMAND...: tries the command until it succeeds
within() {
  local end=$(($(date +%s) + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [ "$(date +%s)" -lt "$end" ] || return 1
    sleep 0.1
  done
}

# step SENTENCE COMMAND...: one line a step; the first that fails ends the story
step() {
  local sentence=$1
  shift
  steps=$((steps + 1))
  if "$@" >"$work/step.log" 2>&1; then
    printf 'ok %2d  %s\n' "$steps" "$sentence"
  else
    printf 'FAILED %2d  %s\n' "$steps" "$sentence"
    cat "$work/step.log"
    exit 1
  fi
}

# A key of the router's own nvram, read with the device's tool.
on_device() {
  VIRTUAL_ROUTER_DIR=$router_dir nvram-virtual "$@"
}

# What the server holds: server_value NAME, and how often the device registered.
server_value() {
  rcmctl --json get "$serial" "$1" | jq -r .value
}

registrations() {
  rcmctl --json devices | jq -r --arg serial "$serial" '.[] | select(.serial == $serial) | .registrations'
}

server_value_is() {
  [ "$(server_value "$1")" = "$2" ]
}

device_value_is() {
  [ "$(on_device get "$1" 2>/dev/null)" = "$2" ]
}

registered_more_often_than() {
  local count
  count=$(registrations)
  [ -n "$count" ] && [ "$count" -gt "$1" ]
}

# Registered once more than that, and the whole chain done: the station count is the last that a router
# reports. While a router registers, what the server asks of it is lost. A bad link may cut the report
# short; the router then reports again when it is asked.
enrolled_again_after() {
  local since
  registered_more_often_than "$1" || return 1
  since=$(rcmctl --json devices | jq -r --arg serial "$serial" '.[] | select(.serial == $serial) | .registered')
  reported_since "$since" && return
  [ $(($(date +%s) - since)) -gt 30 ] && rcmctl status "$serial" && within 10 reported_since "$since"
}

reported_since() {
  [ "$(rcmctl --json get "$serial" wl0_sta_maxunit | jq -r .time)" -ge "$1" ]
}

# Ctrl-C ends everything.
show_enrolment() {
  cat <<TEXT
The server listens on UDP 127.0.0.1:1162 and answers rcmctl on http://127.0.0.1:8162.
The router lives in $router_dir. What its daemon says, and what the server sees:

TEXT
  tail -n +1 -F "$work/router.log" 2>/dev/null &
  watch_pid=$!
  within 20 registered_more_often_than 0 || { echo "the router did not register"; exit 1; }
  within 10 status_reported || true
  sleep 6
  cat <<TEXT

The router is enrolled. In another terminal:
  export PATH=$bin:\$PATH VIRTUAL_ROUTER_DIR=$router_dir
  rcmctl devices                            the routers that the server knows
  rcmctl show $serial                  every setting and status value
  rcmctl watch                              what happens, as it happens
  rcmctl set $serial hostname=shop     change a setting ...
  nvram-virtual get hostname                ... and find it on the device
  rcmctl commit $serial                keep it: the router restarts and enrols again
  rcmctl logs $serial --follow         its log; also: traffic, positions
  rcmctl import $serial FILE           settings from a file; also: upgrade, with an image of mktrx
  rcm-lan discover --broadcast 127.0.0.1    find it on its own network
Ctrl-C ends router and server.

TEXT
  wait "$router_pid"
}

status_reported() {
  server_value lan_lease_maxunit | grep -q .
}
