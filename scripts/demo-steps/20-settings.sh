# The server changes settings of every kind, has them committed, and restores the factory's.

rule="eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web,1"
forwarding="ppp0,tcp,0.0.0.0,8080,192.168.1.5,80,0,camera,0"
changes=(
  "hostname=corner-shop"
  "lan_dhcp_rule5=02:00:00:00:00:05,192.168.1.55"
  "wl_ssid=shop"
  "wl_auth_mode=1"
  "wl_wep=1"
  "wl_macmode=2"
  "wl_macrule0=02:00:00:00:00:0A"
  "wan_keepalive_interval=90"
  "firewall_access_rule3=$rule"
  "firewall_portforwarding_rule7=$forwarding"
)

changed_on_device() {
  device_value_is hostname corner-shop &&
    device_value_is lan_dhcp5_rule 02:00:00:00:00:05,192.168.1.55 &&
    device_value_is wl0_ssid shop &&
    device_value_is wl0_net_auth_mode 1 && device_value_is wl0_auth 0 &&
    device_value_is wl0_wep enabled &&
    device_value_is wl0_macmode allow &&
    device_value_is wl0_maclist 02:00:00:00:00:0A &&
    device_value_is wan0_keepalive_interval 90 &&
    device_value_is firewall_access3_protocol tcp && device_value_is firewall_access3_status 2 &&
    device_value_is firewall_portforwarding7_desc camera &&
    device_value_is firewall_portforwarding7_status 1
}

changes_reported() {
  local change
  for change in "${changes[@]}"; do
    server_value_is "${change%%=*}" "${change#*=}" || { echo "not reported: $change"; return 1; }
  done
}

changes_gone() {
  device_value_is hostname "$factory_hostname" && device_value_is wl0_ssid "$factory_ssid" &&
    device_value_is firewall_access3_status "" && server_value_is hostname "$factory_hostname"
}

server_heard_status_again() {
  local time
  time=$(rcmctl --json get "$serial" wan_uptime | jq -r .time)
  [ "$time" -ge "$1" ] && rcmctl --json get "$serial" lan_lease_maxunit >/dev/null
}

factory_hostname=$(on_device get hostname)
factory_ssid=$(on_device get wl0_ssid)

step "one CONFIG request sets a variable of every kind" rcmctl set "$serial" "${changes[@]}"
step "the router's own tool reads each of them" changed_on_device
before=$(registrations)
step "a unit in the request chooses the wireless unit" rcmctl set "$serial" wl_ssid=upstairs --unit 1
step "and only that one" device_value_is wl1_ssid upstairs
asked=$(date +%s)
step "on request the router reports its status" rcmctl status "$serial"
step "and the report reaches the server" within 10 server_heard_status_again "$asked"
step "a commit restarts the router" rcmctl commit "$serial"
step "it enrols again" within 30 registered_more_often_than "$before"
step "the committed values are there" changed_on_device
step "and stand in its next configuration report" within 20 changes_reported
before=$(registrations)
step "a request restores the factory's settings" rcmctl restore-defaults "$serial"
step "the router restarts and enrols" within 30 registered_more_often_than "$before"
step "the changes are gone" within 20 changes_gone
step "a change that nobody commits" rcmctl set "$serial" hostname=forgotten
stop_router
start_router
before=$(registrations)
step "does not outlive the power" within 30 device_value_is hostname "$factory_hostname"
