// The program rcm-lan against the router's own local servers, in a process of theirs.

#include "local/deskmgr.h"
#include "local/scantools.h"
#include "platform/api/event_loop.h"
#include "platform/api/nvram.h"
#include "tests/local/real_router.h"

#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::string_literals;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

struct ToolResult {
  int status;
  std::string output; ///< standard error included
};

class RcmLan : public real::RouterFixture {
protected:
  ~RcmLan() override {
    if (daemon_ > 0) {
      kill(daemon_, SIGKILL);
      waitpid(daemon_, nullptr, 0);
    }
  }

  /// Starts a process that opens the local servers and runs the loop.
  void start_daemon(int deskmgr_mode) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t parent = getpid();
    daemon_ = fork();
    if (daemon_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(ready[0]);
      const bool open = getppid() == parent && rcmd::deskmgr_open(deskmgr_mode) >= 0 &&
                        rcmd::scantools_open(1) >= 0;
      if (!open || write(ready[1], "!", 1) != 1) {
        _exit(1);
      }
      close(ready[1]);
      _exit(do_fd());
    }
    close(ready[1]);
    char mark = 0;
    EXPECT_EQ(read(ready[0], &mark, 1), 1) << "the servers did not open";
    close(ready[0]);
  }

  static ToolResult rcm_lan(const std::string& arguments) {
    FILE* pipe = popen((PROGRAM_DIR "/rcm-lan " + arguments + " 2>&1").c_str(), "r");
    ToolResult run{-1, ""};
    char text[512];
    while (pipe != nullptr && std::fgets(text, sizeof text, pipe) != nullptr) {
      run.output += text;
    }
    const int status = pipe == nullptr ? -1 : pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
  }

  /// Values of the router, and tools that copy its pretend backup partition.
  void furnish() {
    setting("lan0_ifname", "br0");
    setting("lan0_ipaddr", "192.168.7.1");
    setting("lan0_netmask", "255.255.254.0");
    setting("et0macaddr", "02:52:43:4D:00:01");
    setting("product_model", "Virtual Router");
    setting("jqa_reconnect_interval", "60");
    write_file("/flash/backup",
               "HEADER--HEADER--HEADlan_mode=1\0jqa_reconnect_interval=60\0tail=1\0\0\0\0"s);
    write_file("/run/init", "");
    const std::string cat = "exec /bin/cat ";
    write_tool("nvram_mtd_read", cat + "\"$VIRTUAL_ROUTER_DIR/flash/$2\" "
                                       ">\"$VIRTUAL_ROUTER_DIR$1\"\n");
    write_tool("nvram_mtd_write", cat + "\"$VIRTUAL_ROUTER_DIR$1\" "
                                        ">\"$VIRTUAL_ROUTER_DIR/flash/$2\"\n");
    write_tool("killall", "echo killall \"$@\"\n");
  }

private:
  pid_t daemon_ = -1;
};

using RcmLanDiscover = RcmLan;

TEST_F(RcmLanDiscover, PrintsATableOfTheRouters) {
  furnish();
  start_daemon(1);
  const ToolResult run = rcm_lan("discover --timeout 300 --broadcast " + address());
  EXPECT_EQ(run.status, 0);
  std::string from = address();
  from.resize(15, ' ');
  EXPECT_EQ(run.output,
            "FROM             ADDRESS          NETMASK          MAC                MODEL           "
            "RECONNECT\n" +
                from +
                "  192.168.7.1      255.255.254.0    02:52:43:4D:00:01  Virtual Router  60 s\n");
}

TEST_F(RcmLanDiscover, PrintsJson) {
  furnish();
  start_daemon(1);
  const ToolResult run = rcm_lan("discover --json --timeout 300 --broadcast " + address());
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, HasSubstr("\"from\": \"" + address() + "\""));
  EXPECT_THAT(run.output, HasSubstr("\"model\": \"Virtual Router\""));
  EXPECT_THAT(run.output, HasSubstr("\"reconnect_interval_s\": 60"));
}

TEST_F(RcmLanDiscover, NobodyIsAFailure) {
  const ToolResult run = rcm_lan("discover --timeout 50 --broadcast " + address());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "rcm-lan: no router answered within 50 ms\n");
  EXPECT_EQ(rcm_lan("discover --json --timeout 50 --broadcast " + address()).output, "[]\n");
}

using RcmLanSet = RcmLan;

