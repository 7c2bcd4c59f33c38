// The stations of the wireless access point, as records of the status report.
#pragma once

#include "core/context.h"
#include "rcm/packet.h"

namespace rcmd {

/// Sends "wl0_sta0=MAC,SIGNAL" and so on and at last, in a packet of its own, "wl0_sta_maxunit="
/// with their number. The interface is the one of the unit in nvram "wl_unit".
/// @return 0, or -1 when the driver refused a query, memory is out or a packet was not acknowledged
[[nodiscard]] int do_send_wl_stalist(RcmContext* context, PacketType type);

} // namespace rcmd
