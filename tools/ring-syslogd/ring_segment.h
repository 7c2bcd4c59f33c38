// The System V objects of a syslog ring, and the writer's side of their semaphores: a line is
// written while no reader is counted in, and readers wait while it is.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rcmd {

class RingSegment {
public:
  /// Creates the objects, or takes those over that a predecessor left, lines included: a reader
  /// that has attached them goes on. @param bytes  of the segment, kSmallestRingBytes at least
  /// @return null, or the name of the call that failed, with its errno
  const char* open(std::int32_t key, std::size_t bytes);

  /// Waits up to `patience_ms` for the readers to be gone. A reader may stay counted in for the
  /// rest of its life; whoever logs must not be stopped by it.
  /// @param lost  grows by the number of overwritten lines that nobody had reported
  /// @return false when the line was not written
  [[nodiscard]] bool append(const char* line, std::size_t length, int patience_ms,
                            std::size_t& lost);

  /// Removes the objects. Readers that have the segment attached keep their memory.
  void remove();

private:
  int shm_id_ = -1;
  int sem_id_ = -1;
  void* segment_ = nullptr;
  std::size_t bytes_ = 0;
};

} // namespace rcmd
