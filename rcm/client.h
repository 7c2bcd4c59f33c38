// The management client's socket and its receive dispatcher.
#pragma once

#include "core/context.h"
#include "platform/api/event_loop.h"

namespace rcmd {

/// Opens UDP port 1161 on every local address, hands it to the event loop with rcm_receive_func,
/// points the six timers at the context and registers with the server before it returns.
/// @return the socket, or -1; a step that fails is reported, leaves its socket open, and the daemon
/// runs on without a management client
int rcm_open(RcmContext* context);

/// Closes the socket; nothing calls it, since the socket lives as long as the process. @return 0
int rcm_close(int fd);

/// Takes one datagram: an acknowledgement closes the outstanding packet, a request goes to its
/// handler. @param descriptor  its `arg` is the RcmContext
/// @return 0 when a packet was handled or ignored, -1 when the datagram was bad
int rcm_receive_func(FdDescriptor* descriptor);

} // namespace rcmd
