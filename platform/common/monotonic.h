// The clock of the loop and of every wait: milliseconds that only go forward.
#pragma once

#include <stdint.h>

namespace rcmd {

int64_t monotonic_ms();

} // namespace rcmd
