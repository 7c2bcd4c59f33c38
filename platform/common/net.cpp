#include "platform/api/net.h"
#include "platform/common/loop.h"

#include <unistd.h>

namespace {

/// Tells the loop what was taken. An empty datagram is taken too; nothing read from a stream is its
/// end, which stays.
ssize_t noted(int fd, ssize_t result) {
  bool taken = result > 0;
  if (result == 0) {
    int type = 0;
    socklen_t length = sizeof type;
    taken = getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0 && type == SOCK_DGRAM;
  }
  if (taken) {
    rcmd::loop_note_taken(fd);
  }
  return result;
}

} // namespace

extern "C" {

// The router's tools inherit no socket, and a peer that has gone ends no process.

int net_socket(int domain, int type, int protocol) {
  return socket(domain, type | SOCK_CLOEXEC, protocol);
}

int net_setsockopt(int fd, int level, int option, const void* value, socklen_t length) {
  return setsockopt(fd, level, option, value, length);
}

int net_listen(int fd, int backlog) {
  return listen(fd, backlog);
}

int net_accept(int fd, struct sockaddr* address, socklen_t* length) {
  const int connection = accept4(fd, address, length, SOCK_CLOEXEC);
  if (connection >= 0) {
    rcmd::loop_note_taken(fd);
  }
  return connection;
}

ssize_t net_sendto(int fd, const void* data, size_t length, int flags,
                   const struct sockaddr* address, socklen_t address_length) {
  return sendto(fd, data, length, flags | MSG_NOSIGNAL, address, address_length);
}

ssize_t net_recvfrom(int fd, void* data, size_t length, int flags, struct sockaddr* address,
                     socklen_t* address_length) {
  return noted(fd, recvfrom(fd, data, length, flags, address, address_length));
}

ssize_t net_read(int fd, void* data, size_t length) {
  return noted(fd, read(fd, data, length));
}

ssize_t net_send(int fd, const void* data, size_t length, int flags) {
  return send(fd, data, length, flags | MSG_NOSIGNAL);
}

int net_close(int fd) {
  return close(fd);
}

} // extern "C"
