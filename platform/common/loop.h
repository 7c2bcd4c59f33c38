// The event loop between its callers and the socket calls.
//
// A handler's negative result says that its event may not have been consumed. Whether it was is
// not guessed: every byte that the daemon takes off a descriptor goes through net_recvfrom,
// net_read or net_accept, and these tell the loop. A descriptor on which nothing was taken rests,
// half a second at first and doubling up to eight, and is not polled meanwhile; one on which a
// datagram was taken is asked again in the next pass, however its handler judged the datagram.
#pragma once

namespace rcmd {

/// One pass: fires the timers that are due, waits up to `max_wait_ms` (negative: without limit)
/// for a descriptor, a timer or the end of a rest, then calls each readable descriptor's handler
/// once. Timers armed during the pass belong to the next one.
/// @return the number of callbacks and handlers called
int loop_pass(int max_wait_ms);

/// Something (a datagram, stream bytes, a connection) was taken off `fd`.
void loop_note_taken(int fd);

} // namespace rcmd
