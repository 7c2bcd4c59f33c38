// The reader of the syslog daemon's ring (reporters/syslog_ring.h): picks out the lines that were
// not reported yet and whose source is not switched off, and rewrites their time since boot as a
// date. A line is marked in the ring itself once it is handed over; the ring's head and tail are
// never written.
//
// A line: mark, one character that is skipped, then tokens between single blanks: whole days since
// boot, an ignored one, HH:MM:SS since boot, two ignored ones, and the message.
#pragma once

#include "core/context.h"

#include <cstddef>

namespace rcmd {

constexpr int kLinesPerCall = 20;

/// Writes up to kLinesPerCall lines "2001-09-10 03:48:04s MESSAGE\n" (UTC), one behind the other
/// and without a NUL. A line that does not fit ends the call and waits, unmarked, for the next one;
/// a ring whose records do not lead from its head to its tail yields no lines. The process ends
/// when the ring or its semaphores are not to be had.
/// @param capacity  bytes of `output`
/// @return the characters written, 0 when there was no line, -1 when a line's stamp could not be
/// read: what was written before it is lost, and this process stays counted as a reader
[[nodiscard]] int get_system_log(char* output, std::size_t capacity, const RcmContext& context);

/// @param line  a complete line. @return 1 when it may be reported, 0 when its source is off
[[nodiscard]] int rcm_log_filter(const char* line);

/// Prints the message under `debug`, detaches the ring and ends the process with status 1.
[[noreturn]] void log_error_exit(const char* message);

} // namespace rcmd
