#include "variables/tables.h"

#include "reporters/status.h"
#include "variables/firewall.h"
#include "variables/generic.h"
#include "variables/lan_dhcp.h"
#include "variables/wireless.h"

#include <iterator>
#include <string_view>

namespace rcmd {

// clang-format off
constexpr VariableEntry config_variables[] = {
    {"console", kPlain, generic_nvram_get, generic_nvram_set},
    {"hostname", kPlain, generic_nvram_get, generic_nvram_set},
    {"gps_send_interval", kPlain, generic_nvram_get, generic_nvram_set},
    {"lan_ipaddr", kPlain, generic_nvram_get, generic_nvram_set},
    {"lan_netmask", kPlain, generic_nvram_get, generic_nvram_set},
    {"lan_dhcp_enable", kPlain, generic_nvram_get, generic_nvram_set},
    {"lan_dhcp_lease", kPlain, generic_nvram_get, generic_nvram_set},
    {"lan_dhcp_start", kPlain, generic_nvram_get, generic_nvram_set},
    {"lan_dhcp_end", kPlain, generic_nvram_get, generic_nvram_set},
    {"lan_dhcp_rule0", kPlain, lan_dhcp_rule_get, lan_dhcp_rule_set},
    {"lan_dhcp_rule1", kPlain, lan_dhcp_rule_get, lan_dhcp_rule_set},
    {"lan_dhcp_rule2", kPlain, lan_dhcp_rule_get, lan_dhcp_rule_set},
    {"lan_dhcp_rule3", kPlain, lan_dhcp_rule_get, lan_dhcp_rule_set},
    {"lan_dhcp_rule4", kPlain, lan_dhcp_rule_get, lan_dhcp_rule_set},
    {"lan_dhcp_rule5", kPlain, lan_dhcp_rule_get, lan_dhcp_rule_set},
    {"lan_dhcp_rule6", kPlain, lan_dhcp_rule_get, lan_dhcp_rule_set},
    {"lan_dhcp_rule7", kPlain, lan_dhcp_rule_get, lan_dhcp_rule_set},
    {"network_ddns_enable", kPlain, generic_nvram_get, generic_nvram_set},
    {"network_ddns_username", kPlain, generic_nvram_get, generic_nvram_set},
    {"network_ddns_password", kPlain, generic_nvram_get, generic_nvram_set},
    {"network_ddns_domain", kPlain, generic_nvram_get, generic_nvram_set},
    {"network_ddns_wildcard", kPlain, generic_nvram_get, generic_nvram_set},
    {"network_ddns_provider", kPlain, generic_nvram_get, generic_nvram_set},
    {"wl_radio", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_ssid", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_closed", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_channel", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_ap_isolate", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_auth_mode", kPerWireless, wl_auth_mode_get, wl_auth_mode_set},
    {"wl_wep", kPerWireless, wl_wep_get, wl_wep_set},
    {"wl_key", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_key1", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_key2", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_key3", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_key4", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_crypto", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_wpa_psk", kPerWireless, generic_nvram_get, generic_nvram_set},
    {"wl_macmode", kPerWireless, wl_macmode_get, wl_macmode_set},
    {"wl_macrule0", kPerWireless, generic_nvram_get, wl_macrule_set},
    {"wl_macrule1", kPerWireless, generic_nvram_get, wl_macrule_set},
    {"wl_macrule2", kPerWireless, generic_nvram_get, wl_macrule_set},
    {"wl_macrule3", kPerWireless, generic_nvram_get, wl_macrule_set},
    {"wl_macrule4", kPerWireless, generic_nvram_get, wl_macrule_set},
    {"wl_macrule5", kPerWireless, generic_nvram_get, wl_macrule_set},
    {"wl_macrule6", kPerWireless, generic_nvram_get, wl_macrule_set},
    {"wl_macrule7", kPerWireless, generic_nvram_get, wl_macrule_set},
    {"wan_mode", kPerWan, generic_nvram_get, generic_nvram_set},
    {"wan_keepalive", kPerWan, generic_nvram_get, generic_nvram_set},
    {"wan_keepalive_interval", kPerWan, generic_nvram_get, generic_nvram_set},
    {"wan_keepalive_reset_interval", kPerWan, generic_nvram_get, generic_nvram_set},
    {"wan_keepalive_reboot_interval", kPerWan, generic_nvram_get, generic_nvram_set},
    {"firewall_access_policy", kPlain, generic_nvram_get, generic_nvram_set},
    {"firewall_access_rule0", kPlain, firewall_access_get, firewall_access_set},
    {"firewall_access_rule1", kPlain, firewall_access_get, firewall_access_set},
    {"firewall_access_rule2", kPlain, firewall_access_get, firewall_access_set},
    {"firewall_access_rule3", kPlain, firewall_access_get, firewall_access_set},
    {"firewall_access_rule4", kPlain, firewall_access_get, firewall_access_set},
    {"firewall_access_rule5", kPlain, firewall_access_get, firewall_access_set},
    {"firewall_access_rule6", kPlain, firewall_access_get, firewall_access_set},
    {"firewall_access_rule7", kPlain, firewall_access_get, firewall_access_set},
    {"firewall_portforwarding_rule0", kPlain, firewall_portforwarding_get, firewall_portforwarding_set},
    {"firewall_portforwarding_rule1", kPlain, firewall_portforwarding_get, firewall_portforwarding_set},
    {"firewall_portforwarding_rule2", kPlain, firewall_portforwarding_get, firewall_portforwarding_set},
    {"firewall_portforwarding_rule3", kPlain, firewall_portforwarding_get, firewall_portforwarding_set},
    {"firewall_portforwarding_rule4", kPlain, firewall_portforwarding_get, firewall_portforwarding_set},
    {"firewall_portforwarding_rule5", kPlain, firewall_portforwarding_get, firewall_portforwarding_set},
    {"firewall_portforwarding_rule6", kPlain, firewall_portforwarding_get, firewall_portforwarding_set},
    {"firewall_portforwarding_rule7", kPlain, firewall_portforwarding_get, firewall_portforwarding_set},
    {"http_port", kPlain, generic_nvram_get, generic_nvram_set},
    {"http_wanport", kPlain, generic_nvram_get, generic_nvram_set},
    {"webGUI_username", kPlain, generic_nvram_get, generic_nvram_set},
    {"webGUI_passwd", kPlain, generic_nvram_get, generic_nvram_set},
    {"webGUI_wan", kPlain, generic_nvram_get, generic_nvram_set},
    {"rcm_enable", kPlain, generic_nvram_get, generic_nvram_set},
    {"rcm_server", kPlain, generic_nvram_get, generic_nvram_set},
    // DELIBERATE: the server may read the LAN's MAC address but never change it.
    {"et0macaddr", kPlain, generic_nvram_get, nullptr},
    {nullptr, kPlain, nullptr, nullptr},
};

constexpr VariableEntry information_variables[] = {
    {"lan_status", kPlain, interfaces_info_get, nullptr},
    {"lan_inpkts", kPlain, interfaces_info_get, nullptr},
    {"lan_outpkts", kPlain, interfaces_info_get, nullptr},
    {"mem_usage", kPlain, memusage_get, nullptr},
    {"mem_total", kPlain, memtotal_get, nullptr},
    {"wan_uptime", kPerWan, generic_nvram_get, nullptr},
    {"wan_wwan_gps", kPerWan, generic_nvram_get, nullptr},
    {"wan_wwan_prodid", kPerWan, generic_nvram_get, nullptr},
    {"wan_ipaddr", kPerWan, generic_nvram_get, nullptr},
    {"wan_wwan_rssi", kPerWan, generic_nvram_get, nullptr},
    {"wan_wwan_esn", kPerWan, generic_nvram_get, nullptr},
    {"wan_inpkts", kPerWan, interfaces_info_get, nullptr},
    {"wan_outpkts", kPerWan, interfaces_info_get, nullptr},
    {nullptr, kPlain, nullptr, nullptr},
};
// clang-format on

namespace {

constexpr VariableScope scope_of(std::string_view name) {
  if (name.starts_with("wl_")) {
    return kPerWireless;
  }
  return name.starts_with("wan_") ? kPerWan : kPlain;
}

// A function's address is no constant under some sanitizers; it is not null then either.
constexpr bool is_null(decltype(VariableEntry::get) handler) {
  return __builtin_constant_p(handler == nullptr) && handler == nullptr;
}

// Every row named once, readable, and of the scope that its prefix tells; an empty row at the end.
template <std::size_t N> constexpr bool table_is_sound(const VariableEntry (&table)[N]) {
  for (std::size_t i = 0; i + 1 < N; i++) {
    if (table[i].name == nullptr || is_null(table[i].get) ||
        table[i].scope != scope_of(table[i].name)) {
      return false;
    }
    for (std::size_t other = 0; other < i; other++) {
      if (std::string_view(table[other].name) == table[i].name) {
        return false;
      }
    }
  }
  const VariableEntry& last = table[N - 1];
  return last.name == nullptr && last.scope == kPlain && last.get == nullptr && last.set == nullptr;
}

constexpr bool read_only(const VariableEntry* row) {
  while (row->name != nullptr && row->set == nullptr) {
    row++;
  }
  return row->name == nullptr;
}

static_assert(std::size(config_variables) == kConfigRows + 1);
static_assert(std::size(information_variables) == kInformationRows + 1);
static_assert(table_is_sound(config_variables));
static_assert(table_is_sound(information_variables));
static_assert(read_only(information_variables));

} // namespace

} // namespace rcmd
