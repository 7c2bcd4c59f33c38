#include "tests/platform/loop_clock.h"

#include "platform/common/monotonic.h"

namespace loop_test {

std::int64_t now_ms = 1'000'000;
std::int64_t speed = 1;

} // namespace loop_test

namespace rcmd {

std::int64_t monotonic_ms() {
  return loop_test::now_ms;
}

std::int64_t timer_ms() {
  return loop_test::now_ms * loop_test::speed;
}

std::int64_t machine_ms(std::int64_t timer_span_ms) {
  return (timer_span_ms + loop_test::speed - 1) / loop_test::speed;
}

} // namespace rcmd
