#include "tools/rcm-lan/client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace rcm_lan {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

class Socket {
public:
  explicit Socket(int type) : fd_(::socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    if (fd_ < 0) {
      fail("no socket");
    }
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() { close(fd_); }

  [[nodiscard]] int fd() const { return fd_; }

  /// @return false when the deadline has passed
  [[nodiscard]] bool wait_for(short events, Clock::time_point deadline) const {
    for (;;) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      pollfd entry{fd_, events, 0};
      const int ready = poll(&entry, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
      if (ready >= 0) {
        return ready > 0;
      }
      if (errno != EINTR) {
        fail("poll");
      }
    }
  }

private:
  int fd_;
};

sockaddr_in socket_address(const Peer& peer) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(peer.port);
  std::memcpy(&address.sin_addr, peer.address.data(), peer.address.size());
  return address;
}

void send_datagram(const Socket& socket, const Peer& peer, const Bytes& bytes) {
  const sockaddr_in to = socket_address(peer);
  if (sendto(socket.fd(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
             sizeof to) != static_cast<ssize_t>(bytes.size())) {
    fail("cannot send to " + text_of(peer.address));
  }
}

struct Arrival {
  Address from;
  Bytes bytes;
};

/// @return the next datagram, or nothing when the deadline has passed
std::optional<Arrival> next_datagram(const Socket& socket, Clock::time_point deadline) {
  while (socket.wait_for(POLLIN, deadline)) {
    Arrival arrival{{}, Bytes(2048)};
    sockaddr_in from{};
    socklen_t from_bytes = sizeof from;
    const ssize_t count = recvfrom(socket.fd(), arrival.bytes.data(), arrival.bytes.size(), 0,
                                   reinterpret_cast<sockaddr*>(&from), &from_bytes);
    if (count >= 0) {
      arrival.bytes.resize(static_cast<std::size_t>(count));
      std::memcpy(arrival.from.data(), &from.sin_addr, arrival.from.size());
      return arrival;
    }
  }
  return std::nullopt;
}

Outcome outcome_of(const Bytes& message, Order order, std::uint32_t tag) {
  const auto result = read_manager_response(message, order, tag);
  return result ? Outcome{Outcome::kAnswered, *result} : Outcome{Outcome::kNotUnderstood, 0};
}

Outcome order_by_datagram(const Peer& peer, Order order, std::uint32_t tag,
                          Clock::time_point deadline) {
  const Socket socket(SOCK_DGRAM);
  send_datagram(socket, peer, manager_request(order, tag));
  const auto arrival = next_datagram(socket, deadline);
  return arrival ? outcome_of(arrival->bytes, order, tag) : Outcome{Outcome::kNoAnswer, 0};
}

/// @return 0, or the error with which the connection failed
int connect_to(const Socket& socket, const Peer& peer, Clock::time_point deadline) {
  const sockaddr_in to = socket_address(peer);
  if (connect(socket.fd(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) {
    return 0;
  }
  if (errno != EINPROGRESS) {
    return errno;
  }
  if (!socket.wait_for(POLLOUT, deadline)) {
    return ETIMEDOUT;
  }
  int error = 0;
  socklen_t error_bytes = sizeof error;
  getsockopt(socket.fd(), SOL_SOCKET, SO_ERROR, &error, &error_bytes);
  return error;
}

Outcome order_by_stream(const Peer& peer, Order order, std::uint32_t tag,
                        Clock::time_point deadline) {
  const Socket socket(SOCK_STREAM);
  const int error = connect_to(socket, peer, deadline);
  if (error == ECONNREFUSED || error == ETIMEDOUT) {
    return {error == ECONNREFUSED ? Outcome::kRefusedConnection : Outcome::kNoAnswer, 0};
  }
  if (error != 0) {
    errno = error;
    fail("cannot connect to " + text_of(peer.address));
  }
  const Bytes request = manager_request(order, tag);
  if (send(socket.fd(), request.data(), request.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(request.size())) {
    return {Outcome::kClosed, 0};
  }
  Bytes answer;
  while (answer.size() < 16) {
    if (!socket.wait_for(POLLIN, deadline)) {
      return {Outcome::kNoAnswer, 0};
    }
    std::uint8_t piece[16];
    const ssize_t count = recv(socket.fd(), piece, sizeof piece - answer.size(), 0);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
      return {Outcome::kClosed, 0};
    }
    answer.insert(answer.end(), piece, piece + std::max<ssize_t>(count, 0));
  }
  return outcome_of(answer, order, tag);
}

} // namespace

std::vector<Found> discover(const Peer& peer, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  const Socket socket(SOCK_DGRAM);
  const int on = 1;
  if (setsockopt(socket.fd(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
    fail("no broadcast");
  }
  send_datagram(socket, peer, discovery_request());
  std::vector<Found> all;
  while (const auto arrival = next_datagram(socket, deadline)) {
    const auto router = read_discovery_reply(arrival->bytes);
    const bool known = router && std::any_of(all.begin(), all.end(), [&](const Found& found) {
                         return found.from == arrival->from && found.router.mac == router->mac;
                       });
    if (router && !known) {
      all.push_back({arrival->from, *router});
    }
  }
  return all;
}

bool set(const Peer& peer, const Changes& changes, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  const Socket socket(SOCK_DGRAM);
  send_datagram(socket, peer, set_request(changes));
  while (const auto arrival = next_datagram(socket, deadline)) {
    if (is_set_reply(arrival->bytes)) {
      return true;
    }
  }
  return false;
}

Outcome give_order(const Peer& peer, Order order, Transport transport,
                   std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  const std::uint32_t tag = std::random_device{}();
  return transport == Transport::kTcp ? order_by_stream(peer, order, tag, deadline)
                                      : order_by_datagram(peer, order, tag, deadline);
}

} // namespace rcm_lan
