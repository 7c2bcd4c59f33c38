// The two timers that watch the link to the server. A dead server leads to a new registration.
#pragma once

namespace rcmd {

/// Sends a KEEPALIVE and re-arms itself; registers again when more than keepalive_maxretries of
/// them went unacknowledged. @param context  the RcmContext
void rcm_keepalive_func(void* context);

/// Sends the packet in tx_buf once more, with pauses of 5, 10, 15 and 20 seconds; registers again
/// when it fires a fifth time. Only its own callback arms this timer. @param context  the
/// RcmContext
void rcm_retransmit_func(void* context);

} // namespace rcmd
