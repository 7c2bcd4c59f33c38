// The two tables that point upward, empty: the timers call nobody.

#include "core/timers.h"

namespace rcmd {

namespace {

void nobody(void*) {}

constexpr RcmTimer unwired() {
  return {{0, 0}, 0, 0, nullptr, nobody};
}

} // namespace

RcmTimer rcm_keepalive = unwired();
RcmTimer rcm_retransmit = unwired();
RcmTimer rcm_logsender = unwired();
RcmTimer rcm_gpssender = unwired();
RcmTimer rcm_trafficget = unwired();
RcmTimer rcm_trafficsender = unwired();

} // namespace rcmd
