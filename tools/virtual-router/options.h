// The command line of virtual-router.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace virtual_router {

struct Options {
  std::string dir; ///< empty: a temporary folder
  std::string server = "127.0.0.1";
  std::string domain = "lab";
  bool debug = false;
  std::string address = "127.0.0.1";
  std::vector<std::string> overrides; ///< NAME=VALUE; the conveniences come in here too
  std::vector<std::string> daemon;    ///< empty: rcmd-virtual beside this program
  unsigned time_scale = 1;
  unsigned log_lines_per_minute = 20;
};

/// @return the exit status to end with at once (help, wrong options), or -1 to go on
int read_options(int argc, char** argv, Options& options);

} // namespace virtual_router
