#include "tools/ring-syslogd/log_socket.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace rcmd {

namespace {

constexpr mode_t kEveryone = 0666;

using SocketCall = int (*)(int fd, const sockaddr* address, socklen_t length);

// @return the call's result, or -1 with errno for a path that no socket can have
int call_with_path(SocketCall call, int fd, const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::size_t length = std::strlen(path);
  if (length >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(address.sun_path, path, length);
  return call(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int datagram_socket() {
  return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

} // namespace

bool log_socket_is_served(const char* path) {
  const int fd = datagram_socket();
  const bool served = fd != -1 && call_with_path(connect, fd, path) == 0;
  close(fd);
  return served;
}

int open_log_socket(const char* path) {
  struct stat present {};
  if (lstat(path, &present) == 0 && S_ISSOCK(present.st_mode)) {
    unlink(path);
  }
  const int fd = datagram_socket();
  if (fd == -1 || call_with_path(bind, fd, path) == -1 || chmod(path, kEveryone) == -1) {
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

} // namespace rcmd
