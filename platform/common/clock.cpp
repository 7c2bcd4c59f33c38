#include "platform/api/system.h"
#include "platform/common/hooks.h"
#include "platform/common/monotonic.h"

#include <cerrno>
#include <ctime>
#include <sys/sysinfo.h>

namespace rcmd {

int64_t monotonic_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

int64_t timer_ms() {
  return monotonic_ms() * clock_speed();
}

int64_t machine_ms(int64_t timer_span_ms) {
  return (timer_span_ms + clock_speed() - 1) / clock_speed();
}

} // namespace rcmd

extern "C" {

int32_t system_uptime(void) {
  const int64_t booted = rcmd::booted_ms();
  if (booted >= 0) {
    return static_cast<int32_t>((rcmd::monotonic_ms() - booted) * rcmd::clock_speed() / 1000);
  }
  struct sysinfo info = {};
  sysinfo(&info);
  return static_cast<int32_t>(info.uptime);
}

int64_t wall_clock(void) {
  return time(nullptr);
}

void sleep_seconds(unsigned seconds) {
  const int64_t ms = rcmd::machine_ms(int64_t{seconds} * 1000);
  timespec left = {};
  left.tv_sec = static_cast<time_t>(ms / 1000);
  left.tv_nsec = static_cast<long>(ms % 1000 * 1'000'000);
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

} // extern "C"
