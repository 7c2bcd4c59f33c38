// Pretend sockets: datagrams sent are kept, datagrams received come from the test.

#include "tests/fake_platform/fake.h"

#include "platform/api/net.h"
#include "platform/api/wait.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstring>

using fake::world;

namespace {

bool fails(const std::string& call) {
  if (world().net_call_fails && world().net_call_fails(call)) {
    errno = EIO;
    return true;
  }
  return false;
}

// Only IPv4 addresses of the right size name a place.
bool is_ipv4(const sockaddr* address, socklen_t length) {
  if (length == sizeof(sockaddr_in) && address->sa_family == AF_INET) {
    return true;
  }
  errno = EINVAL;
  return false;
}

fake::Socket* socket_of(int fd) {
  const auto found = world().sockets.find(fd);
  return found == world().sockets.end() ? nullptr : &found->second;
}

ssize_t take(int fd, void* data, std::size_t length, sockaddr_in* peer) {
  fake::Socket* socket = socket_of(fd);
  if (socket == nullptr) {
    errno = EBADF;
    return -1;
  }
  if (fails("recv")) {
    if (!socket->inbox.empty()) {
      socket->inbox.pop_front();
    }
    return -1;
  }
  if (socket->inbox.empty()) {
    errno = EAGAIN;
    return -1;
  }
  const fake::Datagram datagram = std::move(socket->inbox.front());
  socket->inbox.pop_front();
  if (world().on_receive) {
    world().on_receive(datagram);
  }
  const std::size_t taken = std::min(length, datagram.bytes.size());
  if (taken > 0) {
    std::memcpy(data, datagram.bytes.data(), taken);
  }
  if (peer != nullptr) {
    *peer = datagram.peer;
  }
  return static_cast<ssize_t>(taken);
}

ssize_t give(int fd, const void* data, std::size_t length, int flags, const sockaddr_in& peer) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  fake::Datagram datagram{fd, {bytes, bytes + length}, peer, world().now_ms, flags};
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
  world().note("send " + std::to_string(length) + " to " + text + ":" +
               std::to_string(ntohs(peer.sin_port)));
  if (socket_of(fd) == nullptr) {
    errno = EBADF;
    return -1;
  }
  if (world().send_fails && world().send_fails(datagram)) {
    errno = ENETUNREACH;
    return -1;
  }
  const ssize_t result =
      world().send_result ? world().send_result(datagram) : static_cast<ssize_t>(length);
  if (world().recording) {
    world().sent.push_back(datagram);
  }
  if (world().on_send) {
    world().on_send(datagram);
  }
  return result;
}

} // namespace

extern "C" {

int net_socket(int domain, int type, int protocol) {
  if (world().sockets_made++ == world().socket_fails_at) {
    errno = EMFILE;
    return -1;
  }
  const int fd = world().make_socket();
  world().sockets[fd].domain = domain;
  world().sockets[fd].type = type;
  world().sockets[fd].protocol = protocol;
  world().note("socket " + std::to_string(fd));
  return fd;
}

int net_setsockopt(int, int level, int option, const void* value, socklen_t length) {
  int number = 0;
  std::memcpy(&number, value, std::min<std::size_t>(length, sizeof number));
  world().note("setsockopt " + std::to_string(level) + " " + std::to_string(option) +
               (number == 1 ? "" : " = " + std::to_string(number)));
  return fails("setsockopt") ? -1 : 0;
}

int net_bind(int fd, const sockaddr* address, socklen_t length) {
  if (!is_ipv4(address, length)) {
    return -1;
  }
  const auto* where = reinterpret_cast<const sockaddr_in*>(address);
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &where->sin_addr, text, sizeof text);
  world().note("bind " + std::string(text) + ":" + std::to_string(ntohs(where->sin_port)));
  if (fails("bind")) {
    return -1;
  }
  world().sockets[fd].port = ntohs(where->sin_port);
  return 0;
}

int net_listen(int fd, int backlog) {
  world().note("listen " + std::to_string(backlog));
  if (fails("listen")) {
    return -1;
  }
  world().sockets[fd].listening = true;
  return 0;
}

int net_accept(int fd, sockaddr*, socklen_t*) {
  if (fails("accept")) {
    return -1;
  }
  const fake::Socket* socket = socket_of(fd);
  if (socket == nullptr || !socket->listening || world().connections.empty()) {
    errno = EOPNOTSUPP;
    return -1;
  }
  const int connection = world().connections.front();
  world().connections.pop_front();
  return connection;
}

ssize_t net_sendto(int fd, const void* data, std::size_t length, int flags, const sockaddr* address,
                   socklen_t address_length) {
  if (!is_ipv4(address, address_length)) {
    return -1;
  }
  return give(fd, data, length, flags, *reinterpret_cast<const sockaddr_in*>(address));
}

ssize_t net_recvfrom(int fd, void* data, std::size_t length, int flags, sockaddr* address,
                     socklen_t* address_length) {
  if (flags != 0) {
    world().note("receive flags " + std::to_string(flags));
  }
  sockaddr_in peer{};
  const ssize_t taken = take(fd, data, length, address == nullptr ? nullptr : &peer);
  if (taken >= 0 && address != nullptr) {
    std::memcpy(address, &peer, std::min<std::size_t>(*address_length, sizeof peer));
    *address_length = sizeof peer;
  }
  return taken;
}

ssize_t net_read(int fd, void* data, std::size_t length) {
  return take(fd, data, length, nullptr);
}

ssize_t net_send(int fd, const void* data, std::size_t length, int flags) {
  return give(fd, data, length, flags, sockaddr_in{});
}

int net_ioctl(int fd, unsigned long request, void* argument) {
  return world().on_ioctl ? world().on_ioctl(fd, request, argument) : -1;
}

int net_close(int fd) {
  world().note("close " + std::to_string(fd));
  if (world().sockets.erase(fd) == 0) {
    errno = EBADF;
    return -1;
  }
  return 0;
}

int waitfor(int fd, int seconds) {
  if (world().waitfor_result) {
    const int result = world().waitfor_result(fd, seconds);
    if (result != INT_MIN) {
      return result;
    }
  }
  const std::int64_t end = world().now_ms + static_cast<std::int64_t>(seconds) * 1000;
  for (;;) {
    const fake::Socket* socket = socket_of(fd);
    if (socket == nullptr) {
      errno = EBADF;
      return -1;
    }
    if (!socket->inbox.empty()) {
      return 1;
    }
    if (world().schedule.empty() || world().schedule.begin()->first > end) {
      world().advance_to(end);
      return socket->inbox.empty() ? 0 : 1;
    }
    world().advance_to(world().schedule.begin()->first);
  }
}

} // extern "C"
