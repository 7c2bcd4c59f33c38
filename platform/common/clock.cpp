#include "platform/api/system.h"
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

} // namespace rcmd

extern "C" {

int32_t system_uptime(void) {
  struct sysinfo info = {};
  sysinfo(&info);
  return static_cast<int32_t>(info.uptime);
}

int64_t wall_clock(void) {
  return time(nullptr);
}

void sleep_seconds(unsigned seconds) {
  timespec left = {};
  left.tv_sec = static_cast<time_t>(seconds);
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

} // extern "C"
