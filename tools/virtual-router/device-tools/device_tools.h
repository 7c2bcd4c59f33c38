// The device's own tools killall, spi, eroute and rm. They act on the pretend programs and on the
// files of one device's folder; nothing of the machine that the device lives on is ever reached.
//
// Each takes its arguments without its name and gives an exit status: 0 done, 1 not done, 2 wrong
// arguments. What it says goes to standard output.
#pragma once

#include <string>
#include <vector>

namespace virtual_router {

struct Device {
  std::string root; ///< the folder
  int uptime_s = 0;
};

using Arguments = std::vector<std::string>;

/// killall [-SIGNAL] NAME...: SIGNAL is a number, 15 without one. Signal 16 has the DHCP server
/// write its lease file.
int tool_killall(const Device& device, const Arguments& arguments);

/// spi --clear, eroute --clear: say so.
int tool_clear(const std::string& what, const Arguments& arguments);

/// rm [-r] [-f] PATH...: absolute device paths only. A path that leads out of the folder, and the
/// folder itself, are refused.
int tool_rm(const Device& device, const Arguments& arguments);

} // namespace virtual_router
