// Interface statistics: the router's network interfaces with their addresses and counters, as
// "/proc/net/dev" and the socket queries tell them. One attribute is asked for by a column number
// in the manner of RFC 1213's ifTable.
#pragma once

#include <cstdint>
#include <netinet/in.h>

namespace rcmd {

struct NetIf {
  char* if_name; ///< owned: the name before its first digit ("eth")
  char* if_unit; ///< owned: the rest ("0"), empty when there is no digit
  std::uint16_t mtu;
  std::uint16_t if_flags;
  std::int32_t metric;
  std::uint8_t hwaddr[6];
  std::int32_t if_type; ///< an IANA ifType number
  std::uint32_t speed;  ///< nominal, bit/s
  sockaddr_in addr;     ///< what a query does not tell is zero
  sockaddr_in broadaddr;
  sockaddr_in netmask;
  std::uint32_t rx_bytes, rx_packets, rx_errors; ///< the low 32 bits of the kernel's counters
  std::uint32_t tx_bytes, tx_packets, tx_errors;
  std::uint32_t collisions;
  NetIf* next;
};

/// The interfaces in the order of "/proc/net/dev"; the module owns all of them.
extern NetIf* interface_list;

enum NetIfColumn {
  kIfSpeed = 5,
  kIfPhysAddress = 6, ///< 6 bytes; all others have 4
  kIfAdminStatus = 7, ///< 1 up, 2 down
  kIfOperStatus = 8,  ///< 1 running, 2 not
  kIfInOctets = 10,
  kIfInUcastPkts = 11,
  kIfInErrors = 14,
  kIfOutOctets = 16,
  kIfOutUcastPkts = 17,
  kIfOutErrors = 20,
  kIfAddress = 23, ///< from here on the module's own; IPv4 in network byte order
  kIfNetmask = 24,
  kIfCollisions = 25,
};

/// Builds the list anew; when memory is out it ends with what it holds.
/// @return 0, or -1 (and an empty list) without a socket or the file
int netif_init();

/// Frees the list. @return 0
int netif_fina();

/// Writes the attribute of the interface with exactly this name to `out`, which needs no alignment;
/// numbers are in host order.
/// @return the number of bytes written, or -1 without such an interface or column
int netif_get(const char* name, int column, void* out);

/// The ifType that an interface's name without its unit tells; 1 (other) when it tells none.
std::int32_t netif_type_by_name(const char* if_name);

} // namespace rcmd
