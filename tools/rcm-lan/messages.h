// The messages of the router's two local protocols, as a LAN computer writes and reads them. All
// numbers are big-endian; offsets are this tool's own, taken from docs/local-protocols.md and not
// from the daemon.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rcm_lan {

using Bytes = std::vector<std::uint8_t>;
using Address = std::array<std::uint8_t, 4>; ///< IPv4, network order

/// What a router says of itself.
struct Router {
  Address address{};
  Address netmask{};
  std::array<std::uint8_t, 6> mac{};
  std::string model; ///< control characters are replaced by '?'
  std::uint32_t reconnect_interval_s = 0;
};

/// The values that a set carries; what is absent stays as it is.
struct Changes {
  std::optional<std::string> community; ///< at most 32 bytes
  std::optional<Address> lan_address;
  std::optional<Address> lan_address2; ///< wins over lan_address
  std::optional<std::uint32_t> reconnect_interval_s;
};

/// The two messages to UDP port 2719, 696 bytes each.
Bytes discovery_request();
Bytes set_request(const Changes& changes);

/// Nothing when the datagram is not the reply.
std::optional<Router> read_discovery_reply(const Bytes& datagram);
bool is_set_reply(const Bytes& datagram);

enum class Order : std::uint16_t { kConnect = 1, kDisconnect = 2, kStatus = 3 };

/// A request to port 5000, 12 bytes. The router echoes `tag`.
Bytes manager_request(Order order, std::uint32_t tag);

/// @return the result word of the 16-byte response to that request; nothing when it is not that
std::optional<std::uint32_t> read_manager_response(const Bytes& message, Order order,
                                                   std::uint32_t tag);

/// Dotted form, and the address of a dotted text.
std::string text_of(const Address& address);
std::optional<Address> address_of(const std::string& text);

} // namespace rcm_lan
