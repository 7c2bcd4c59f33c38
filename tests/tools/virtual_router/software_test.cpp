#include "tools/virtual-router/software/chatter.h"
#include "tools/virtual-router/software/leases.h"
#include "tools/virtual-router/software/scenery.h"

#include "tests/fake_platform/fixture.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace virtual_router;
using ::testing::HasSubstr;

namespace {

class PretendSoftware : public fake::Fixture {
protected:
  PretendSoftware() { mkdir_run(); }
  void mkdir_run() {
    fake::world().write_file("/tmp/.keep", "");
    ASSERT_EQ(0, system(("mkdir -p " + root() + "/run").c_str()));
  }
  static std::string root() { return fake::world().root(); }
  static std::string setting(const std::string& name) { return fake::world().nvram[name]; }
  static bool has(const std::string& name) { return fake::world().nvram.count(name) != 0; }
  Programs programs{root()};
};

TEST_F(PretendSoftware, CountersGrowWithTheDevicesSeconds) {
  WanLink link(programs, 100);
  link.advance(100);
  EXPECT_EQ(setting("wwan_tx_bytes"), "0");
  link.advance(101);
  // second 100: 2 packets of 120 bytes and 52 more; 2 + 101 * 7 % 5 = 4 packets of 540 and 25 more
  EXPECT_EQ(setting("wwan_tx_bytes"), "292");
  EXPECT_EQ(setting("wwan_tx_packets"), "2");
  EXPECT_EQ(setting("wwan_rx_bytes"), "2185");
  EXPECT_EQ(setting("wwan_rx_packets"), "4");
  EXPECT_EQ(setting("wan0_uptime"), "1");
}

TEST_F(PretendSoftware, AStopTakesTheLinkDownAndTheRequestAway) {
  WanLink link(programs, 100);
  link.advance(110);
  fake::world().nvram["wan0_action"] = "stop";
  link.advance(111);
  EXPECT_EQ(setting("wan0_status"), "down");
  EXPECT_EQ(setting("wan0_ipaddr"), "0.0.0.0");
  EXPECT_EQ(setting("wan0_uptime"), "0");
  EXPECT_FALSE(has("wan0_action"));
}

TEST_F(PretendSoftware, CountersStandStillWhileTheLinkIsDown) {
  WanLink link(programs, 100);
  fake::world().nvram["wan0_action"] = "stop";
  link.advance(100);
  link.advance(200);
  EXPECT_EQ(setting("wwan_rx_bytes"), "0");
}

TEST_F(PretendSoftware, AStartBringsTheLinkUpWithAFreshUptime) {
  WanLink link(programs, 100);
  fake::world().nvram["wan0_action"] = "stop";
  link.advance(110);
  fake::world().nvram["wan0_action"] = "start";
  link.advance(150);
  link.advance(153);
  EXPECT_EQ(setting("wan0_status"), "up");
  EXPECT_EQ(setting("wan0_uptime"), "3");
  EXPECT_FALSE(has("wan0_action"));
}

TEST_F(PretendSoftware, AnUnknownActionIsTakenAwayAndChangesNothing) {
  WanLink link(programs, 100);
  fake::world().nvram["wan0_action"] = "dance";
  link.advance(101);
  EXPECT_EQ(setting("wan0_status"), "up");
  EXPECT_FALSE(has("wan0_action"));
}

TEST_F(PretendSoftware, AStoppedPppDaemonHoldsTheLinkDown) {
  WanLink link(programs, 100);
  ASSERT_TRUE(programs.signal("pppd", 15));
  fake::world().nvram["wan0_action"] = "start";
  link.advance(101);
  EXPECT_EQ(setting("wan0_status"), "down");
}

TEST_F(PretendSoftware, AHangupOfThePppDaemonRedials) {
  WanLink link(programs, 100);
  link.advance(150);
  ASSERT_TRUE(programs.signal("pppd", 1));
  link.advance(151);
  EXPECT_EQ(setting("wan0_status"), "up");
  EXPECT_EQ(setting("wan0_uptime"), "0");
  link.advance(160);
  EXPECT_EQ(setting("wan0_uptime"), "9") << "one hangup, one redial";
}

TEST_F(PretendSoftware, EachDiallingGetsTheNextOfTheCarriersAddresses) {
  WanLink link(programs, 100, 59998);
  link.advance(101);
  EXPECT_EQ(setting("wan0_ipaddr"), "10.64.239.250");
  ASSERT_TRUE(programs.signal("pppd", 1));
  link.advance(102);
  EXPECT_EQ(setting("wan0_ipaddr"), "10.64.239.251");
  fake::world().nvram["wan0_action"] = "stop";
  link.advance(103);
  fake::world().nvram["wan0_action"] = "start";
  link.advance(104);
  EXPECT_EQ(setting("wan0_ipaddr"), "10.64.0.2");
}

TEST_F(PretendSoftware, AStoppedProgramCannotBeSignalledAgain) {
  EXPECT_TRUE(programs.signal("bridge_led", 9));
  EXPECT_TRUE(programs.stopped("bridge_led"));
  EXPECT_FALSE(programs.signal("bridge_led", 9));
  EXPECT_FALSE(programs.signal("no_such_program", 15));
}

TEST_F(PretendSoftware, ThePositionMovesInACircle) {
  publish_position(0);
  EXPECT_EQ(setting("gps_lat"), "48.2000");
  EXPECT_EQ(setting("gps_long"), "16.3850");
  publish_position(150);
  EXPECT_EQ(setting("gps_lat"), "48.2150");
  EXPECT_EQ(setting("gps_long"), "16.3700");
  EXPECT_EQ(setting("wan0_wwan_gps"), "48.2150,16.3700");
}

TEST_F(PretendSoftware, LeasesAreRecordsOf88Bytes) {
  const std::string file = lease_file(0xC0A80164, 0x15180, 3);
  ASSERT_EQ(file.size(), 4U * 88);
  EXPECT_EQ(fake::to_hex(file.data(), 24), "02ab00001001"
                                           "00000000000000000000"
                                           "c0a80164"
                                           "0001517d");
  EXPECT_STREQ(file.c_str() + 24, "desk-pc");
  EXPECT_EQ(fake::to_hex(file.data() + 88, 6), "000000000000");
  EXPECT_STREQ(file.c_str() + 3 * 88 + 24, "") << "the last client has no name";
}

TEST_F(PretendSoftware, AClientRenewsWhenHalfItsTimeIsOver) {
  EXPECT_EQ(fake::to_hex(lease_file(0, 100, 49).data() + 20, 4), "00000033");
  EXPECT_EQ(fake::to_hex(lease_file(0, 100, 50).data() + 20, 4), "00000064");
  EXPECT_EQ(lease_file(0, 0, 5).size(), 4U * 88) << "a lease time of 0 is served too";
}

TEST_F(PretendSoftware, LeasesFollowTheSettings) {
  fake::world().nvram["lan_dhcp_start"] = "10.1.2.3";
  EXPECT_EQ(fake::to_hex(lease_file_by_settings(0).data() + 16, 4), "0a010203");
  fake::world().nvram["lan_dhcp_enable"] = "0";
  EXPECT_EQ(lease_file_by_settings(0), "");
}

TEST_F(PretendSoftware, StationsSignalsMove) {
  const std::string now = stations_text(0);
  EXPECT_THAT(now, HasSubstr("02:AB:00:00:20:01 -50\n"));
  EXPECT_NE(now, stations_text(5));
}

TEST_F(PretendSoftware, InterfaceCountersCarryTheLinksTraffic) {
  WanLink link(programs, 100);
  link.advance(101);
  const std::string text = interfaces_text(link, 10);
  EXPECT_THAT(text, HasSubstr("compressed"));
  EXPECT_THAT(text, HasSubstr("  ppp0:    2185       4    0    0    0     0          0         0 "
                              "     292       2    0    0    0     0       0          0\n"));
  EXPECT_THAT(text, HasSubstr("   br0:   27900      90 "));
}

TEST_F(PretendSoftware, EveryPretendProgramSpeaks) {
  std::string all;
  for (std::uint32_t n = 0; n < 7; ++n)
    all += chatter_line(n) + "\n";
  for (const char* mark : {"pppd[", "modem[", "pluto[", "udhcpd:", "dnsmasq["})
    EXPECT_THAT(all, HasSubstr(mark));
}

class SyslogSocket {
public:
  explicit SyslogSocket(const std::string& path) : fd_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(0, bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address));
  }
  ~SyslogSocket() { close(fd_); }
  std::vector<std::string> lines() {
    std::vector<std::string> all;
    char line[300];
    for (ssize_t got; (got = recv(fd_, line, sizeof line, MSG_DONTWAIT)) > 0;)
      all.emplace_back(line, static_cast<std::size_t>(got));
    return all;
  }