TEST_F(RcmLanSet, AReconnectIntervalIsKeptInBothStoresAndTheRouterRestarts) {
  furnish();
  start_daemon(1);
  const ToolResult run = rcm_lan("set " + address() + " --reconnect-interval 3600");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(run.output, address() + " has taken the values and restarts\n");
  EXPECT_TRUE(serve_until([] { return read_file("/run/init") == "signal 15\n"; }));
  EXPECT_STREQ(nvram_get("jqa_reconnect_interval"), "3600");
  EXPECT_THAT(read_file("/flash/nvram"), HasSubstr("jqa_reconnect_interval=3600\0"s));
  EXPECT_EQ(read_file("/flash/backup"),
            "HEADER--HEADER--HEADlan_mode=1\0jqa_reconnect_interval=3600\0tail=1\0\0"s);
  EXPECT_EQ(console(), "\nkillall -1 pppd\nnvram_commit ok\n");
}

TEST_F(RcmLanSet, EveryOtherValueArrives) {
  furnish();
  setting("snmp_ro_sec", "public");
  setting("snmp_rw_sec", "private");
  start_daemon(1);
  const ToolResult run = rcm_lan(
      "set " + address() + " --community 'a b' --lan-address 10.1.1.1 --lan-address2 10.2.2.2");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_STREQ(nvram_get("snmp_ro_sec"), "a b");
  EXPECT_STREQ(nvram_get("snmp_rw_sec"), "a b");
  EXPECT_STREQ(nvram_get("lan0_ipaddr"), "10.2.2.2");
  EXPECT_STREQ(nvram_get("jqa_reconnect_interval"), "60");
}

TEST_F(RcmLanSet, ARouterWithoutABackupPartitionDoesNotAnswer) {
  start_daemon(1);
  const ToolResult run = rcm_lan("set " + address() + " --reconnect-interval 5 --timeout 200");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, StartsWith("rcm-lan: no answer from " + address() + " within 200 ms"));
  EXPECT_EQ(nvram_get("jqa_reconnect_interval"), nullptr);
}

TEST_F(RcmLanSet, WrongUseSendsNothing) {
  const std::string set = "set " + address();
  EXPECT_EQ(rcm_lan(set).status, 2) << "no value is named";
  EXPECT_EQ(rcm_lan("set router --community c").status, 2);
  EXPECT_EQ(rcm_lan(set + " --lan-address 1.2.3").status, 2);
  EXPECT_EQ(rcm_lan(set + " --reconnect-interval -1").status, 2);
  EXPECT_EQ(rcm_lan(set + " --reconnect-interval 2147483648").status, 2);
  EXPECT_EQ(rcm_lan(set + " --community " + std::string(33, 'c')).status, 2);
  EXPECT_EQ(rcm_lan("").status, 2);
  EXPECT_EQ(rcm_lan("--help").status, 0);
}

using RcmLanOrders = RcmLan;

TEST_F(RcmLanOrders, AreCarriedOutInStreamMode) {
  setting("wan0_enable", "1");
  setting("wan0_wwan_mode", "3");
  setting("wan0_status", "down");
  setting("wan0_action", "");
  start_daemon(2);
  ToolResult run = rcm_lan("connect " + address());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "done\n");
  EXPECT_STREQ(nvram_get("wan0_action"), "start");
  run = rcm_lan("disconnect " + address());
  EXPECT_EQ(run.status, 0);
  EXPECT_STREQ(nvram_get("wan0_action"), "stop");
  run = rcm_lan("status " + address());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "the WWAN connection is down\n");
  setting("wan0_status", "up");
  EXPECT_EQ(rcm_lan("status " + address()).output, "the WWAN connection is not down\n");
}

TEST_F(RcmLanOrders, MayBeRefused) {
  setting("wan0_enable", "0");
  start_daemon(2);
  const ToolResult run = rcm_lan("connect " + address());
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "refused: the WWAN is disabled or in another mode\n");
}

TEST_F(RcmLanOrders, DatagramModeIsToldApart) {
  start_daemon(1);
  const ToolResult by_tcp = rcm_lan("status " + address());
  EXPECT_EQ(by_tcp.status, 1);
  EXPECT_EQ(by_tcp.output, "rcm-lan: " + address() +
                               ": connection refused: the router serves the desktop manager in "
                               "datagram mode only, in which no request is answered\n");
  const ToolResult by_udp = rcm_lan("status --udp --timeout 100 " + address());
  EXPECT_EQ(by_udp.status, 1);
  EXPECT_EQ(by_udp.output, "rcm-lan: " + address() +
                               ": no answer: in datagram mode the router leaves requests unread\n");
}

} // namespace
