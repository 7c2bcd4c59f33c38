// A device as the engine holds it: its record, what tells a repeated datagram from a new one, and
// the commands that are on their way to it.
#pragma once

#include "server/events.h"
#include "server/image.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace server {

struct Clock {
  std::int64_t steady_ms = 0;
  std::int64_t unix_s = 0;
};

struct Settings {
  int keepalive_interval = 120; ///< seconds, told to every device
  int keepalive_maxretries = 10;
  bool local_time = false; ///< tell the local time instead of UTC
  int dead_after_s = 300;  ///< a transfer or restart without a sign of progress is given up
  std::size_t most_devices = 10000;
  std::function<Session()> new_session; ///< none: random bytes
};

/// Where the engine's datagrams and events go. What a datagram acknowledges was given as an event
/// before.
class Output {
public:
  virtual ~Output() = default;
  /// `head` and `body` make up one datagram; both are valid during the call only.
  virtual void send(const Address& to, View head, View body) = 0;
  virtual void event(Event event) = 0;
};

/// An operation on its way: the record that everyone sees, and what it takes to carry it out.
struct Task {
  Operation record;
  Bytes request; ///< the command's datagram
  std::int64_t deadline_ms = 0;
  int tries = 0;                      ///< sends that waited for their answer in vain
  std::shared_ptr<const Image> image; ///< of a transfer
};

struct Peer {
  Device device;
  Bytes last_datagram; ///< the last report or request, to know a copy that the network made
  std::int64_t last_ms = 0;
  std::uint16_t last_type = 0;
  std::optional<std::uint32_t> highest_seq; ///< since it registered
  Bytes registration;                       ///< its last REGISTER
  std::deque<std::shared_ptr<Task>> tasks; ///< the first is under way, the others wait
  std::shared_ptr<Task> transfer;          ///< the latest transfer, finished or not
};

} // namespace server
