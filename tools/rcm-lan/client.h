// The exchanges with a router, over real sockets. Each of them ends after its time-out at the
// latest; what the network refuses is thrown as std::runtime_error with a text for the user.
#pragma once

#include "tools/rcm-lan/messages.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace rcm_lan {

struct Peer {
  Address address;
  std::uint16_t port;
};

struct Found {
  Address from; ///< where the reply came from, which is where a set can be sent
  Router router;
};

/// Asks once, by broadcast or directly, and collects answers for the whole time. A router that
/// answers more than once is listed once.
std::vector<Found> discover(const Peer& peer, std::chrono::milliseconds timeout);

/// Sends the values and waits for the router's word that it has them.
/// @return false when none came: nothing may have changed, or the reply was lost
bool set(const Peer& peer, const Changes& changes, std::chrono::milliseconds timeout);

enum class Transport { kTcp, kUdp };

/// What became of an order to the desktop manager.
struct Outcome {
  enum { kAnswered, kRefusedConnection, kNoAnswer, kClosed, kNotUnderstood } kind;
  std::uint32_t result; ///< of kAnswered
};

Outcome give_order(const Peer& peer, Order order, Transport transport,
                   std::chrono::milliseconds timeout);

} // namespace rcm_lan
