// The circular buffer in which the device's syslog daemon keeps its lines: a System V shared-memory
// segment, an external format, here byte for byte. docs/syslog-ring.md tells the whole of it, with
// the semaphores that guard it.
//
// Integers are 32-bit signed in the device's own byte order. A record is a NUL-terminated text in
// the data area; the next one begins behind its NUL, or at offset 0 once that is not less than
// `size`. Records run from `head` up to, not including, `tail`; equal, they hold nothing. A line is
// one record or several: it ends with the first record whose last character is a newline.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rcmd {

struct SyslogRing {
  std::int32_t size; ///< bytes of the data area
  std::int32_t head; ///< offset of the oldest record
  std::int32_t tail; ///< offset at which the next record will be written
};                   // and `size` bytes of data behind it
static_assert(sizeof(SyslogRing) == 12 && offsetof(SyslogRing, tail) == 8);

constexpr std::int32_t kSyslogRingKey = 0x414E4547; ///< of the segment and of the semaphore set
constexpr unsigned short kReadersSemaphore = 0;     ///< counts the active readers
constexpr unsigned short kWriterSemaphore = 1;      ///< not 0 while a line is being written

constexpr char kUnreported = '0'; ///< a line's first character; the one behind it means nothing
constexpr char kReported = '1';
constexpr std::size_t kMaxLineChars = 1023; ///< newline included; a longer line is cut

/// A walk over the records, oldest first. Nothing outside the data area is ever touched, and the
/// walk ends, whatever the segment holds.
struct RingWalk {
  char* data;       ///< the data area; null when the header cannot be
  std::size_t size; ///< its bytes
  std::size_t at;   ///< where the next record begins
  std::size_t tail;
  std::size_t left; ///< bytes that no record of this walk has taken yet
};

struct RingRecord {
  char* text; ///< in the data area
  std::size_t length;
};

/// Begins a walk over the ring in a segment of `segment_bytes`.
RingWalk walk_ring(void* segment, std::size_t segment_bytes);

/// Takes the record at `walk.at` and goes past it.
/// @return false at the tail, and where no NUL-terminated record is to be had
[[nodiscard]] bool next_record(RingWalk& walk, RingRecord& record);

/// @return true when the header can be, and its records lead from the head to the tail
[[nodiscard]] bool ring_is_sound(RingWalk walk);

} // namespace rcmd
