// Where the server's requests go: one row per request type with a handler of its own; the last row
// takes every other type. The table is defined in core/wiring.cpp, since its handlers live above.
#pragma once

#include "core/context.h"

#include <cstdint>

namespace rcmd {

struct RequestRoute {
  std::uint16_t type;                   ///< as in the packet; not looked at in the last row
  const char* message;                  ///< said before the handler runs; null in the last row
  void (*handler)(RcmContext* context); ///< the request stands in rx_buf, its sender in peer_addr
};

extern const RequestRoute request_routes[];

} // namespace rcmd
