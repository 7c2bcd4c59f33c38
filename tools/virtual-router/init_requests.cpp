#include "tools/virtual-router/init_requests.h"

#include <sstream>

namespace virtual_router {

std::string restart_reason(const std::string& lines) {
  std::istringstream stream(lines);
  std::string line;
  while (std::getline(stream, line)) {
    if (line.compare(0, 8, "restart ") == 0)
      return "a restart with code " + line.substr(8);
    if (line == "signal 15")
      return "process 1 was sent signal 15";
  }
  return {};
}

} // namespace virtual_router
