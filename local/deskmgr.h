// The desktop manager: a program on a LAN computer asks the router to bring the WWAN connection up
// or down, or whether it is up. Port 5000 on all addresses.
//
// A request is one 12-byte header; an answer is the header with kind 2 and a result word. Integers
// are big-endian. The handlers only set and read nvram; nothing is committed. Every step is told
// to the console, whatever `debug` says; a console that cannot be opened loses the text and nothing
// else. docs/local-protocols.md shows the bytes.
#pragma once

#include "core/wire.h"

#include <cstddef>
#include <cstdint>

namespace rcmd {

struct DeskmgrHeader { // as on the wire
  std::uint8_t echoed[4];
  be16 code; ///< 1 connect, 2 disconnect, 3 status, 4 reserved
  std::uint8_t echoed_too;
  std::uint8_t kind; ///< 1 request, 2 response
  be32 length;       ///< of the whole message, this header included
};
static_assert(sizeof(DeskmgrHeader) == 12 && alignof(DeskmgrHeader) == 1);
static_assert(offsetof(DeskmgrHeader, code) == 4 && offsetof(DeskmgrHeader, kind) == 7);
static_assert(offsetof(DeskmgrHeader, length) == 8);

struct DeskmgrResponse { // as on the wire
  DeskmgrHeader header;
  be32 result; ///< connect and disconnect: 0 done, 1 refused; status: 1 down, 2 anything else
};
static_assert(sizeof(DeskmgrResponse) == 16 && offsetof(DeskmgrResponse, result) == 12);

/// Opens the server and has the event loop serve it.
/// @param socket_mode  1: datagram; 2: stream, listening. These are the wire protocol's own
/// numbers; the platform's differ from machine to machine.
/// @return the socket, which is the event loop's from then on, or -1: the reason is on the console,
/// or the loop has no room
int deskmgr_open(int socket_mode);

/// Calls the handler of the message's code.
/// @param connection  where the answer goes
/// @param length      as the header gives it
/// @return the handler's result, always 0; -1 when the code has no handler, and then no answer
int deskmgr_msg_dispatch(int connection, const DeskmgrHeader& message, std::uint32_t length);

} // namespace rcmd
