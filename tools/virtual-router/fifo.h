// A FIFO of the device that the supervisor reads: the console, and the requests to process 1. It is
// held open for both directions, so that a program of the device that opens it never waits for a
// reader and the supervisor never sees its end. Its buffer is as large as the kernel allows.
#pragma once

#include <string>

namespace virtual_router {

class Fifo {
public:
  /// Makes it at `path`, in the place of whatever stands there. Throws std::system_error.
  explicit Fifo(const std::string& path);
  ~Fifo();
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;

  [[nodiscard]] int fd() const { return fd_; }
  /// @return what stands in it now; empty for nothing
  std::string take();

private:
  int fd_;
};

} // namespace virtual_router
