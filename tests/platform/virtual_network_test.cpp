// The virtual router's sockets and interface queries.

#include "platform/api/net.h"

#include "platform/api/nvram.h"
#include "tests/platform/device_fixture.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>

namespace {

class VirtualNetwork : public device_test::Device {
protected:
  VirtualNetwork() : fd_(net_socket(AF_INET, SOCK_DGRAM, 0)) {}
  ~VirtualNetwork() override {
    net_close(fd_);
    unsetenv("VIRTUAL_ROUTER_ADDRESS");
  }

  int query(unsigned long request, const char* name, ifreq& answer) const {
    answer = {};
    std::strncpy(answer.ifr_name, name, IFNAMSIZ - 1);
    return net_ioctl(fd_, request, &answer);
  }

  [[nodiscard]] std::string address(unsigned long request, const char* name) const {
    ifreq answer;
    if (query(request, name, answer) != 0) {
      return "failed";
    }
    sockaddr_in found{};
    std::memcpy(&found, &answer.ifr_addr, sizeof found);
    return inet_ntoa(found.sin_addr);
  }

  [[nodiscard]] std::string bound_to(const char* dotted) const {
    sockaddr_in where{};
    where.sin_family = AF_INET;
    inet_pton(AF_INET, dotted, &where.sin_addr);
    if (net_bind(fd_, reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0) {
      return "failed";
    }
    socklen_t length = sizeof where;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&where), &length);
    return inet_ntoa(where.sin_addr);
  }

  int fd_;
};

TEST_F(VirtualNetwork, AnyAddressBecomesTheRoutersOwn) {
  setenv("VIRTUAL_ROUTER_ADDRESS", "127.0.0.7", 1);
  EXPECT_EQ(bound_to("0.0.0.0"), "127.0.0.7");
}

TEST_F(VirtualNetwork, AGivenAddressIsKept) {
  setenv("VIRTUAL_ROUTER_ADDRESS", "127.0.0.7", 1);
  EXPECT_EQ(bound_to("127.0.0.1"), "127.0.0.1");
}

TEST_F(VirtualNetwork, AnAddressThatIsNoneBindsNothing) {
  setenv("VIRTUAL_ROUTER_ADDRESS", "everywhere", 1);
  EXPECT_EQ(bound_to("0.0.0.0"), "failed");
}

TEST_F(VirtualNetwork, ToolsInheritNoSocket) {
  EXPECT_NE(fcntl(fd_, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(VirtualNetwork, TheLanInterfaceAnswersFromTheSettings) {
  nvram_set("lan_ipaddr", "192.168.7.1");
  nvram_set("lan_netmask", "255.255.0.0");
  nvram_set("et0macaddr", "00:1a:2B:3c:4D:5e");
  EXPECT_EQ(address(SIOCGIFADDR, "br0"), "192.168.7.1");
  EXPECT_EQ(address(SIOCGIFNETMASK, "br0"), "255.255.0.0");
  EXPECT_EQ(address(SIOCGIFBRDADDR, "br0"), "192.168.255.255");
  nvram_set("lan0_ipaddr", "10.0.0.1");
  EXPECT_EQ(address(SIOCGIFADDR, "br0"), "10.0.0.1") << "the interface's own key comes first";
  ifreq answer;
  EXPECT_EQ(query(SIOCGIFHWADDR, "br0", answer), 0);
  EXPECT_EQ(answer.ifr_hwaddr.sa_family, ARPHRD_ETHER);
  EXPECT_EQ(std::memcmp(answer.ifr_hwaddr.sa_data, "\x00\x1A\x2B\x3C\x4D\x5E", 6), 0);
  EXPECT_EQ(query(SIOCGIFFLAGS, "br0", answer), 0);
  EXPECT_EQ(answer.ifr_flags & (IFF_UP | IFF_RUNNING), IFF_UP | IFF_RUNNING);
  EXPECT_EQ(query(SIOCGIFMTU, "br0", answer), 0);
  EXPECT_EQ(answer.ifr_mtu, 1500);
}

TEST_F(VirtualNetwork, TheWanInterfaceIsAPointToPointLink) {
  EXPECT_EQ(address(SIOCGIFADDR, "ppp0"), "failed") << "no address yet";
  nvram_set("wan0_ipaddr", "100.64.1.2");
  EXPECT_EQ(address(SIOCGIFADDR, "ppp0"), "100.64.1.2");
  EXPECT_EQ(address(SIOCGIFNETMASK, "ppp0"), "255.255.255.255");
  ifreq answer;
  EXPECT_EQ(query(SIOCGIFHWADDR, "ppp0", answer), 0);
  EXPECT_EQ(answer.ifr_hwaddr.sa_family, ARPHRD_PPP);
}

TEST_F(VirtualNetwork, AQueryLeavesTheTextOfNvramGetAlone) {
  nvram_set("lan_ipaddr", "192.168.7.1");
  nvram_set("held", "as it was");
  const char* held = nvram_get("held");
  EXPECT_EQ(address(SIOCGIFADDR, "br0"), "192.168.7.1");
  EXPECT_STREQ(held, "as it was");
}

TEST_F(VirtualNetwork, TheMachinesOwnInterfacesMayBeAskedAndNotChanged) {
  EXPECT_EQ(address(SIOCGIFADDR, "lo"), "127.0.0.1");
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  for (const unsigned long change : {SIOCSIFADDR, SIOCSIFFLAGS, SIOCSIFMTU, SIOCSIFNAME}) {
    EXPECT_EQ(net_ioctl(fd_, change, &request), -1);
    EXPECT_EQ(errno, EPERM);
  }
  EXPECT_EQ(net_ioctl(fd_, SIOCETHTOOL, &request), -1);
}

TEST_F(VirtualNetwork, ASendToAPeerThatHasGoneEndsNoProcess) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  close(ends[1]);
  EXPECT_EQ(net_send(ends[0], "x", 1, 0), -1);
  EXPECT_EQ(errno, EPIPE);
  close(ends[0]);
}

} // namespace
