#include "reporters/netif.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/text.h"
#include "platform/api/files.h"
#include "platform/api/net.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>

namespace rcmd {

NetIf* interface_list = nullptr;

namespace {

constexpr int kLineBytes = 256;
constexpr unsigned kMeanPacketBytes = 308; // estimated

constexpr std::int32_t kOther = 1;
constexpr std::int32_t kEthernet = 6;
constexpr std::int32_t kTokenRing = 9;
constexpr std::int32_t kLoopback = 24;

struct Counters {
  bool has_bytes; // otherwise the two byte counts mean nothing
  unsigned long long rx_bytes, rx_packets, rx_errors, tx_bytes, tx_packets, tx_errors, collisions;
};

struct FamilyType { // hardware families (ARPHRD numbers) and what they are
  int first, last;
  std::int32_t type;
};

constexpr FamilyType kFamilyTypes[] = {
    {1, 1, kEthernet},     {7, 7, 35},     {256, 259, 28}, {512, 512, 23},  {768, 769, 131},
    {772, 772, kLoopback}, {773, 773, 42}, {774, 774, 15}, {776, 776, 131},
};

struct NameType {
  const char* text;
  std::int32_t type;
};

constexpr NameType kNameTypes[] = {
    {"lo", kLoopback}, {"eth", kEthernet}, {"tr", kTokenRing}, {"ppp", 23}, {"sl", 28},
};

// Reads `count` numbers with blanks between them.
bool read_numbers(const char* text, unsigned long long* numbers, int count) {
  for (int i = 0; i < count; i++) {
    char* end = nullptr;
    numbers[i] = std::strtoull(text, &end, 10);
    if (end == text) {
      return false;
    }
    text = end;
  }
  return true;
}

// Sixteen columns with byte counts; the last two are not needed.
bool read_new_format(const char* text, Counters& counters) {
  unsigned long long n[14];
  if (!read_numbers(text, n, 14)) {
    return false;
  }
  counters = {true, n[0], n[1], n[2], n[8], n[9], n[10], n[13]};
  return true;
}

// Older kernels count packets alone.
bool read_old_format(const char* text, Counters& counters) {
  unsigned long long n[10];
  if (!read_numbers(text, n, 10)) {
    return false;
  }
  counters = {false, 0, n[0], n[1], 0, n[5], n[6], n[9]};
  return true;
}

// Fills in what the kernel does not count.
void complete(Counters& counters, const char* name) {
  if (std::strcmp(name, "lo") == 0 && counters.rx_packets != 0 && counters.tx_packets == 0) {
    // DELIBERATE: a loopback that counts no sent packets sent as many as it received.
    counters.tx_packets = counters.rx_packets;
  }
  if (!counters.has_bytes) {
    // DELIBERATE: where no bytes are counted, packets are taken to have the estimated mean size.
    counters.rx_bytes = counters.rx_packets * kMeanPacketBytes;
    counters.tx_bytes = counters.tx_packets * kMeanPacketBytes;
  }
}

void free_interface(NetIf* interface) {
  std::free(interface->if_name);
  std::free(interface->if_unit);
  std::free(interface);
}

NetIf* new_interface(const char* name) {
  auto* interface = static_cast<NetIf*>(std::calloc(1, sizeof(NetIf)));
  if (interface == nullptr) {
    return nullptr;
  }
  const std::size_t stem = std::strcspn(name, "0123456789");
  interface->if_name = strndup(name, stem);
  interface->if_unit = strdup(name + stem);
  if (interface->if_name == nullptr || interface->if_unit == nullptr) {
    free_interface(interface);
    return nullptr;
  }
  return interface;
}

void store_counters(NetIf& interface, const Counters& counters) {
  interface.rx_bytes = static_cast<std::uint32_t>(counters.rx_bytes);
  interface.rx_packets = static_cast<std::uint32_t>(counters.rx_packets);
  interface.rx_errors = static_cast<std::uint32_t>(counters.rx_errors);
  interface.tx_bytes = static_cast<std::uint32_t>(counters.tx_bytes);
  interface.tx_packets = static_cast<std::uint32_t>(counters.tx_packets);
  interface.tx_errors = static_cast<std::uint32_t>(counters.tx_errors);
  interface.collisions = static_cast<std::uint32_t>(counters.collisions);
}

ifreq request_for(const char* name) {
  ifreq request = {};
  copy_field(request.ifr_name, sizeof request.ifr_name - 1, name);
  return request;
}

bool query(int fd, unsigned long what, const char* name, ifreq& request) {
  request = request_for(name);
  return net_ioctl(fd, what, &request) == 0;
}

void query_address(int fd, unsigned long what, const char* name, sockaddr_in& address) {
  ifreq request;
  if (query(fd, what, name, request)) {
    std::memcpy(&address, &request.ifr_addr, sizeof address);
  }
}

std::int32_t type_of_family(int family) {
  for (const FamilyType& row : kFamilyTypes) {
    if (family >= row.first && family <= row.last) {
      return row.type;
    }
  }
  return 0;
}

std::uint32_t speed_of(std::int32_t type) {
  switch (type) {
  case kEthernet:
  case kLoopback:
    return 10'000'000;
  case kTokenRing:
    return 4'000'000;
  default:
    return 0;
  }
}

void query_all(int fd, const char* name, NetIf& interface) {
  query_address(fd, SIOCGIFADDR, name, interface.addr);
  query_address(fd, SIOCGIFBRDADDR, name, interface.broadaddr);
  query_address(fd, SIOCGIFNETMASK, name, interface.netmask);
  ifreq request;
  if (query(fd, SIOCGIFFLAGS, name, request)) {
    interface.if_flags = static_cast<std::uint16_t>(request.ifr_flags);
  }
  if (query(fd, SIOCGIFHWADDR, name, request)) {
    std::memcpy(interface.hwaddr, request.ifr_hwaddr.sa_data, sizeof interface.hwaddr);
    interface.if_type = type_of_family(request.ifr_hwaddr.sa_family);
  }
  if (query(fd, SIOCGIFMETRIC, name, request)) {
    interface.metric = request.ifr_metric;
  }
  if (query(fd, SIOCGIFMTU, name, request)) {
    interface.mtu = static_cast<std::uint16_t>(request.ifr_mtu);
  }
}

// Asks for the Ethernet settings; the answer is not used.
void query_ethernet_tool(int fd, const char* name) {
  std::uint32_t settings[11] = {1}; // get settings
  static_assert(sizeof settings == 44);
  ifreq request = request_for(name);
  request.ifr_data = reinterpret_cast<char*>(settings);
  ignore(net_ioctl(fd, SIOCETHTOOL, &request)); // nothing depends on it
}

// Appends one interface at `tail`. @return false when memory is out
bool add_interface(NetIf**& tail, int fd, const char* name, const Counters& counters) {
  NetIf* interface = new_interface(name);
  if (interface == nullptr) {
    return false;
  }
  store_counters(*interface, counters);
  query_all(fd, name, *interface);
  if (interface->if_type == 0) {
    interface->if_type = netif_type_by_name(interface->if_name);
  }
  interface->speed = speed_of(interface->if_type);
  if (interface->if_type == kEthernet) {
    query_ethernet_tool(fd, name);
  }
  *tail = interface;
  tail = &interface->next;
  return true;
}

const char* skip_blanks(const char* text) {
  return text + std::strspn(text, " ");
}

void read_interfaces(std::FILE* file, int fd) {
  char line[kLineBytes] = "";
  ignore(std::fgets(line, sizeof line, file)); // a short file shows below, as an empty list
  ignore(std::fgets(line, sizeof line, file));
  auto* read_counters =
      std::strstr(line, "compressed") != nullptr ? read_new_format : read_old_format;
  NetIf** tail = &interface_list;
  while (std::fgets(line, sizeof line, file) != nullptr) {
    char* colon = std::strrchr(line, ':');
    Counters counters;
    if (colon == nullptr || !read_counters(colon + 1, counters)) {
      continue;
    }
    *colon = '\0';
    const char* name = skip_blanks(line);
    complete(counters, name);
    if (!add_interface(tail, fd, name, counters)) {
      return;
    }
  }
}

const NetIf* interface_named(const char* name) {
  for (const NetIf* at = interface_list; at != nullptr; at = at->next) {
    const std::size_t stem = std::strlen(at->if_name);
    if (std::strncmp(name, at->if_name, stem) == 0 && std::strcmp(name + stem, at->if_unit) == 0) {
      return at;
    }
  }
  return nullptr;
}

int put(std::uint32_t value, void* out) {
  std::memcpy(out, &value, sizeof value);
  return sizeof value;
}

std::uint32_t status_of(const NetIf& interface, unsigned flag) {
  return (interface.if_flags & flag) != 0 ? 1 : 2;
}

} // namespace

int netif_init() {
  netif_fina();
  const int fd = net_socket(AF_INET, SOCK_DGRAM, 0);
  if (fd < 0) {
    return kFailure;
  }
  std::FILE* file = std::fopen(device_path("/proc/net/dev"), "r");
  if (file == nullptr) {
    net_close(fd);
    return kFailure;
  }
  read_interfaces(file, fd);
  std::fclose(file);
  net_close(fd);
  return kSuccess;
}

int netif_fina() {
  while (interface_list != nullptr) {
    NetIf* next = interface_list->next;
    free_interface(interface_list);
    interface_list = next;
  }
  return kSuccess;
}

int netif_get(const char* name, int column, void* out) {
  const NetIf* interface = interface_named(name);
  if (interface == nullptr) {
    return kFailure;
  }
  switch (column) {
  case kIfSpeed:
    return put(interface->speed, out);
  case kIfPhysAddress:
    std::memcpy(out, interface->hwaddr, sizeof interface->hwaddr);
    return sizeof interface->hwaddr;
  case kIfAdminStatus:
    return put(status_of(*interface, IFF_UP), out);
  case kIfOperStatus:
    return put(status_of(*interface, IFF_RUNNING), out);
  case kIfInOctets:
    return put(interface->rx_bytes, out);
  case kIfInUcastPkts:
    return put(interface->rx_packets, out);
  case kIfInErrors:
    return put(interface->rx_errors, out);
  case kIfOutOctets:
    return put(interface->tx_bytes, out);
  case kIfOutUcastPkts:
    return put(interface->tx_packets, out);
  case kIfOutErrors:
    return put(interface->tx_errors, out);
  case kIfAddress:
    return put(interface->addr.sin_addr.s_addr, out);
  case kIfNetmask:
    return put(interface->netmask.sin_addr.s_addr, out);
  case kIfCollisions:
    return put(interface->collisions, out);
  default:
    return kFailure;
  }
}

std::int32_t netif_type_by_name(const char* if_name) {
  for (const NameType& row : kNameTypes) {
    if (std::strncmp(if_name, row.text, std::strlen(row.text)) == 0) {
      return row.type;
    }
  }
  return kOther;
}

} // namespace rcmd
