// The writer's half of the syslog ring (reporters/syslog_ring.h): lines into the data area, the
// oldest lines out of it. The bytes of a line are written before the tail that shows them, and the
// head leaves the old lines before their bytes are overwritten: a writer that is killed at any
// instant leaves a sound ring.
#pragma once

#include <cstddef>

namespace rcmd {

constexpr std::size_t kSmallestRingBytes = 4096; ///< of a whole segment: holds every line

/// Makes the segment an empty ring, unless it is a sound one of this size already.
void prepare_ring(void* segment, std::size_t segment_bytes);

/// Appends a line of 1 to kMaxLineChars characters that ends in a newline and holds no NUL; whole
/// lines leave at the head to make room.
/// @return how many of those nobody had reported
std::size_t append_line(void* segment, std::size_t segment_bytes, const char* line,
                        std::size_t length);

} // namespace rcmd
