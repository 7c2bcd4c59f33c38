// The clock of the loop and of every wait: milliseconds that only go forward.
#pragma once

#include <cstdint>

namespace rcmd {

int64_t monotonic_ms();

} // namespace rcmd
