// A virtual router in a folder of its own, with the daemon in it.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace soak {

class Router {
public:
  /// @param ip          loopback address, host order; the server is expected there as well
  /// @param time_scale  how many times as fast its clock runs
  Router(std::uint32_t ip, int time_scale);
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;
  ~Router(); ///< switches it off, and removes the folder

  /// The daemon; waits until it is there. @throw std::runtime_error when it does not come
  [[nodiscard]] pid_t daemon() const;
  /// The last lines that the router has printed.
  [[nodiscard]] std::string last_words() const;

private:
  std::string folder_;
  pid_t pid_ = -1;
};

} // namespace soak
