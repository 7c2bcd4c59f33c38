#include "tools/virtual-router/device-tools/device_tools.h"

#include "tools/virtual-router/software/leases.h"
#include "tools/virtual-router/software/programs.h"
#include "tools/virtual-router/text_file.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace virtual_router {

namespace {

constexpr int kWriteLeases = 16;
constexpr int kMostSignal = 64;

/// @return the signal number of "-16", or -1
int signal_of(const std::string& option) {
  char* end = nullptr;
  const long number = std::strtol(option.c_str() + 1, &end, 10);
  return end != option.c_str() + 1 && *end == '\0' && number >= 0 && number <= kMostSignal
             ? static_cast<int>(number)
             : -1;
}

void act(const Device& device, const std::string& name, int number) {
  if (name == "udhcpd" && number == kWriteLeases)
    replace_file(device.root + "/tmp/udhcpd.leases",
                 lease_file_by_settings(static_cast<std::uint32_t>(device.uptime_s)));
  std::printf("killall: %s was sent signal %d\n", name.c_str(), number);
}

} // namespace

int tool_killall(const Device& device, const Arguments& arguments) {
  int number = SIGTERM;
  bool all_found = true;
  bool named = false;
  const Programs programs(device.root);
  for (const auto& argument : arguments) {
    if (argument[0] == '-') {
      number = signal_of(argument);
      if (number < 0)
        break;
      continue;
    }
    named = true;
    if (programs.signal(argument, number)) {
      act(device, argument, number);
    } else {
      std::printf("killall: %s: no process killed\n", argument.c_str());
      all_found = false;
    }
  }
  if (number < 0 || !named) {
    std::printf("usage: killall [-SIGNAL] NAME...\n");
    return 2;
  }
  return all_found ? 0 : 1;
}

int tool_clear(const std::string& what, const Arguments& arguments) {
  if (arguments != Arguments{"--clear"}) {
    std::printf("usage: %s --clear\n", what.c_str());
    return 2;
  }
  std::printf("%s: cleared\n", what.c_str());
  return 0;
}

} // namespace virtual_router
