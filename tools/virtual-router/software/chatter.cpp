#include "tools/virtual-router/software/chatter.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace virtual_router {

namespace {

struct Saying {
  const char* program;
  const char* tag;
  const char* format; ///< takes one number
};

constexpr Saying kSayings[] = {
    {"pppd", "pppd[231]", "rcvd [LCP EchoReq id=0x%x]"},
    {"modem", "modem[187]", "network time step %u, signal good"},
    {"dnsmasq", "dnsmasq[142]", "query[A] host%u.example from 192.168.1.100"},
    {"pluto", "pluto[305]", "\"office\" #%u: IPsec SA established"},
    {"udhcpd", "udhcpd", "sending ACK number %u to 192.168.1.100"},
    {"pppd", "pppd[231]", "sent [LCP EchoRep id=0x%x]"},
    {"kernel", "kernel", "br0: port 2(eth1) entering forwarding state, pass %u"},
};
constexpr std::uint32_t kSayingsCount = std::size(kSayings);
constexpr std::uint32_t kMostAtOnce = 200; ///< per call; what is over is skipped

} // namespace

std::string chatter_line(std::uint32_t n) {
  const Saying& saying = kSayings[n % kSayingsCount];
  char text[160];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(text, sizeof text, saying.format, n);
#pragma GCC diagnostic pop
  return std::string(saying.tag) + ": " + text;
}

Chatter::Chatter(std::string root, std::uint32_t lines_per_minute, std::int32_t uptime_s)
    : root_(std::move(root)), programs_(root_), lines_per_minute_(lines_per_minute),
      since_s_(uptime_s), socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}

Chatter::~Chatter() {
  if (socket_ >= 0)
    close(socket_);
}

void Chatter::advance(std::int32_t uptime_s) {
  const auto passed_s = static_cast<std::uint64_t>(std::max(uptime_s - since_s_, 0));
  const auto due = static_cast<std::uint32_t>(passed_s * lines_per_minute_ / 60);
  said_ = std::max(said_, due - std::min(due, kMostAtOnce));
  for (; said_ < due; ++said_)
    if (!programs_.stopped(kSayings[said_ % kSayingsCount].program))
      send("<30>" + chatter_line(said_));
}

void Chatter::send(const std::string& line) const {
  // A socket's address has room for 108 characters only; the folder's name may be longer.
  const int folder = open((root_ + "/dev").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/log", folder);
  sendto(socket_, line.data(), line.size(), 0, reinterpret_cast<const sockaddr*>(&address),
         sizeof address);
  close(folder);
}

} // namespace virtual_router
