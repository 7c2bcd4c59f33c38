#include "tools/virtual-router/software/programs.h"

#include "tools/virtual-router/text_file.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace virtual_router {

bool Programs::known(const std::string& name) {
  static const std::vector<std::string> names = {
      "bridge_led", "utelnetd", "udhcpd", "wwan_monitor", "pppd", "wanmonitor", "dnsmasq", "pluto",
  };
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool Programs::stopped(const std::string& name) const {
  return access(note("stopped", name).c_str(), F_OK) == 0;
}

bool Programs::signal(const std::string& name, int number) const {
  if (!known(name) || stopped(name))
    return false;
  append_line(root_ + "/run/signals", name + " " + std::to_string(number));
  if (number == SIGTERM || number == SIGKILL)
    replace_file(note("stopped", name), "");
  if (number == SIGHUP)
    replace_file(note("hangup", name), "");
  return true;
}

bool Programs::take_hangup(const std::string& name) const {
  return std::remove(note("hangup", name).c_str()) == 0;
}

} // namespace virtual_router
