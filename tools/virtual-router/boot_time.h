// When a device booted, on the two clocks of the machine that its programs count from.
#pragma once

#include <cstdint>

namespace virtual_router {

struct BootTime {
  std::int64_t machine_uptime_s; ///< a whole second of the clock that counts suspended time too
  std::int64_t monotonic_ms;     ///< the same instant on the clock that does not
};

BootTime boot_now();

} // namespace virtual_router
