// The machine's memory as the kernel reports it.
#pragma once

#include <cstdint>

namespace rcmd {

/// Writes how many kilobytes can be taken without starving anybody: free memory, buffers, and the
/// part of the cache that is no temporary file.
/// @return false when the figures are not to be had
bool available_memory_kb(uint32_t* kilobytes);

/// @return 1 when `bytes` fit into `kilobytes`, else 0
int memory_suffices(uint32_t bytes, uint32_t kilobytes);

} // namespace rcmd
