// A socket of the local servers while it is being set up, and the two calls that set it up.
#pragma once

#include "platform/api/net.h"

#include <cstdint>
#include <netinet/in.h>

namespace rcmd {

/// A socket that closes itself, unless it was given away.
class OwnedSocket {
public:
  /// @param fd  negative: there is none
  explicit OwnedSocket(int fd) : fd_(fd) {}
  OwnedSocket(const OwnedSocket&) = delete;
  OwnedSocket& operator=(const OwnedSocket&) = delete;
  ~OwnedSocket() {
    if (fd_ >= 0) {
      net_close(fd_);
    }
  }

  [[nodiscard]] int get() const { return fd_; }
  /// Gives the socket up: it is the caller's, or the event loop's, from now on.
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

private:
  int fd_;
};

/// Sets the socket-level option to 1. @return false when the socket refused it
[[nodiscard]] inline bool switch_on(const OwnedSocket& socket, int option) {
  const int on = 1;
  return net_setsockopt(socket.get(), SOL_SOCKET, option, &on, sizeof on) >= 0;
}

/// Binds to `port` on all addresses. @return false when that failed
[[nodiscard]] inline bool bind_to_port(const OwnedSocket& socket, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  return net_bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) >= 0;
}

} // namespace rcmd
