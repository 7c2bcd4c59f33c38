// Requests of the server that have no handler of their own: commit and restart, restore the factory
// defaults and restart, report the status. Every type is acknowledged, known or not.
#pragma once

#include "core/context.h"

namespace rcmd {

/// Acknowledges the request in rx_buf and carries it out. The two commands that restart the device
/// do not return.
void rcm_generic_func(RcmContext* context);

} // namespace rcmd
