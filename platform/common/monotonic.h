// Clocks that only go forward, in milliseconds: the machine's, which waits keep, and the device's,
// which timers keep. They differ in a virtual router whose clock has been quickened.
#pragma once

#include <cstdint>

namespace rcmd {

int64_t monotonic_ms();
int64_t timer_ms();

/// How long a span of timer_ms() takes on monotonic_ms(), rounded up.
int64_t machine_ms(int64_t timer_span_ms);

} // namespace rcmd
