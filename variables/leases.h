// The leases of the LAN's DHCP server, as records of the status report.
//
// The lease file "/tmp/udhcpd.leases" is a run of 88-byte records; a last one that is cut short
// does not count.
#pragma once

#include "core/context.h"
#include "core/wire.h"
#include "rcm/packet.h"

#include <cstddef>
#include <cstdint>

namespace rcmd {

struct LeaseRecord {                 // as in the file
  std::uint8_t hardware_address[16]; ///< the MAC address is the first 6; all zero: no lease
  std::uint8_t address[4];           ///< IPv4
  be32 remaining_s;
  char host_name[64]; ///< without a NUL when all 64 are used
};
static_assert(sizeof(LeaseRecord) == 88 && offsetof(LeaseRecord, host_name) == 24);

/// Has the DHCP server write its file out, then sends "lan_lease0=ADDRESS,MAC,HOST,END" and so on
/// and at last, in a packet of its own, "lan_lease_maxunit=" with their number; with 0 when there
/// is no file. END is the system uptime in seconds at which the lease ends.
/// @return 0, or -1 when a packet was not acknowledged; without a file always 0
[[nodiscard]] int do_send_dhcp_status(RcmContext* context, PacketType type);

} // namespace rcmd
