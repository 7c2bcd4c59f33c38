#include "core/owned.h"
#include "platform/api/net.h"
#include "platform/api/wireless.h"

#include <cstdint>
#include <cstdio>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>

namespace {

/// The wireless driver's own request record.
struct WirelessRequest {
  uint32_t command;
  void* buffer;
  uint32_t length;
  uint8_t set;
  uint32_t used;
  uint32_t needed;
};

} // namespace

extern "C" {

int net_bind(int fd, const struct sockaddr* address, socklen_t length) {
  return bind(fd, address, length);
}

int net_ioctl(int fd, unsigned long request, void* argument) {
  return ioctl(fd, request, argument);
}

int wl_ioctl(const char* interface_name, int command, void* buffer, int length_bytes) {
  const rcmd::UniqueFd query(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  WirelessRequest record = {
      static_cast<uint32_t>(command), buffer, static_cast<uint32_t>(length_bytes), 0, 0, 0};
  ifreq request = {};
  snprintf(request.ifr_name, sizeof request.ifr_name, "%s", interface_name);
  request.ifr_data = reinterpret_cast<char*>(&record);
  return query && ioctl(query.get(), SIOCDEVPRIVATE, &request) >= 0 ? 0 : -1;
}

} // extern "C"
