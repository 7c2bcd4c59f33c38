#include "core/timers.h"

namespace rcmd {

int rearm(RcmTimer& timer, std::intptr_t interval_s) {
  del_event(&timer);
  timer.interval = interval_s;
  return add_event(&timer);
}

void cancel(RcmTimer& timer) {
  del_event(&timer);
}

} // namespace rcmd
