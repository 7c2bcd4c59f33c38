// The log lines of the pretend programs pppd, modem, pluto, udhcpd and dnsmasq, sent to the
// device's syslog daemon through "/dev/log" at a set pace.
#pragma once

#include "tools/virtual-router/software/programs.h"

#include <cstdint>
#include <string>

namespace virtual_router {

/// Line number `n` of the endless list, without its priority: "pppd[231]: rcvd [LCP EchoReq ...]".
std::string chatter_line(std::uint32_t n);

class Chatter {
public:
  /// @param lines_per_minute  of the device's own time; 0 for silence
  Chatter(std::string root, std::uint32_t lines_per_minute, std::int32_t uptime_s);
  ~Chatter();
  Chatter(const Chatter&) = delete;
  Chatter& operator=(const Chatter&) = delete;

  /// Sends the lines that are due by `uptime_s`. Lines of stopped programs are left out; so are
  /// those that the syslog daemon does not take now.
  void advance(std::int32_t uptime_s);

private:
  void send(const std::string& line) const;

  std::string root_;
  Programs programs_;
  std::uint32_t lines_per_minute_;
  std::int32_t since_s_;
  int socket_;
  std::uint32_t said_ = 0;
};

} // namespace virtual_router
