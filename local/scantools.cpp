#include "local/scantools.h"

#include "core/say.h"
#include "core/text.h"
#include "local/backup_nvram.h"
#include "local/owned_socket.h"
#include "platform/api/convert.h"
#include "platform/api/event_loop.h"
#include "platform/api/net.h"
#include "platform/api/nvram.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

namespace rcmd {

namespace {

constexpr std::uint16_t kPort = 2719;
constexpr int kDatagramMode = 1;
constexpr std::size_t kReceiveBytes = 1024;

constexpr std::uint8_t kMagic = 0xBA;
constexpr std::uint8_t kOtherMagic = 0xAB; // on requests alone
constexpr std::uint8_t kDiscoveryReply = 2;
constexpr std::uint8_t kSetReply = 4;
constexpr std::uint16_t kDiscoveryFields = 0x24D7;

constexpr std::uint16_t kSetsCommunity = 0x0001;
constexpr std::uint16_t kSetsAddress = 0x0004;
constexpr std::uint16_t kSetsSecondAddress = 0x0100;
constexpr std::uint16_t kSetsReconnectInterval = 0x2000;

struct Entry {
  std::uint8_t type;
  int (*handler)(int socket, const ScanMessage& message, std::size_t length, const sockaddr* sender,
                 socklen_t sender_bytes);
};

int reply(int socket, const ScanMessage& message, const sockaddr* sender, socklen_t sender_bytes) {
  const ssize_t sent = net_sendto(socket, &message, sizeof message, 0, sender, sender_bytes);
  if (sent != static_cast<ssize_t>(sizeof message)) {
    console("sendto %d bytes fail return %d \n", static_cast<int>(sizeof message),
            static_cast<int>(sent));
    return -1;
  }
  return 0;
}

/// A text with its NUL in a field that is zero already; what does not fit before the NUL is cut.
template <std::size_t size> void put_text(char (&field)[size], const char* text) {
  copy_field(field, size - 1, text);
}

/// What the kernel says of one interface; whatever it refuses leaves the field alone.
class InterfaceQuery {
public:
  InterfaceQuery(int socket, const char* name) : socket_(socket) { put_text(name_, name); }

  void hardware_address(std::uint8_t (&mac)[6]) const {
    ifreq request{};
    if (ask(SIOCGIFHWADDR, request)) {
      std::memcpy(mac, request.ifr_hwaddr.sa_data, sizeof mac);
    }
  }
  /// @param which  SIOCGIFADDR or SIOCGIFNETMASK
  void address(unsigned long which, std::uint8_t (&address)[4]) const {
    ifreq request{};
    if (ask(which, request)) {
      sockaddr_in answer;
      std::memcpy(&answer, &request.ifr_addr, sizeof answer);
      std::memcpy(address, &answer.sin_addr, sizeof address);
    }
  }

private:
  bool ask(unsigned long which, ifreq& request) const {
    std::memcpy(request.ifr_name, name_, sizeof request.ifr_name);
    return net_ioctl(socket_, which, &request) >= 0;
  }

