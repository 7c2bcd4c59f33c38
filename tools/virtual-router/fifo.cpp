#include "tools/virtual-router/fifo.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace virtual_router {

namespace {

constexpr int kBufferBytes = 1 << 20; // the most that an ordinary user may ask for

} // namespace

Fifo::Fifo(const std::string& path) : fd_(-1) {
  unlink(path.c_str());
  if (mkfifo(path.c_str(), 0600) == 0)
    fd_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0)
    throw std::system_error(errno, std::generic_category(), path);
  fcntl(fd_, F_SETPIPE_SZ, kBufferBytes); // a smaller one does as well
}

Fifo::~Fifo() {
  close(fd_);
}

std::string Fifo::take() {
  std::string all;
  char piece[4096];
  ssize_t got = 0;
  while ((got = read(fd_, piece, sizeof piece)) > 0)
    all.append(piece, static_cast<std::size_t>(got));
  return all;
}

} // namespace virtual_router
