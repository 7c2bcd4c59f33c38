#include "tools/virtual-router/defaults.h"

#include <stdexcept>

namespace virtual_router {

namespace {

const std::vector<Setting> kFactoryTable = {
    // Identity
    {"SN", "VR0000000001"},
    {"version_firmware", "1.0.0"},
    {"product_model", "Virtual Router"},
    {"et0macaddr", "02:52:43:4D:00:01"},
    {"wan0_wwan_prodid", "VWM-200"},
    {"wan0_wwan_esn", "80F0A1B2"},
    // Administration
    {"console", "1"},
    {"hostname", "virtual-router"},
    {"http_port", "80"},
    {"http_wanport", "8080"},
    {"webGUI_username", "admin"},
    {"webGUI_passwd", "admin"},
    {"webGUI_wan", "0"},
    {"snmp_ro_sec", "public"},
    {"snmp_rw_sec", "private"},
    // Remote management
    {"rcm_enable", "1"},
    {"rcm_server", "127.0.0.1"},
    {"rcm_log_interval", "30"},
    {"gps_send_interval", "10"},
    // LAN
    {"lan_ifname", "br0"},
    {"lan_ipaddr", "192.168.1.1"},
    {"lan_netmask", "255.255.255.0"},
    {"lan_dhcp_enable", "1"},
    {"lan_dhcp_lease", "86400"},
    {"lan_dhcp_start", "192.168.1.100"},
    {"lan_dhcp_end", "192.168.1.149"},
    {"lan0_ifname", "br0"},
    {"lan0_ipaddr", "192.168.1.1"},
    {"network_ddns_enable", "0"},
    {"network_ddns_username", ""},
    {"network_ddns_password", ""},
    {"network_ddns_domain", ""},
    {"network_ddns_wildcard", "0"},
    {"network_ddns_provider", "0"},
    // Wireless unit 0
    {"wifi_supported", "1"},
    {"wl_unit", "0"},
    {"wl0_ifname", "eth1"},
    {"wl0_radio", "1"},
    {"wl0_ssid", "virtual-router"},
    {"wl0_closed", "0"},
    {"wl0_channel", "6"},
    {"wl0_ap_isolate", "0"},
    {"wl0_net_auth_mode", "3"},
    {"wl0_auth", "0"},
    {"wl0_auth_mode", "none"},
    {"wl0_akm", "psk"},
    {"wl0_wep", "disabled"},
    {"wl0_key", "1"},
    {"wl0_crypto", "aes"},
    {"wl0_wpa_psk", "let-me-in-please"},
    {"wl0_macmode", "disabled"},
    {"wl0_maclist", ""},
    // WAN unit 0: a WWAN link that is brought up at boot
    {"wan0_enable", "1"},
    {"wan0_ifname", "ppp0"},
    {"wan0_mode", "3"},
    {"wan0_wwan_mode", "3"},
    {"wan0_keepalive", "0"},
    {"wan0_keepalive_interval", "60"},
    {"wan0_keepalive_reset_interval", "600"},
    {"wan0_keepalive_reboot_interval", "3600"},
    {"jqa_reconnect_interval", "60"},
    // Firewall
    {"firewall_access_policy", "1"},
};

} // namespace

const std::vector<Setting>& factory_table() {
  return kFactoryTable;
}

Settings factory_settings(const std::vector<std::string>& overrides) {
  Settings settings;
  for (const auto& setting : factory_table())
    settings[setting.name] = setting.value;
  for (const auto& text : overrides) {
    const auto equals = text.find('=');
    if (equals == 0 || equals == std::string::npos)
      throw std::invalid_argument("\"" + text + "\" is not NAME=VALUE");
    settings[text.substr(0, equals)] = text.substr(equals + 1);
  }
  return settings;
}

const std::vector<std::string>& identity_names() {
  static const std::vector<std::string> names = {
      "SN", "version_firmware", "product_model", "et0macaddr", "wan0_wwan_prodid", "wan0_wwan_esn",
  };
  return names;
}

} // namespace virtual_router
