// The device's memory.
#pragma once

#include <stdint.h>

extern "C" {

/// Amounts in kilobytes, in the order of the memory line that "free" shows.
struct MemoryInfo {
  uint32_t total;
  uint32_t used;
  uint32_t free;
  uint32_t shared;
  uint32_t buffers;
  uint32_t cached;
};

/// @return 0 and the figures, or non-zero
int memory_info(struct MemoryInfo* info);

/// @return positive when `bytes` more can be held in memory and temporary files, 0 when not,
/// negative when the memory figures are not to be had
int check_memory_avalid(uint32_t bytes);
}
