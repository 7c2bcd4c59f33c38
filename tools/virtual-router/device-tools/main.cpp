// virtual-tools: killall, spi, eroute and rm of a pretend device in one program, told apart by the
// name that it is called by ("virtual-tools NAME ARGUMENT..." works too).
#include "platform/api/system.h"
#include "tools/virtual-router/device-tools/device_tools.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

using namespace virtual_router;

namespace {

int run_tool(const Device& device, const std::string& name, const Arguments& arguments) {
  if (name == "killall")
    return tool_killall(device, arguments);
  if (name == "rm")
    return tool_rm(device, arguments);
  if (name == "spi" || name == "eroute")
    return tool_clear(name, arguments);
  std::fprintf(stderr, "virtual-tools: it is killall, spi, eroute or rm\n");
  return 2;
}

} // namespace

int main(int argc, char** argv) {
  const char* root = std::getenv("VIRTUAL_ROUTER_DIR");
  if (root == nullptr || *root == '\0') {
    std::fprintf(stderr, "virtual-tools: VIRTUAL_ROUTER_DIR names no device\n");
    return 2;
  }
  Arguments arguments(argv, argv + argc);
  std::string name = std::filesystem::path(arguments.at(0)).filename().string();
  arguments.erase(arguments.begin());
  if (name == "virtual-tools" && !arguments.empty()) {
    name = arguments[0];
    arguments.erase(arguments.begin());
  }
  try {
    return run_tool({root, system_uptime()}, name, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), error.what());
    return 1;
  }
}
