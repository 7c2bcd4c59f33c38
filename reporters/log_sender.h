// The log report: every nvram "rcm_log_interval" seconds, the new lines of the device's log go to
// the server in one LOG packet, whose acknowledgement is waited for inside the callback.
#pragma once

namespace rcmd {

/// The callback of rcm_logsender. Sends nothing while `online` is not 1 or when there is no new
/// line; re-arms the timer whatever happens. Blocks for about 20 seconds under a silent server.
/// @param arg  the RcmContext
void rcm_logsender_func(void* arg);

} // namespace rcmd
