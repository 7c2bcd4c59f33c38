// The clock of the event loop under test: it stands still until the test moves it.
#pragma once

#include <cstdint>

namespace loop_test {

extern std::int64_t now_ms;

} // namespace loop_test
