// From what programs send to the local socket, "<PRI>Mon DD HH:MM:SS program[pid]: text", to a line
// of the ring, "0 DAYS days HH:MM:SS HOST FACILITY.LEVEL program[pid]: text\n".
#pragma once

#include "reporters/syslog_ring.h"

#include <cstddef>
#include <cstdint>

namespace rcmd {

struct RingStamp {
  std::int64_t uptime_s;
  const char* host; ///< holds no blank
};

/// The priority and the stamp are taken off where they stand; without a priority it is user.notice.
/// Control characters become blanks, and a text that is too long is cut.
/// @param line  receives the line, without a NUL. @return its length, or 0 when there is no text
std::size_t make_ring_line(char (&line)[kMaxLineChars + 1], const RingStamp& stamp,
                           const char* message, std::size_t length);

} // namespace rcmd
