// Every configuration variable on its whole way: set by a request, kept in nvram, reported again.
#include "reporters/status.h"
#include "tests/variables/kit.h"
#include "variables/generic.h"
#include "variables/remote_config.h"
#include "variables/reports.h"

using namespace rcmd;
using fake::world;
using kit::Texts;

namespace {

struct Way {
  const char* name;
  VariableScope scope;
  const char* sent;
  const char* key; // one that must hold `stored` then
  const char* stored;
  const char* reported;
};

// clang-format off
constexpr Way kWays[] = {
    {"console", kPlain, "value of console", "console", "value of console", "value of console"},
    {"hostname", kPlain, "value of hostname", "hostname", "value of hostname", "value of hostname"},
    {"gps_send_interval", kPlain, "value of gps_send_interval", "gps_send_interval", "value of gps_send_interval", "value of gps_send_interval"},
    {"lan_ipaddr", kPlain, "value of lan_ipaddr", "lan_ipaddr", "value of lan_ipaddr", "value of lan_ipaddr"},
    {"lan_netmask", kPlain, "value of lan_netmask", "lan_netmask", "value of lan_netmask", "value of lan_netmask"},
    {"lan_dhcp_enable", kPlain, "value of lan_dhcp_enable", "lan_dhcp_enable", "value of lan_dhcp_enable", "value of lan_dhcp_enable"},
    {"lan_dhcp_lease", kPlain, "value of lan_dhcp_lease", "lan_dhcp_lease", "value of lan_dhcp_lease", "value of lan_dhcp_lease"},
    {"lan_dhcp_start", kPlain, "value of lan_dhcp_start", "lan_dhcp_start", "value of lan_dhcp_start", "value of lan_dhcp_start"},
    {"lan_dhcp_end", kPlain, "value of lan_dhcp_end", "lan_dhcp_end", "value of lan_dhcp_end", "value of lan_dhcp_end"},
    {"lan_dhcp_rule0", kPlain, "rule 0,x=y", "lan_dhcp0_rule", "rule 0,x=y", "rule 0,x=y"},
    {"lan_dhcp_rule1", kPlain, "rule 1,x=y", "lan_dhcp1_rule", "rule 1,x=y", "rule 1,x=y"},
    {"lan_dhcp_rule2", kPlain, "rule 2,x=y", "lan_dhcp2_rule", "rule 2,x=y", "rule 2,x=y"},
    {"lan_dhcp_rule3", kPlain, "rule 3,x=y", "lan_dhcp3_rule", "rule 3,x=y", "rule 3,x=y"},
    {"lan_dhcp_rule4", kPlain, "rule 4,x=y", "lan_dhcp4_rule", "rule 4,x=y", "rule 4,x=y"},
    {"lan_dhcp_rule5", kPlain, "rule 5,x=y", "lan_dhcp5_rule", "rule 5,x=y", "rule 5,x=y"},
    {"lan_dhcp_rule6", kPlain, "rule 6,x=y", "lan_dhcp6_rule", "rule 6,x=y", "rule 6,x=y"},
    {"lan_dhcp_rule7", kPlain, "rule 7,x=y", "lan_dhcp7_rule", "rule 7,x=y", "rule 7,x=y"},
    {"network_ddns_enable", kPlain, "value of network_ddns_enable", "network_ddns_enable", "value of network_ddns_enable", "value of network_ddns_enable"},
    {"network_ddns_username", kPlain, "value of network_ddns_username", "network_ddns_username", "value of network_ddns_username", "value of network_ddns_username"},
    {"network_ddns_password", kPlain, "value of network_ddns_password", "network_ddns_password", "value of network_ddns_password", "value of network_ddns_password"},
    {"network_ddns_domain", kPlain, "value of network_ddns_domain", "network_ddns_domain", "value of network_ddns_domain", "value of network_ddns_domain"},
    {"network_ddns_wildcard", kPlain, "value of network_ddns_wildcard", "network_ddns_wildcard", "value of network_ddns_wildcard", "value of network_ddns_wildcard"},
    {"network_ddns_provider", kPlain, "value of network_ddns_provider", "network_ddns_provider", "value of network_ddns_provider", "value of network_ddns_provider"},
    {"wl_radio", kPerWireless, "value of wl_radio", "wl0_radio", "value of wl_radio", "value of wl_radio"},
    {"wl_ssid", kPerWireless, "value of wl_ssid", "wl0_ssid", "value of wl_ssid", "value of wl_ssid"},
    {"wl_closed", kPerWireless, "value of wl_closed", "wl0_closed", "value of wl_closed", "value of wl_closed"},
    {"wl_channel", kPerWireless, "value of wl_channel", "wl0_channel", "value of wl_channel", "value of wl_channel"},
    {"wl_ap_isolate", kPerWireless, "value of wl_ap_isolate", "wl0_ap_isolate", "value of wl_ap_isolate", "value of wl_ap_isolate"},
    {"wl_auth_mode", kPerWireless, "3", "wl0_akm", "psk", "3"},
    {"wl_wep", kPerWireless, "1", "wl0_wep", "enabled", "1"},
    {"wl_key", kPerWireless, "value of wl_key", "wl0_key", "value of wl_key", "value of wl_key"},
    {"wl_key1", kPerWireless, "value of wl_key1", "wl0_key1", "value of wl_key1", "value of wl_key1"},
    {"wl_key2", kPerWireless, "value of wl_key2", "wl0_key2", "value of wl_key2", "value of wl_key2"},
    {"wl_key3", kPerWireless, "value of wl_key3", "wl0_key3", "value of wl_key3", "value of wl_key3"},
    {"wl_key4", kPerWireless, "value of wl_key4", "wl0_key4", "value of wl_key4", "value of wl_key4"},
    {"wl_crypto", kPerWireless, "value of wl_crypto", "wl0_crypto", "value of wl_crypto", "value of wl_crypto"},
    {"wl_wpa_psk", kPerWireless, "value of wl_wpa_psk", "wl0_wpa_psk", "value of wl_wpa_psk", "value of wl_wpa_psk"},
    {"wl_macmode", kPerWireless, "2", "wl0_macmode", "allow", "2"},
    {"wl_macrule0", kPerWireless, "00:11:22:33:44:50 tail", "wl0_maclist", "00:11:22:33:44:50", "00:11:22:33:44:50 tail"},
    {"wl_macrule1", kPerWireless, "00:11:22:33:44:51 tail", "wl0_maclist", "00:11:22:33:44:51", "00:11:22:33:44:51 tail"},
    {"wl_macrule2", kPerWireless, "00:11:22:33:44:52 tail", "wl0_maclist", "00:11:22:33:44:52", "00:11:22:33:44:52 tail"},
    {"wl_macrule3", kPerWireless, "00:11:22:33:44:53 tail", "wl0_maclist", "00:11:22:33:44:53", "00:11:22:33:44:53 tail"},
    {"wl_macrule4", kPerWireless, "00:11:22:33:44:54 tail", "wl0_maclist", "00:11:22:33:44:54", "00:11:22:33:44:54 tail"},
    {"wl_macrule5", kPerWireless, "00:11:22:33:44:55 tail", "wl0_maclist", "00:11:22:33:44:55", "00:11:22:33:44:55 tail"},
    {"wl_macrule6", kPerWireless, "00:11:22:33:44:56 tail", "wl0_maclist", "00:11:22:33:44:56", "00:11:22:33:44:56 tail"},
    {"wl_macrule7", kPerWireless, "00:11:22:33:44:57 tail", "wl0_maclist", "00:11:22:33:44:57", "00:11:22:33:44:57 tail"},
    {"wan_mode", kPerWan, "value of wan_mode", "wan0_mode", "value of wan_mode", "value of wan_mode"},
    {"wan_keepalive", kPerWan, "value of wan_keepalive", "wan0_keepalive", "value of wan_keepalive", "value of wan_keepalive"},
    {"wan_keepalive_interval", kPerWan, "value of wan_keepalive_interval", "wan0_keepalive_interval", "value of wan_keepalive_interval", "value of wan_keepalive_interval"},
    {"wan_keepalive_reset_interval", kPerWan, "value of wan_keepalive_reset_interval", "wan0_keepalive_reset_interval", "value of wan_keepalive_reset_interval", "value of wan_keepalive_reset_interval"},
    {"wan_keepalive_reboot_interval", kPerWan, "value of wan_keepalive_reboot_interval", "wan0_keepalive_reboot_interval", "value of wan_keepalive_reboot_interval", "value of wan_keepalive_reboot_interval"},
    {"firewall_access_policy", kPlain, "value of firewall_access_policy", "firewall_access_policy", "value of firewall_access_policy", "value of firewall_access_policy"},
    {"firewall_access_rule0", kPlain, "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 0,0", "firewall_access0_desc", "web 0", "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 0,0"},
    {"firewall_access_rule1", kPlain, "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 1,1", "firewall_access1_desc", "web 1", "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 1,1"},
    {"firewall_access_rule2", kPlain, "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 2,0", "firewall_access2_desc", "web 2", "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 2,0"},
    {"firewall_access_rule3", kPlain, "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 3,1", "firewall_access3_desc", "web 3", "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 3,1"},
    {"firewall_access_rule4", kPlain, "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 4,0", "firewall_access4_desc", "web 4", "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 4,0"},
    {"firewall_access_rule5", kPlain, "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 5,1", "firewall_access5_desc", "web 5", "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 5,1"},
    {"firewall_access_rule6", kPlain, "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 6,0", "firewall_access6_desc", "web 6", "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 6,0"},
    {"firewall_access_rule7", kPlain, "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 7,1", "firewall_access7_desc", "web 7", "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web 7,1"},
    {"firewall_portforwarding_rule0", kPlain, "ppp0,udp,any,8000,192.168.1.9,80,0,cam,0", "firewall_portforwarding0_externalport", "8000", "ppp0,udp,any,8000,192.168.1.9,80,0,cam,0"},
    {"firewall_portforwarding_rule1", kPlain, "ppp0,udp,any,8010,192.168.1.9,80,0,cam,1", "firewall_portforwarding1_externalport", "8010", "ppp0,udp,any,8010,192.168.1.9,80,0,cam,1"},
    {"firewall_portforwarding_rule2", kPlain, "ppp0,udp,any,8020,192.168.1.9,80,0,cam,0", "firewall_portforwarding2_externalport", "8020", "ppp0,udp,any,8020,192.168.1.9,80,0,cam,0"},
    {"firewall_portforwarding_rule3", kPlain, "ppp0,udp,any,8030,192.168.1.9,80,0,cam,1", "firewall_portforwarding3_externalport", "8030", "ppp0,udp,any,8030,192.168.1.9,80,0,cam,1"},
    {"firewall_portforwarding_rule4", kPlain, "ppp0,udp,any,8040,192.168.1.9,80,0,cam,0", "firewall_portforwarding4_externalport", "8040", "ppp0,udp,any,8040,192.168.1.9,80,0,cam,0"},
    {"firewall_portforwarding_rule5", kPlain, "ppp0,udp,any,8050,192.168.1.9,80,0,cam,1", "firewall_portforwarding5_externalport", "8050", "ppp0,udp,any,8050,192.168.1.9,80,0,cam,1"},
    {"firewall_portforwarding_rule6", kPlain, "ppp0,udp,any,8060,192.168.1.9,80,0,cam,0", "firewall_portforwarding6_externalport", "8060", "ppp0,udp,any,8060,192.168.1.9,80,0,cam,0"},
    {"firewall_portforwarding_rule7", kPlain, "ppp0,udp,any,8070,192.168.1.9,80,0,cam,1", "firewall_portforwarding7_externalport", "8070", "ppp0,udp,any,8070,192.168.1.9,80,0,cam,1"},
    {"http_port", kPlain, "value of http_port", "http_port", "value of http_port", "value of http_port"},
    {"http_wanport", kPlain, "value of http_wanport", "http_wanport", "value of http_wanport", "value of http_wanport"},
    {"webGUI_username", kPlain, "value of webGUI_username", "webGUI_username", "value of webGUI_username", "value of webGUI_username"},
    {"webGUI_passwd", kPlain, "value of webGUI_passwd", "webGUI_passwd", "value of webGUI_passwd", "value of webGUI_passwd"},
    {"webGUI_wan", kPlain, "value of webGUI_wan", "webGUI_wan", "value of webGUI_wan", "value of webGUI_wan"},
    {"rcm_enable", kPlain, "value of rcm_enable", "rcm_enable", "value of rcm_enable", "value of rcm_enable"},
    {"rcm_server", kPlain, "value of rcm_server", "rcm_server", "value of rcm_server", "value of rcm_server"},
    {"et0macaddr", kPlain, "00:00:00:00:00:01", "et0macaddr", "00:11:22:33:44:55", "00:11:22:33:44:55"},
};
// clang-format on

class EveryRow : public kit::VariablesFixture {
protected:
  void set(const Way& way) {
    receive(kit::config_request(0, Texts{std::string(way.name) + "=" + way.sent}));
    rcm_config_func(&context);
  }
  Texts report() {
    world().sent.clear();
    EXPECT_EQ(do_config_send(&context), 0);
    return kit::sent_records();
  }
};

TEST_F(EveryRow, TheTableHoldsTheRowsInOrder) {
  ASSERT_EQ(std::size(kWays), 76U);
  for (std::size_t i = 0; i < std::size(kWays); i++) {
    EXPECT_STREQ(config_variables[i].name, kWays[i].name);
    EXPECT_EQ(config_variables[i].scope, kWays[i].scope) << kWays[i].name;
    EXPECT_EQ(config_variables[i].set == nullptr, i == 75) << kWays[i].name;
  }
  EXPECT_EQ(config_variables[76].name, nullptr);
}

TEST_F(EveryRow, TheStatusTableHoldsTheRowsInOrderAndNoWriter) {
  struct Row {
    const char* name;
    VariableScope scope;
    char* (*get)(std::int32_t, const VariableEntry*);
  };
  const Row rows[] = {
      {"lan_status", kPlain, interfaces_info_get},  {"lan_inpkts", kPlain, interfaces_info_get},
      {"lan_outpkts", kPlain, interfaces_info_get}, {"mem_usage", kPlain, memusage_get},
      {"mem_total", kPlain, memtotal_get},          {"wan_uptime", kPerWan, generic_nvram_get},
      {"wan_wwan_gps", kPerWan, generic_nvram_get}, {"wan_wwan_prodid", kPerWan, generic_nvram_get},
      {"wan_ipaddr", kPerWan, generic_nvram_get},   {"wan_wwan_rssi", kPerWan, generic_nvram_get},
      {"wan_wwan_esn", kPerWan, generic_nvram_get}, {"wan_inpkts", kPerWan, interfaces_info_get},
      {"wan_outpkts", kPerWan, interfaces_info_get}};
  ASSERT_EQ(std::size(rows), 13U);
  for (std::size_t i = 0; i < std::size(rows); i++) {
    EXPECT_STREQ(information_variables[i].name, rows[i].name);
    EXPECT_EQ(information_variables[i].scope, rows[i].scope) << rows[i].name;
    EXPECT_EQ(information_variables[i].get, rows[i].get) << rows[i].name;
    EXPECT_EQ(information_variables[i].set, nullptr) << rows[i].name;
  }
  EXPECT_EQ(information_variables[13].name, nullptr);
}

TEST_F(EveryRow, AValueSetByARequestComesBackInTheNextReport) {
  for (const Way& way : kWays) {
    world().nvram = {{"et0macaddr", "00:11:22:33:44:55"}};
    set(way);
    EXPECT_EQ(world().nvram[way.key], way.stored) << way.name;
    EXPECT_THAT(report(), testing::Contains(std::string(way.name) + "=" + way.reported));
  }
}

TEST_F(EveryRow, AllValuesSetInOneRequestComeBackInTheNextReport) {
  world().nvram = {{"et0macaddr", "00:11:22:33:44:55"}};
  Texts records;
  for (auto way = std::rbegin(kWays); way != std::rend(kWays); way++) {
    records.push_back(std::string(way->name) + "=" + way->sent);
  }
  receive(kit::config_request(0, records));
  rcm_config_func(&context);
  Texts expected;
  for (const VariableScope scope : {kPlain, kPerWireless, kPerWan}) {
    for (const Way& way : kWays) {
      if (way.scope == scope) {
        expected.push_back(std::string(way.name) + "=" + way.reported);
      }
    }
  }
  EXPECT_EQ(report(), expected);
}

} // namespace
