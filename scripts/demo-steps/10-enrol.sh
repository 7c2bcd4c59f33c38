# The router enrols, reports its settings, stays alive, and comes back after the server was away.

# The wire value that the device's nvram stands for: some settings are stored in another form.
stored_as_wire() {
  local name=$1
  case "$name" in
    wl_auth_mode) on_device get wl0_net_auth_mode ;;
    wl_wep) [ "$(on_device get wl0_wep)" = enabled ] && echo 1 || echo 0 ;;
    wl_macmode)
      case "$(on_device get wl0_macmode)" in disabled) echo 0 ;; deny) echo 1 ;; allow) echo 2 ;; esac ;;
    lan_dhcp_rule?) on_device get "lan_dhcp${name#lan_dhcp_rule}_rule" ;;
    firewall_access_rule?)
      rule_fields "firewall_access${name#firewall_access_rule}_" \
        indev from_ip outdev to_ip protocol startport endport log action desc ;;
    firewall_portforwarding_rule?)
      rule_fields "firewall_portforwarding${name#firewall_portforwarding_rule}_" \
        interface protocol srcip externalport natip localport autofw desc ;;
    wl_*) on_device get "wl0_${name#wl_}" ;;
    wan_*) on_device get "wan0_${name#wan_}" ;;
    *) on_device get "$name" ;;
  esac
}

rule_fields() {
  local prefix=$1 status field text=
  shift
  status=$(on_device get "${prefix}status")
  [ "${status:-0}" != 0 ] || return 0
  for field in "$@"; do
    text+="$(on_device get "$prefix$field"),"
  done
  [ "$status" = 2 ] && echo "${text}1" || echo "${text}0"
}

configuration_equals_nvram() {
  local name value stored count=0
  while IFS=$'\t' read -r name value; do
    count=$((count + 1))
    stored=$(stored_as_wire "$name" 2>/dev/null || true)
    if [ "$value" != "$stored" ]; then
      echo "$name: the server holds '$value', the device '$stored'"
      return 1
    fi
  done < <(rcmctl --json show "$serial" | jq -r '.variables[] | select(.kind == "configuration") | [.name, .value] | @tsv')
  echo "$count settings compared"
  [ "$count" -eq 76 ]
}

status_is_complete() {
  local name names
  names=$(rcmctl --json show "$serial" | jq -r '.variables[] | select(.kind == "status") | .name')
  for name in lan_status lan_inpkts lan_outpkts mem_usage mem_total wan_uptime wan_wwan_gps \
    wan_wwan_prodid wan_ipaddr wan_wwan_rssi wan_wwan_esn wan_inpkts wan_outpkts \
    lan_lease_maxunit wl0_sta_maxunit; do
    grep -qx "$name" <<<"$names" || { echo "no $name"; return 1; }
  done
}

said_by_the_daemon() {
  grep -q "$1" "$work/router.log"
}

step "the router registers with the server" within 20 registered_more_often_than 0
step "it asked for the server's time" within 10 said_by_the_daemon "request server time .."
step "it took the keepalive parameters" within 10 said_by_the_daemon "interval = 60, maxretries = 3"
step "all 76 settings that the server holds equal the router's nvram" within 10 configuration_equals_nvram
step "the status report is complete, leases and stations included" within 10 status_is_complete
step "keepalives are acknowledged" within 20 said_by_the_daemon "receive keepalive ACK"

before=$(registrations)
stop_server
step "with the server gone the router declares it dead" within 60 said_by_the_daemon "peer had been dead."
start_server
step "once the server is back the router registers by itself" within 30 registered_more_often_than "$before"

before=$(registrations)
stop_router
stop_server
start_server --drop 30 --duplicate 30 --reorder 30 --seed 7
start_router
step "it enrols through 30% loss, duplication and reordering" within 240 registered_more_often_than "$before"
step "and every setting still arrived right" within 120 configuration_equals_nvram
stop_server
start_server
