// The clocks of the event loop under test: they stand still until the test moves them.
#pragma once

#include <cstdint>

namespace loop_test {

extern std::int64_t now_ms; ///< the machine's clock
extern std::int64_t speed;  ///< how many times as fast the device's clock runs

} // namespace loop_test
