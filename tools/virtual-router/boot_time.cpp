#include "tools/virtual-router/boot_time.h"

#include <ctime>

namespace virtual_router {

namespace {

std::int64_t milliseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace

BootTime boot_now() {
  const std::int64_t uptime_ms = milliseconds(CLOCK_BOOTTIME);
  return {uptime_ms / 1000, milliseconds(CLOCK_MONOTONIC) - uptime_ms % 1000};
}

} // namespace virtual_router
