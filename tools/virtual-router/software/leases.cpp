#include "tools/virtual-router/software/leases.h"

#include "platform/api/nvram.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>

namespace virtual_router {

namespace {

struct Client {
  unsigned char mac[6];
  std::uint32_t offset; ///< from the range's first address
  std::uint32_t since_s;
  const char* name;
};

constexpr Client kClients[] = {
    {{0x02, 0xAB, 0x00, 0x00, 0x10, 0x01}, 0, 0, "desk-pc"},
    {{0, 0, 0, 0, 0, 0}, 1, 0, "gone"},
    {{0x02, 0xCD, 0x00, 0x00, 0x10, 0x02}, 2, 7, "camera-yard"},
    {{0x02, 0xEF, 0x00, 0x00, 0x10, 0x03}, 3, 11, ""},
};

void append_be32(std::string& bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(value >> shift & 0xFF);
}

void append_padded(std::string& bytes, std::string field, std::size_t size) {
  field.resize(size, '\0');
  bytes += field;
}

std::string text_of(const char* name, const char* otherwise) {
  const char* value = nvram_get(name);
  return value != nullptr && *value != '\0' ? value : otherwise;
}

} // namespace

std::string lease_file(std::uint32_t first_address, std::uint32_t lease_s, std::uint32_t uptime_s) {
  std::string file;
  const std::uint32_t renews_after_s = std::max(lease_s / 2, std::uint32_t{1});
  for (const auto& client : kClients) {
    append_padded(file, {reinterpret_cast<const char*>(client.mac), 6}, 16);
    append_be32(file, first_address + client.offset);
    append_be32(file, lease_s - (uptime_s + client.since_s) % renews_after_s);
    append_padded(file, client.name, 64);
  }
  return file;
}

std::string lease_file_by_settings(std::uint32_t uptime_s) {
  if (text_of("lan_dhcp_enable", "1") == "0")
    return {};
  in_addr first{};
  if (inet_aton(text_of("lan_dhcp_start", "192.168.1.100").c_str(), &first) == 0)
    return {};
  const auto lease_s = std::strtoul(text_of("lan_dhcp_lease", "86400").c_str(), nullptr, 10);
  return lease_file(ntohl(first.s_addr), static_cast<std::uint32_t>(lease_s), uptime_s);
}

} // namespace virtual_router
