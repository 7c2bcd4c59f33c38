#include "tools/virtual-router/device-tools/device_tools.h"

#include <cstdio>
#include <filesystem>

namespace virtual_router {

namespace fs = std::filesystem;

namespace {

struct Options {
  bool recursive = false;
  bool force = false;
};

bool read_option(const std::string& text, Options& options) {
  for (const char letter : text.substr(1)) {
    options.recursive = options.recursive || letter == 'r';
    options.force = options.force || letter == 'f';
    if (letter != 'r' && letter != 'f')
      return false;
  }
  return true;
}

/// Where a device path lies, links in its folders followed and its last name left alone; empty when
/// that is not below the device's folder.
fs::path place_of(const Device& device, const std::string& device_path) {
  if (device_path.empty() || device_path[0] != '/')
    return {};
  const fs::path asked(device.root + device_path);
  const fs::path name = asked.filename();
  std::error_code unreachable;
  const fs::path folder = fs::canonical(asked.parent_path(), unreachable);
  if (unreachable || name.empty() || name == "." || name == "..")
    return {};
  const std::string root = fs::canonical(device.root).string();
  if (folder != root && folder.string().compare(0, root.size() + 1, root + "/") != 0)
    return {};
  return folder / name;
}

int complain(const std::string& path, const char* why) {
  std::printf("rm: %s: %s\n", path.c_str(), why);
  return 1;
}

int remove_one(const Device& device, const std::string& path, const Options& options) {
  const fs::path place = place_of(device, path);
  std::error_code failed;
  if (place.empty() || !fs::exists(fs::symlink_status(place, failed))) {
    const bool tolerated = options.force && !path.empty() && path[0] == '/' &&
                           !fs::exists(fs::symlink_status(device.root + path, failed));
    return tolerated ? 0 : complain(path, "not a file of this device");
  }
  if (fs::is_directory(fs::symlink_status(place)) && !options.recursive)
    return complain(path, "is a folder");
  fs::remove_all(place, failed);
  return failed ? complain(path, "cannot be removed") : 0;
}

} // namespace

int tool_rm(const Device& device, const Arguments& arguments) {
  Options options;
  std::size_t at = 0;
  while (at < arguments.size() && arguments[at].size() > 1 && arguments[at][0] == '-')
    if (!read_option(arguments[at++], options)) {
      std::printf("usage: rm [-r] [-f] PATH...\n");
      return 2;
    }
  int worst = 0;
  for (; at < arguments.size(); ++at)
    worst = std::max(worst, remove_one(device, arguments[at], options));
  return worst;
}

} // namespace virtual_router
