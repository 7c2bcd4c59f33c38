#include "platform/api/net.h"
#include "platform/common/nvram_store.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>

namespace {

/// A store of its own: answering a query must not end the life of a text that nvram_get gave out.
rcmd::NvramStore settings;

/// The pretend interfaces; what they answer stands in the router's own settings.
struct Interface {
  const char* name;
  const char* address_keys[2];
  const char* netmask_keys[2];
  const char* default_netmask;
  const char* hardware_key;
  uint16_t hardware_family;
  uint16_t flags;
};

constexpr Interface kInterfaces[] = {
    {"br0",
     {"lan0_ipaddr", "lan_ipaddr"},
     {"lan0_netmask", "lan_netmask"},
     "255.255.255.0",
     "et0macaddr",
     ARPHRD_ETHER,
     IFF_UP | IFF_BROADCAST | IFF_RUNNING | IFF_MULTICAST},
    {"ppp0",
     {"wan0_ipaddr", "wan_ipaddr"},
     {"wan0_netmask", nullptr},
     "255.255.255.255",
     nullptr,
     ARPHRD_PPP,
     IFF_UP | IFF_POINTOPOINT | IFF_RUNNING | IFF_NOARP | IFF_MULTICAST},
};

const Interface* find_interface(const char* name) {
  for (const Interface& candidate : kInterfaces) {
    if (strncmp(candidate.name, name, IFNAMSIZ) == 0) {
      return &candidate;
    }
  }
  return nullptr;
}

/// Reads the first of the keys that holds an address.
bool address_of(const char* const keys[2], in_addr* address) {
  for (int i = 0; i < 2 && keys[i] != nullptr; i++) {
    const char* text = settings.get(keys[i]);
    if (text != nullptr && inet_pton(AF_INET, text, address) == 1) {
      return true;
    }
  }
  return false;
}

bool hardware_of(const Interface& which, uint8_t mac[6]) {
  const char* text = which.hardware_key == nullptr ? nullptr : settings.get(which.hardware_key);
  unsigned parts[6] = {};
  if (text == nullptr || sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x", &parts[0], &parts[1], &parts[2],
                                &parts[3], &parts[4], &parts[5]) != 6) {
    return false;
  }
  for (int i = 0; i < 6; i++) {
    mac[i] = static_cast<uint8_t>(parts[i]);
  }
  return true;
}

void give(sockaddr* where, in_addr address) {
  sockaddr_in result = {};
  result.sin_family = AF_INET;
  result.sin_addr = address;
  memcpy(where, &result, sizeof *where);
}

int fail(int error) {
  errno = error;
  return -1;
}

int answer_address(const Interface& which, unsigned long request, ifreq* query) {
  in_addr address = {};
  if (!address_of(which.address_keys, &address)) {
    return fail(EADDRNOTAVAIL);
  }
  in_addr netmask = {};
  if (!address_of(which.netmask_keys, &netmask)) {
    inet_pton(AF_INET, which.default_netmask, &netmask);
  }
  if (request == SIOCGIFADDR || request == SIOCGIFDSTADDR) {
    give(&query->ifr_addr, address);
  } else if (request == SIOCGIFNETMASK) {
    give(&query->ifr_netmask, netmask);
  } else {
    give(&query->ifr_broadaddr, in_addr{address.s_addr | ~netmask.s_addr});
  }
  return 0;
}

int answer(const Interface& which, unsigned long request, ifreq* query) {
  switch (request) {
  case SIOCGIFADDR:
  case SIOCGIFDSTADDR:
  case SIOCGIFNETMASK:
  case SIOCGIFBRDADDR:
    return answer_address(which, request, query);
  case SIOCGIFFLAGS:
    query->ifr_flags = static_cast<short>(which.flags);
    return 0;
  case SIOCGIFHWADDR:
    memset(&query->ifr_hwaddr, 0, sizeof query->ifr_hwaddr);
    query->ifr_hwaddr.sa_family = which.hardware_family;
    hardware_of(which, reinterpret_cast<uint8_t*>(query->ifr_hwaddr.sa_data));
    return 0;
  case SIOCGIFMTU:
    query->ifr_mtu = 1500;
    return 0;
  case SIOCGIFMETRIC:
    query->ifr_metric = 0;
    return 0;
  default:
    return fail(EOPNOTSUPP);
  }
}

bool is_query(unsigned long request) {
  for (const unsigned long harmless : {SIOCGIFADDR, SIOCGIFDSTADDR, SIOCGIFNETMASK, SIOCGIFBRDADDR,
                                       SIOCGIFFLAGS, SIOCGIFHWADDR, SIOCGIFMTU, SIOCGIFMETRIC}) {
    if (request == harmless) {
      return true;
    }
  }
  return false;
}

} // namespace

extern "C" {

int net_bind(int fd, const struct sockaddr* address, socklen_t length) {
  const char* own = getenv("VIRTUAL_ROUTER_ADDRESS");
  sockaddr_in where = {};
  if (own == nullptr || length < sizeof where || address->sa_family != AF_INET) {
    return bind(fd, address, length);
  }
  memcpy(&where, address, sizeof where);
  if (where.sin_addr.s_addr == htonl(INADDR_ANY) && inet_pton(AF_INET, own, &where.sin_addr) != 1) {
    return fail(EADDRNOTAVAIL);
  }
  return bind(fd, reinterpret_cast<const sockaddr*>(&where), sizeof where);
}

int net_ioctl(int fd, unsigned long request, void* argument) {
  auto* query = static_cast<ifreq*>(argument);
  if (!is_query(request) && request != SIOCETHTOOL) {
    return request == FIONREAD ? ioctl(fd, request, argument) : fail(EPERM);
  }
  const Interface* pretend = find_interface(query->ifr_name);
  if (pretend != nullptr) {
    return answer(*pretend, request, query);
  }
  // The Ethernet tool's request can also change a card.
  return request == SIOCETHTOOL ? fail(EOPNOTSUPP) : ioctl(fd, request, argument);
}

} // extern "C"
