# On the router's own network: discovery, a set that restarts the device, and the backup partition.

discovered() {
  rcm-lan discover --broadcast 127.0.0.1 --timeout 1000 --json |
    jq -e --arg address "$(on_device get lan_ipaddr)" '.[0] | .address == $address and .model == "Virtual Router"'
}

interval_is() {
  device_value_is jqa_reconnect_interval "$1"
}

backup_holds() {
  grep -qx "jqa_reconnect_interval=$1" < <(tr '\0' '\n' <"$router_dir/dev/mtd/1")
}

deskmgr_is_in_datagram_mode() {
  local said
  said=$(rcm-lan status 127.0.0.1 2>&1) && return 1
  echo "$said"
  grep -q "datagram" <<<"$said"
}

step "a discovery on the LAN finds the router" within 20 discovered
before=$(registrations)
step "the desktop manager's port serves no stream, as start-up has it" deskmgr_is_in_datagram_mode
step "a set changes the reconnect interval" rcm-lan set 127.0.0.1 --reconnect-interval 777
step "the router restarts and enrols" within 60 enrolled_again_after "$before"
step "nvram holds the new interval" interval_is 777
step "the backup partition holds it too" backup_holds 777
before=$(registrations)
step "the factory's settings are restored" rcmctl restore-defaults "$serial"
step "the router restarts" within 60 enrolled_again_after "$before"
step "the interval outlived it" interval_is 777
