// Registration: brings the device from unknown to the server to registered and reporting.
#pragma once

#include "core/context.h"

namespace rcmd {

/// Registers, takes the server's time and the keepalive parameters and sends both variable reports,
/// again and again until all of it succeeded; then arms the keepalive's timer and the four
/// reporting ones. Blocks the daemon, without limit. @return the result of the last add_event
int do_rcm_register(RcmContext* context);

} // namespace rcmd
