// The target of an HTTP request, "/devices/A%2Fb/logs?limit=5", taken apart and decoded.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace server {

using Query = std::map<std::string, std::string>;

struct Target {
  std::vector<std::string> path; ///< without empty parts
  Query query;
};

Target split_target(std::string_view target);

} // namespace server
