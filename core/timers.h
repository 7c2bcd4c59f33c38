// The six timer records of the daemon. They are defined once, with their callbacks, in
// core/wiring.cpp; rcm_open points their `arg` at the context.
#pragma once

#include "platform/api/event_loop.h"

#include <cstdint>

namespace rcmd {

extern RcmTimer rcm_keepalive;     ///< every keepalive_interval
extern RcmTimer rcm_retransmit;    ///< armed by nothing but its own callback
extern RcmTimer rcm_logsender;     ///< every nvram "rcm_log_interval" seconds
extern RcmTimer rcm_gpssender;     ///< every gps_send_interval seconds
extern RcmTimer rcm_trafficget;    ///< every minute
extern RcmTimer rcm_trafficsender; ///< every hour

/// Cancels the timer, sets its interval in seconds and arms it. @return add_event's result
int rearm(RcmTimer& timer, std::intptr_t interval_s);

/// Cancels the timer, armed or not.
void cancel(RcmTimer& timer);

} // namespace rcmd
