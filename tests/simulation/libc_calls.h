// What the daemon holds of the C library and the kernel in its present life: memory blocks,
// descriptors, streams and mappings. The simulation's program is linked so that these calls of its
// objects come by here (--wrap); those made inside shared libraries do not.
#pragma once

#include <cstddef>

namespace sim {

struct Holdings {
  std::size_t blocks;
  std::size_t descriptors;
  std::size_t streams;
  std::size_t mappings;
  std::size_t short_writes; ///< how many there were
};

/// From here on everything that is taken is the daemon's.
void begin_holdings();
[[nodiscard]] Holdings holdings();
/// @return false when bytes behind a block were written
[[nodiscard]] bool block_guards_stand();
/// The process is gone: the kernel takes everything back.
void end_holdings();

/// Writes to files come up short from now on.
void fill_disk(bool full);

} // namespace sim
