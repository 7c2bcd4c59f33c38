// The two reports of variables: settings (CONF) and status (STATUS).
//
// A report is a run of packets, each acknowledged before the next is built, and ends at the first
// that is not. It blocks the daemon: up to 20 seconds for each packet of a silent server. Every
// function answers 0, or -1 when the report ended early.
#pragma once

#include "core/context.h"
#include "rcm/packet.h"
#include "variables/entry.h"

namespace rcmd {

/// The plain, wireless and WAN settings, of unit 0 each.
[[nodiscard]] int do_config_send(RcmContext* context);

/// The plain and WAN status values, the DHCP leases, and on a router with wireless the stations.
[[nodiscard]] int do_information_send(RcmContext* context);

/// The plain rows of a table.
[[nodiscard]] int do_send_single_variable(RcmContext* context, const VariableEntry* table,
                                          PacketType type);

/// The rows of one scope, for the units 0 to `units` - 1.
[[nodiscard]] int do_send_multiple_variable(RcmContext* context, const VariableEntry* table,
                                            PacketType type, VariableScope scope, int units);

} // namespace rcmd
