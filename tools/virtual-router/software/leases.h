// The pretend DHCP server's lease file: 88-byte records of hardware address (16 bytes), IPv4
// address in network order (4), remaining seconds (big-endian, 4) and host name (64 bytes,
// NUL-terminated).
#pragma once

#include <cstdint>
#include <string>

namespace virtual_router {

/// The whole file at `uptime_s`. Three clients (the last has no name) and one free record, whose
/// hardware address is zero. Each client renews when half of its time is over.
/// @param first_address  where the server's range starts, host byte order
std::string lease_file(std::uint32_t first_address, std::uint32_t lease_s, std::uint32_t uptime_s);

/// The same from the settings store: "lan_dhcp_start", "lan_dhcp_lease"; empty when
/// "lan_dhcp_enable" is "0".
std::string lease_file_by_settings(std::uint32_t uptime_s);

} // namespace virtual_router