private:
  int fd_;
};

TEST_F(PretendSoftware, ChatterKeepsItsPace) {
  SyslogSocket syslog(root() + "/dev/log");
  Chatter chatter(root(), 30, 100);
  chatter.advance(100);
  EXPECT_TRUE(syslog.lines().empty());
  chatter.advance(106);
  EXPECT_EQ(syslog.lines().size(), 3U);
  chatter.advance(106);
  EXPECT_TRUE(syslog.lines().empty());
}

TEST_F(PretendSoftware, AStoppedProgramSaysNothing) {
  SyslogSocket syslog(root() + "/dev/log");
  ASSERT_TRUE(programs.signal("pppd", 15));
  Chatter chatter(root(), 60, 0);
  chatter.advance(7);
  const auto lines = syslog.lines();
  EXPECT_EQ(lines.size(), 5U);
  for (const auto& line : lines)
    EXPECT_THAT(line, ::testing::Not(HasSubstr("pppd")));
}

TEST_F(PretendSoftware, ChatterWithoutASyslogDaemonIsLost) {
  Chatter chatter(root(), 60, 0);
  chatter.advance(7);
  SyslogSocket syslog(root() + "/dev/log");
  chatter.advance(7);
  EXPECT_TRUE(syslog.lines().empty());
}

} // namespace
