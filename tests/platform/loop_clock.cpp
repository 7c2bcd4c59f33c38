#include "tests/platform/loop_clock.h"

#include "platform/common/monotonic.h"

namespace loop_test {

std::int64_t now_ms = 1'000'000;

} // namespace loop_test

namespace rcmd {

std::int64_t monotonic_ms() {
  return loop_test::now_ms;
}

} // namespace rcmd
