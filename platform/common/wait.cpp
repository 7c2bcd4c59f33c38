#include "platform/api/wait.h"
#include "platform/common/monotonic.h"

#include <cerrno>
#include <climits>
#include <poll.h>

extern "C" {

int waitfor(int fd, int seconds) {
  const int64_t end = rcmd::monotonic_ms() + (seconds > 0 ? int64_t{seconds} * 1000 : 0);
  for (;;) {
    const int64_t left = end - rcmd::monotonic_ms();
    const int wait_ms = left <= 0 ? 0 : left > INT_MAX ? INT_MAX : static_cast<int>(left);
    pollfd waited = {fd, POLLIN, 0};
    const int result = poll(&waited, 1, wait_ms);
    if (result > 0 && (waited.revents & POLLNVAL) != 0) {
      errno = EBADF;
      return -1;
    }
    if (result > 0 || (result < 0 && errno != EINTR)) {
      return result;
    }
    if (result == 0 && left <= INT_MAX) {
      return 0;
    }
  }
}

} // extern "C"
