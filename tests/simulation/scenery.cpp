#include "tests/simulation/scenery.h"

#include "tools/ring-syslogd/ring_line.h"
#include "tools/ring-syslogd/ring_memory.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>

using fake::world;

namespace sim {

namespace {

constexpr std::size_t kRingBytes = 16384;
constexpr const char* kSources[] = {"pppd[312]",  "modem[77]", "pluto[91]", "udhcpd",
                                    "dnsmasq[5]", "cron[12]",  "kernel"};
constexpr const char* kSwitches[] = {
    "rcm_log_pppd", "rcm_log_modem", "rcm_log_pluto", "rcm_log_udhcpd", "rcm_log_dnsmasq", "", ""};
constexpr const char* kCounterKeys[] = {"wwan_tx_bytes", "wwan_rx_bytes", "wwan_tx_packets",
                                        "wwan_rx_packets"};

std::string mac_text(const std::array<std::uint8_t, 6>& mac, const char* format) {
  char text[24];
  std::snprintf(text, sizeof text, format, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

} // namespace

Scenery::Scenery(std::uint64_t seed, const Faults& faults, Ledger& ledger, Chronicle& chronicle)
    : random_(seed, 2), faults_(faults), ledger_(ledger), chronicle_(chronicle),
      period_s_(random_.between(20, 90)), lines_percent_(random_.between(5, 80)),
      ring_(kRingBytes / sizeof(std::uint32_t)) {
  world().ring = ring_.data();
  world().ring_bytes = kRingBytes;
  world().on_ioctl = [this](int, unsigned long request, void* argument) {
    return query_interface(request, argument);
  };
  world().on_wireless = [this](const std::string& name, int command, void* buffer, int) {
    return name == "eth1" ? query_wireless(command, buffer) : -1;
  };
}

Settings Scenery::factory_settings() {
  Settings settings = {
      {"SN", "SN0000000001"},
      {"product_model", "Simulated Router"},
      {"et0macaddr", "02:52:43:4D:00:01"},
      {"hostname", "router"},
      {"lan_ifname", "br0"},
      {"lan_ipaddr", "192.168.1.1"},
      {"lan_netmask", "255.255.255.0"},
      {"lan0_ifname", "br0"},
      {"lan0_ipaddr", "192.168.1.1"},
      {"wan0_ifname", "ppp0"},
      {"wan0_mode", "3"},
      {"wl_unit", "0"},
      {"wl0_ifname", "eth1"},
      {"wl0_ssid", "simulated"},
      {"wl0_macmode", "disabled"},
      {"wl0_wep", "disabled"},
      {"http_port", "80"},
      {"webGUI_username", "admin"},
      {"rcm_enable", "1"},
      {"jqa_reconnect_interval", "60"},
  };
  settings["wifi_supported"] = random_.percent(70) ? "1" : "0";
  settings["gps_send_interval"] = std::to_string(random_.between(30, 600));
  if (!random_.percent(2)) { // else once a second
    settings["rcm_log_interval"] = std::to_string(random_.between(15, 600));
  }
  for (const char* key : kSwitches) {
    if (*key != '\0' && random_.percent(30)) {
      settings[key] = random_.percent(50) ? "0" : "1";
    }
  }
  return settings;
}

void Scenery::boot(const std::string& firmware_version) {
  life_++;
  lines.clear();
  std::fill(ring_.begin(), ring_.end(), 0);
  rcmd::prepare_ring(ring_.data(), kRingBytes);
  world().readers = 0;
  std::remove(world().path("/tmp/udhcpd.leases").c_str());
  written_clients_.clear();
  interfaces_ = {
      {"lo", 5, 5, true}, {"br0", 0, 0, true}, {"eth1", 0, 0, true}, {"ppp0", 0, 0, true}};
  std::fill(std::begin(counters_), std::end(counters_), 0);
  clients_.clear();
  for (std::size_t i = random_.below(12); i > 0; i--) {
    const auto number = static_cast<std::uint8_t>(i);
    clients_.push_back({{2, 0xAB, 0, 0, 0x10, number},
                        static_cast<std::uint32_t>(random_.below(90000)),
                        random_.percent(70) ? "client-" + std::to_string(i) : ""});
  }
  stations_.clear();
  for (std::size_t i = random_.below(5); i > 0; i--) {
    stations_.push_back({{2, 0xAB, 0, 0, 0x20, static_cast<std::uint8_t>(i)},
                         static_cast<std::uint32_t>(random_.between(30, 90)),
                         ""});
  }
  ledger_.software_sets("version_firmware", firmware_version);
  change_wan();
  change_counters();
  write_interfaces();
  log_line();
  schedule();
}

void Scenery::schedule() {
  const std::int64_t after_ms = period_s_ * 1000 + random_.between(0, 5000);
  world().after(after_ms, [this, life = life_] {
    if (life == life_) {
      tick();
    }
  });
}

void Scenery::tick() {
  change_counters();
  if (random_.percent(lines_percent_)) {
    for (std::size_t burst = random_.percent(3) ? random_.below(60) : 1; burst > 0; burst--) {
      log_line();
    }
  }
  if (++ticks_ % 16 == 0) {
    write_interfaces();
  }
  if (random_.percent(faults_.redials)) {
    change_wan();
    log_line();
  }
  schedule();
}

void Scenery::change_counters() {
  for (std::size_t i = 0; i < 4; i++) {
    counters_[i] += static_cast<std::uint32_t>(random_.below(i < 2 ? 400'000'000 : 5000));
    ledger_.software_sets(kCounterKeys[i], std::to_string(counters_[i]));
  }
  for (Interface& interface : interfaces_) {
    interface.rx_packets += static_cast<std::uint32_t>(random_.below(3000));
    interface.tx_packets += static_cast<std::uint32_t>(random_.below(3000));
  }
  world().memory.free = 1000 + static_cast<std::uint32_t>(random_.below(6000));
  char position[32];
  std::snprintf(position, sizeof position, "%.4f", 48.0 + random_.between(0, 9999) / 10000.0);
  ledger_.software_sets("gps_lat", position);
  ledger_.software_sets("gps_long", std::to_string(16 + random_.below(9)));
  ledger_.software_sets("wan0_wwan_rssi", std::to_string(random_.between(-110, -50)));
  ledger_.software_sets("wan0_uptime", std::to_string(world().now_ms / 1000));
}

// A cellular link gets another address whenever it is dialled.
void Scenery::change_wan() {
  wan_address = 0x0A000000 + static_cast<std::uint32_t>(random_.below(1 << 16)) + 0x10000;
  std::fill(std::begin(counters_), std::end(counters_), 0);
  char text[20];
  std::snprintf(text, sizeof text, "10.%u.%u.%u", wan_address >> 16 & 0xFF, wan_address >> 8 & 0xFF,
                wan_address & 0xFF);
  ledger_.software_sets("wan0_ipaddr", text);
  chronicle_.tell("the WAN link is up with address %s", text);
}

void Scenery::write_interfaces() {
  std::string text = "Inter-|   Receive |  Transmit\n face |bytes packets compressed multicast|\n";
  for (const Interface& interface : interfaces_) {
    char line[160];
    std::snprintf(line, sizeof line, "%6s:%u %u 0 0 0 0 0 0 %u %u 0 0 0 0 0 0\n",
                  interface.name.c_str(), interface.rx_packets * 300, interface.rx_packets,
                  interface.tx_packets * 300, interface.tx_packets);
    text += line;
  }
  world().write_file("/proc/net/dev", text);
  written_interfaces_ = interfaces_;
}

void Scenery::log_line() {
  const std::size_t source = random_.below(std::size(kSources));
  const std::string message = std::string(kSources[source]) + ": event " +
                              std::to_string(messages_++) +
                              std::string(random_.percent(3) ? random_.below(900) : 0, '.');
  char line[rcmd::kMaxLineChars + 1];
  const std::int64_t uptime_s = world().uptime_base + world().now_ms / 1000;
  const std::string datagram = "<30>" + message;
  const std::size_t length =
      rcmd::make_ring_line(line, {uptime_s, "router"}, datagram.data(), datagram.size());
  rcmd::append_line(ring_.data(), kRingBytes, line, length);
  lines[message] = {server_time_s(), *kSwitches[source] != '\0' &&
                                         value_of(ledger_.live(), kSwitches[source]) == "0"};
}

void Scenery::write_leases() {
  std::string file;
  for (const Neighbour& client : clients_) {
    std::string record(88, '\0');
    std::copy(client.mac.begin(), client.mac.end(), record.begin());
    record[16] = static_cast<char>(192);
    record[17] = static_cast<char>(168);
    record[18] = 1;
    record[19] = static_cast<char>(client.mac[5] + 100);
    for (std::size_t i = 0; i < 4; i++) {
      record[20 + i] = static_cast<char>(client.number >> (24 - 8 * i));
    }
    std::copy(client.name.begin(), client.name.end(), record.begin() + 24);
    file += record;
    if (random_.percent(20)) {
      file += std::string(88, '\0'); // a free place
    }
  }
  world().write_file("/tmp/udhcpd.leases", file);
  written_clients_ = clients_;
}

bool Scenery::has_interface(const std::string& name) const {
  return std::any_of(written_interfaces_.begin(), written_interfaces_.end(),
                     [&](const Interface& interface) { return interface.name == name; });
}

std::string Scenery::interface_status(const std::string& what, const std::string& key) const {
  const std::string name = value_of(ledger_.live(), key);
  for (const Interface& interface : written_interfaces_) {
    if (interface.name != name) {
      continue;
    }
    if (what == "status") {
      return interface.up ? "1" : "0";
    }
    return std::to_string(what == "inpkts" ? interface.rx_packets : interface.tx_packets);
  }
  return what == "status" ? "" : "0";
}

std::string Scenery::lease_text(std::size_t index) const {
  const Neighbour& client = written_clients_[index];
  const std::int64_t uptime_s = world().uptime_base + world().now_ms / 1000;
  return "192.168.1." + std::to_string(client.mac[5] + 100) + "," +
         mac_text(client.mac, "%02X:%02x:%02X:%02X:%02X:%02X") + "," +
         (client.name.empty() ? "unknown" : client.name) + "," +
         std::to_string(uptime_s + client.number);
}

std::optional<std::string> Scenery::status(const std::string& name) const {
  const MemoryInfo& memory = world().memory;
  if (name.starts_with("lan_lease")) {
    const std::string index = name.substr(9);
    if (index == "_maxunit") {
      return std::to_string(written_clients_.size());
    }
    const std::size_t number = std::stoul(index);
    return number < written_clients_.size() ? std::optional(lease_text(number)) : std::nullopt;
  }
  if (name.starts_with("wl0_sta")) {
    const std::string index = name.substr(7);
    if (index == "_maxunit") {
      return std::to_string(stations_.size());
    }
    const Neighbour& station = stations_.at(std::stoul(index));
    return mac_text(station.mac, "%02X:%02X:%02X:%02X:%02X:%02X") + ",-" +
           std::to_string(station.number);
  }
  if (name == "mem_usage") {
    return std::to_string(100 - (memory.free + memory.cached) * 100 / memory.total);
  }
  if (name == "mem_total") {
    return std::to_string(memory.total * 1024);
  }
  if (name == "wan_inpkts" || name == "wan_outpkts") {
    return interface_status(name.substr(4), "wan0_ifname");
  }
  if (name == "lan_status" || name == "lan_inpkts" || name == "lan_outpkts") {
    return interface_status(name.substr(4), "lan_ifname");
  }
  if (name.starts_with("wan_")) {
    return value_of(ledger_.live(), "wan0_" + name.substr(4));
  }
  return std::nullopt;
}

int Scenery::query_interface(unsigned long request, void* argument) const {
  auto* query = static_cast<ifreq*>(argument);
  const std::string name(query->ifr_name, strnlen(query->ifr_name, IFNAMSIZ));
  for (const Interface& interface : interfaces_) {
    if (interface.name == name && request == SIOCGIFFLAGS) {
      query->ifr_flags = interface.up ? IFF_UP | IFF_RUNNING : 0;
      return 0;
    }
    if (interface.name == name && request == SIOCGIFHWADDR) {
      query->ifr_hwaddr.sa_family = name == "ppp0" ? ARPHRD_PPP : ARPHRD_ETHER;
      return 0;
    }
  }
  return -1;
}

int Scenery::query_wireless(int command, void* buffer) const {
  auto* bytes = static_cast<std::uint8_t*>(buffer);
  if (command == 262) {
    const auto count = static_cast<std::uint32_t>(stations_.size());
    std::memcpy(bytes, &count, sizeof count);
    for (std::size_t i = 0; i < stations_.size(); i++) {
      std::copy(stations_[i].mac.begin(), stations_[i].mac.end(), bytes + 4 + 6 * i);
    }
    return 0;
  }
  for (const Neighbour& station : stations_) {
    if (command == 127 && std::equal(station.mac.begin(), station.mac.end(), bytes + 4)) {
      const std::int32_t signal = -static_cast<std::int32_t>(station.number);
      std::memcpy(bytes, &signal, sizeof signal);
      return 0;
    }
  }
  return -1;
}

} // namespace sim