  int socket_;
  char name_[IFNAMSIZ] = {};
};

int discovery(int socket, const ScanMessage&, std::size_t, const sockaddr* sender,
              socklen_t sender_bytes) {
  const OwnedSocket questions(net_socket(AF_INET, SOCK_DGRAM, 0));
  if (questions.get() < 0) {
    return -1;
  }
  const InterfaceQuery lan(questions.get(), nvram_text("lan0_ifname"));
  ScanMessage answer{};
  answer.magic = kMagic;
  answer.type = kDiscoveryReply;
  // DELIBERATE: the community is never disclosed.
  put_text(answer.community, "*****");
  put_text(answer.product_model, nvram_text("product_model"));
  lan.hardware_address(answer.mac);
  lan.address(SIOCGIFADDR, answer.address);
  lan.address(SIOCGIFNETMASK, answer.second_address);
  answer.word = 1;
  in_addr file_server{};
  atoaddr("172.16.0.2", 0, &file_server);
  std::memcpy(answer.file_server, &file_server, sizeof answer.file_server);
  put_text(answer.file_name, "firmware.bin");
  std::uint32_t interval_s = 0;
  atoul(nvram_text("jqa_reconnect_interval"), nullptr, 10, &interval_s);
  answer.reconnect_interval = interval_s;
  answer.fields = kDiscoveryFields;
  return reply(socket, answer, sender, sender_bytes);
}

int ignored(int, const ScanMessage&, std::size_t, const sockaddr*, socklen_t) {
  return 0;
}

void set_community(const ScanMessage& message) {
  char community[sizeof message.community + 1] = {};
  std::memcpy(community, message.community, sizeof message.community);
  nvram_set("snmp_ro_sec", community);
  nvram_set("snmp_rw_sec", community);
}

void set_lan_address(const std::uint8_t (&bytes)[4]) {
  in_addr address;
  std::memcpy(&address, bytes, sizeof address);
  nvram_set("lan0_ipaddr", inet_ntoa(address));
}

void set_reconnect_interval(std::uint32_t interval_s) {
  char text[16];
  std::snprintf(text, sizeof text, "%d", static_cast<std::int32_t>(interval_s));
  backup_nvram_set("jqa_reconnect_interval", text);
  nvram_set("jqa_reconnect_interval", text);
}

void apply(const ScanMessage& message) {
  const std::uint16_t fields = message.fields;
  if ((fields & kSetsCommunity) != 0) {
    set_community(message);
  }
  if ((fields & kSetsAddress) != 0) {
    set_lan_address(message.address);
  }
  // DELIBERATE: a message that carries both addresses ends with the second one.
  if ((fields & kSetsSecondAddress) != 0) {
    set_lan_address(message.second_address);
  }
  if ((fields & kSetsReconnectInterval) != 0) {
    set_reconnect_interval(message.reconnect_interval);
  }
}

int set_values(int socket, const ScanMessage& message, std::size_t, const sockaddr* sender,
               socklen_t sender_bytes) {
  if (backup_nvram_init() < 0) {
    return -1;
  }
  apply(message);
  backup_nvram_fini();
  backup_nvram_commit(); // the live values count, whatever became of their copies

  ScanMessage answer{};
  answer.magic = kMagic;
  answer.type = kSetReply;
  if (reply(socket, answer, sender, sender_bytes) < 0) {
    return -1; // the values stay set and uncommitted
  }
  do_system_reboot();
  return 0;
}

constexpr Entry entries[] = {
    {1, discovery}, {2, ignored}, {3, set_values}, {4, ignored}, {0xFF, ignored},
};
static_assert(sizeof entries / sizeof entries[0] == 5);

/// Closed before it is unregistered. @return 0: there is nothing left to ask again about
// DELIBERATE: this is the server's own socket: one malformed datagram ends the service until the
// daemon starts again.
int end_service(int socket) {
  net_close(socket);
  unregister_fd_desc(socket);
  return 0;
}

/// The server socket's readiness handler.
int receive(FdDescriptor* descriptor) {
  const int socket = static_cast<int>(descriptor->fd);
  std::uint8_t bytes[kReceiveBytes];
  sockaddr_storage sender{};
  socklen_t sender_bytes = sizeof sender;
  auto* const sender_address = reinterpret_cast<sockaddr*>(&sender);
  const ssize_t count = net_recvfrom(socket, bytes, sizeof bytes, 0, sender_address, &sender_bytes);
  if (count < 1) {
    console("read fail .... \n");
    return end_service(socket);
  }
  ScanMessage message;
  if (static_cast<std::size_t>(count) < sizeof message) {
    console("too short packet .. \n");
    return end_service(socket);
  }
  std::memcpy(&message, bytes, sizeof message);
  if (message.magic != kMagic && message.magic != kOtherMagic) {
    console("Unknown Packet\n");
    return end_service(socket);
  }
  return scantools_msg_dispatch(socket, message, static_cast<std::size_t>(count), sender_address,
                                sender_bytes);
}

} // namespace

int scantools_open(int socket_mode) {
  if (socket_mode != kDatagramMode) {
    console("Unknown socket type %d \n", socket_mode);
    return -1;
  }
  OwnedSocket server(net_socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
  if (server.get() < 0) {
    console("socket() fail \n");
    return -1;
  }
  if (!switch_on(server, SO_BROADCAST) || !switch_on(server, SO_REUSEADDR)) {
    console("setsockopt() fail \n");
    return -1;
  }
  if (!bind_to_port(server, kPort)) {
    console("bind() fail \n");
    return -1;
  }
  if (register_fd_desc(server.get(), receive, nullptr) < 0) {
    return -1;
  }
  return server.release();
}

int scantools_msg_dispatch(int socket, const ScanMessage& message, std::size_t length,
                           const sockaddr* sender, socklen_t sender_bytes) {
  for (const Entry& entry : entries) {
    if (entry.type == message.type && entry.handler != nullptr) {
      return entry.handler(socket, message, length, sender, sender_bytes);
    }
  }
  return -1;
}

} // namespace rcmd
