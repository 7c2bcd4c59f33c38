#include "local/scantools.h"

#include "tests/fake_platform/fixture.h"

#include <arpa/inet.h>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>

using fake::Bytes;
using fake::hex;
using fake::to_hex;
using fake::world;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

void put(Bytes& bytes, std::size_t at, const Bytes& what) {
  std::copy(what.begin(), what.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

Bytes message(const std::string& magic_and_type, const std::string& fields = "0000") {
  Bytes bytes(696, 0);
  put(bytes, 0, hex(magic_and_type + fields));
  return bytes;
}

std::string part(const Bytes& bytes, std::size_t at, std::size_t length) {
  return to_hex(bytes.data() + at, length);
}

std::string image(const std::string& records) {
  std::string bytes = std::string("HEADER--HEADER--HEAD") + records;
  bytes.resize(4096, '\0');
  return bytes;
}

class Scantools : public fake::Fixture {
protected:
  int server() {
    const int fd = rcmd::scantools_open(1);
    world().events.clear();
    return fd;
  }
  /// One datagram from 192.168.1.50:4711. @return the handler's result
  static int receive(int fd, const Bytes& bytes) {
    world().deliver(2719, bytes, 0, "192.168.1.50", 4711);
    return world().call_handler(fd);
  }
};

using ScantoolsOpening = Scantools;

TEST_F(ScantoolsOpening, Mode1IsADatagramSocketOnPort2719OfAllAddresses) {
  const int fd = rcmd::scantools_open(1);
  ASSERT_EQ(fd, 1000);
  EXPECT_EQ(world().sockets[fd].domain, AF_INET);
  EXPECT_EQ(world().sockets[fd].type, SOCK_DGRAM);
  EXPECT_EQ(world().sockets[fd].protocol, IPPROTO_UDP);
  EXPECT_THAT(world().events, ElementsAre("socket 1000", "setsockopt 1 6", "setsockopt 1 2",
                                          "bind 0.0.0.0:2719", "register 1000"));
}

TEST_F(ScantoolsOpening, AnyOtherModeIsUnknown) {
  EXPECT_EQ(rcmd::scantools_open(2), -1);
  EXPECT_EQ(rcmd::scantools_open(0), -1);
  EXPECT_THAT(world().events,
              ElementsAre("console Unknown socket type 2 \n", "console Unknown socket type 0 \n"));
}

TEST_F(ScantoolsOpening, NoSocketIsReported) {
  world().socket_fails_at = 0;
  EXPECT_EQ(rcmd::scantools_open(1), -1);
  EXPECT_THAT(world().events, ElementsAre("console socket() fail \n"));
}

TEST_F(ScantoolsOpening, ARefusedBroadcastIsReported) {
  world().net_call_fails = [](const std::string& call) { return call == "setsockopt"; };
  EXPECT_EQ(rcmd::scantools_open(1), -1);
  EXPECT_THAT(world().events, ElementsAre("socket 1000", "setsockopt 1 6",
                                          "console setsockopt() fail \n", "close 1000"));
}

TEST_F(ScantoolsOpening, ARefusedReuseIsReported) {
  int calls = 0;
  world().net_call_fails = [&](const std::string& call) {
    return call == "setsockopt" && ++calls == 2;
  };
  EXPECT_EQ(rcmd::scantools_open(1), -1);
  EXPECT_THAT(world().events, ElementsAre("socket 1000", "setsockopt 1 6", "setsockopt 1 2",
                                          "console setsockopt() fail \n", "close 1000"));
}

TEST_F(ScantoolsOpening, AnOccupiedPortIsReported) {
  world().net_call_fails = [](const std::string& call) { return call == "bind"; };
  EXPECT_EQ(rcmd::scantools_open(1), -1);
  EXPECT_EQ(world().events[3], "bind 0.0.0.0:2719");
  EXPECT_EQ(world().events[4], "console bind() fail \n");
  EXPECT_EQ(world().events[5], "close 1000");
}

TEST_F(ScantoolsOpening, ALoopWithoutRoomLeavesNoSocketBehind) {
  world().watch_table_full = true;
  EXPECT_EQ(rcmd::scantools_open(1), -1);
  EXPECT_TRUE(world().sockets.empty());
}

using ScantoolsReceiving = Scantools;

TEST_F(ScantoolsReceiving, AFailedReadEndsTheService) {
  const int fd = server();
  world().net_call_fails = [](const std::string& call) { return call == "recv"; };
  world().call_handler(fd);
  EXPECT_THAT(world().events,
              ElementsAre("console read fail .... \n", "close 1000", "unregister 1000"));
}

TEST_F(ScantoolsReceiving, AnEmptyDatagramEndsTheService) {
  const int fd = server();
  receive(fd, {});
  EXPECT_THAT(world().events,
              ElementsAre("console read fail .... \n", "close 1000", "unregister 1000"));
}

TEST_F(ScantoolsReceiving, A695ByteDatagramEndsTheService) {
  const int fd = server();
  Bytes bytes = message("ba01");
  bytes.pop_back();
  receive(fd, bytes);
  EXPECT_THAT(world().events,
              ElementsAre("console too short packet .. \n", "close 1000", "unregister 1000"));
  world().deliver(2719, message("ba01"));
  world().serve_ready();
  EXPECT_TRUE(world().sent.empty()) << "one malformed datagram ends it until the next start";
}

TEST_F(ScantoolsReceiving, AWrongMagicEndsTheService) {
  const int fd = server();
  receive(fd, message("bb01"));
  EXPECT_THAT(world().events,
              ElementsAre("console Unknown Packet\n", "close 1000", "unregister 1000"));
}

TEST_F(ScantoolsReceiving, ABrokenConsoleStillClosesAndUnregisters) {
  const int fd = server();
  world().console_broken = true;
  receive(fd, message("0001"));
  EXPECT_THAT(world().events, ElementsAre("close 1000", "unregister 1000"));
}

TEST_F(ScantoolsReceiving, BothMagicsOfRequestsAreServed) {
  const int fd = server();
  EXPECT_EQ(receive(fd, message("ba01")), 0);
  EXPECT_EQ(receive(fd, message("ab01")), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(world().sent[1].bytes[0], 0xBA) << "replies carry one of them alone";
}

TEST_F(ScantoolsReceiving, ALongerDatagramIsCut) {
  const int fd = server();
  Bytes bytes = message("ba01");
  bytes.resize(2000, 0x77);
  EXPECT_EQ(receive(fd, bytes), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().sent[0].bytes.size(), 696U);
}

TEST_F(ScantoolsReceiving, Types2And4And255GetNoReply) {
  const int fd = server();
  for (const char* type : {"ba02", "ba04", "baff"}) {
    EXPECT_EQ(receive(fd, message(type, "2105")), 0) << type;
  }
  EXPECT_THAT(world().events, IsEmpty());
  EXPECT_TRUE(world().watched(fd));
}

TEST_F(ScantoolsReceiving, UnknownTypesGetNoReplyAndTheServiceGoesOn) {
  const int fd = server();
  for (const char* type : {"ba00", "ba05", "bafe"}) {
    EXPECT_EQ(receive(fd, message(type, "2105")), -1) << type;
  }
  EXPECT_THAT(world().events, IsEmpty());
  EXPECT_TRUE(world().watched(fd));
}

class Discovery : public Scantools {
protected:
  Discovery() {
    world().nvram = {{"lan0_ifname", "br0"},
                     {"product_model", "MODEL-9"},
                     {"jqa_reconnect_interval", "305419896"}};
    world().on_ioctl = [this](int fd, unsigned long request, void* argument) {
      auto* interface = static_cast<ifreq*>(argument);
      asked.push_back(interface->ifr_name);
      asked_socket = fd;
      if (refused.contains(request)) {
        std::memset(&interface->ifr_addr, 0xEE, sizeof interface->ifr_addr);
        return -1;
      }
      if (request == SIOCGIFHWADDR) {
        std::memcpy(interface->ifr_hwaddr.sa_data, "\x00\x1a\x2b\x3c\x4d\x5e", 6);
      } else {
        const sockaddr_in address =
            fake::address(request == SIOCGIFADDR ? "192.168.1.1" : "255.255.254.0", 0);
        std::memcpy(&interface->ifr_addr, &address, sizeof address);
      }
      return 0;
    };
  }
  std::vector<std::string> asked;
  int asked_socket = -1;
  std::map<unsigned long, bool> refused;
};

TEST_F(Discovery, TheReplyIsThese696Bytes) {
  const int fd = server();
  EXPECT_EQ(receive(fd, message("ba01")), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  Bytes expected(696, 0);
  put(expected, 0, hex("ba 02 24d7"));
  put(expected, 4, hex("2a2a2a2a2a 00"));
  put(expected, 36, hex("001a2b3c4d5e 0000"));
  put(expected, 44, hex("c0a80101"));
  put(expected, 48, hex("4d4f44454c2d39 00"));
  put(expected, 340, hex("ac100002"));
  put(expected, 344, hex("6669726d776172652e62696e 00"));
  put(expected, 600, hex("fffffe00"));
  put(expected, 608, hex("00000001"));
  put(expected, 692, hex("12345678"));
  EXPECT_EQ(to_hex(world().sent[0].bytes), to_hex(expected));
  EXPECT_EQ(world().sent[0].fd, fd) << "the server's own socket";
}

TEST_F(Discovery, ItAsksThroughASecondSocketAndClosesThat) {
  const int fd = server();
  receive(fd, message("ba01"));
  EXPECT_THAT(world().events, ElementsAre("socket 1001", "resolve 172.16.0.2",
                                          "send 696 to 192.168.1.50:4711", "close 1001"));
  EXPECT_EQ(asked_socket, 1001);
  EXPECT_THAT(asked, ElementsAre("br0", "br0", "br0"));
  EXPECT_TRUE(world().sockets.contains(fd));
}

TEST_F(Discovery, TheCommunityIsNeverDisclosed) {
  const int fd = server();
  world().nvram["snmp_ro_sec"] = "secret-ro";
  world().nvram["snmp_rw_sec"] = "secret-rw";
  Bytes question = message("ba01");
  put(question, 4, fake::bytes_of("asked-with-this"));
  receive(fd, question);
  EXPECT_EQ(part(world().sent[0].bytes, 4, 32), "2a2a2a2a2a" + std::string(54, '0'));
}

TEST_F(Discovery, WithoutASecondSocketThereIsNoReply) {
  const int fd = server();
  world().socket_fails_at = 1;
  EXPECT_EQ(receive(fd, message("ba01")), -1);
  EXPECT_THAT(world().events, IsEmpty());
  EXPECT_TRUE(world().watched(fd));
}

TEST_F(Discovery, WhatTheInterfaceRefusesStaysZero) {
  const int fd = server();
  refused = {{SIOCGIFHWADDR, true}, {SIOCGIFADDR, true}, {SIOCGIFNETMASK, true}};
  EXPECT_EQ(receive(fd, message("ba01")), 0);
  const Bytes& reply = world().sent[0].bytes;
  EXPECT_EQ(part(reply, 36, 12), "000000000000000000000000");
  EXPECT_EQ(part(reply, 600, 4), "00000000");
  EXPECT_EQ(part(reply, 48, 8), "4d4f44454c2d3900");
}

TEST_F(Discovery, EachRefusalStandsForItself) {
  const int fd = server();
  refused = {{SIOCGIFADDR, true}};
  EXPECT_EQ(receive(fd, message("ba01")), 0);
  const Bytes& reply = world().sent[0].bytes;
  EXPECT_EQ(part(reply, 36, 12), "001a2b3c4d5e000000000000");
  EXPECT_EQ(part(reply, 600, 4), "fffffe00");
}

TEST_F(Discovery, UnsetKeysReadAsEmpty) {
  const int fd = server();
  world().nvram.clear();
  EXPECT_EQ(receive(fd, message("ba01")), 0);
  const Bytes& reply = world().sent[0].bytes;
  EXPECT_THAT(asked, ElementsAre("", "", ""));
  EXPECT_EQ(part(reply, 48, 8), "0000000000000000");
  EXPECT_EQ(part(reply, 692, 4), "00000000");
}

TEST_F(Discovery, ALongInterfaceNameIsCutTo15Characters) {
  const int fd = server();
  world().nvram["lan0_ifname"] = "abcdefghijklmnopqrstuvwxyz";
  receive(fd, message("ba01"));
  EXPECT_THAT(asked, ElementsAre("abcdefghijklmno", "abcdefghijklmno", "abcdefghijklmno"));
}

TEST_F(Discovery, ALongModelIsCutBeforeTheNextField) {
  const int fd = server();
  world().nvram["product_model"] = std::string(291, 'm');
  receive(fd, message("ba01"));
  world().nvram["product_model"] = std::string(2000, 'm');
  receive(fd, message("ba01"));
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(part(world().sent[1].bytes, 337, 7), "6d6d00ac100002");
  EXPECT_EQ(world().sent[0].bytes, world().sent[1].bytes);
}

TEST_F(Discovery, TheIntervalIsReadAsAnUnsignedDecimal) {
  const int fd = server();
  const std::pair<const char*, const char*> cases[] = {
      {"4294967295", "ffffffff"}, {"-1", "00000000"}, {"60s", "0000003c"}, {"soon", "00000000"}};
  for (const auto& [text, bytes] : cases) {
    world().nvram["jqa_reconnect_interval"] = text;
    receive(fd, message("ba01"));
    EXPECT_EQ(part(world().sent.back().bytes, 692, 4), bytes) << text;
  }
}

TEST_F(Discovery, AShortSendIsReportedAndTheSecondSocketClosed) {
  const int fd = server();
  world().send_result = [](const auto&) { return 695L; };
  EXPECT_EQ(receive(fd, message("ba01")), -1);
  EXPECT_THAT(world().events,
              ElementsAre("socket 1001", "resolve 172.16.0.2", "send 696 to 192.168.1.50:4711",
                          "console sendto 696 bytes fail return 695 \n", "close 1001"));
  EXPECT_TRUE(world().watched(fd));
}

TEST_F(Discovery, AFailedSendIsReportedAndTheSecondSocketClosed) {
  const int fd = server();
  world().send_fails = [](const auto&) { return true; };
  EXPECT_EQ(receive(fd, message("ba01")), -1);
  EXPECT_THAT(world().events, Contains("console sendto 696 bytes fail return -1 \n"));
  EXPECT_EQ(world().events.back(), "close 1001");
}

/// The restart happens once per process, so what reaches it runs in a process of its own.
void in_own_process(const std::function<void()>& body) {
  EXPECT_EXIT(
      {
        fake::reset();
        body();
        fake::reset();
        _exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

class ScantoolsSet : public Scantools {
protected:
  static void partition_holds(const std::string& content) {
    world().on_tool = [content](const fake::ToolRun& run) {
      if (run.arguments[0] == "nvram_mtd_read") {
        world().write_file("/tmp/nvram.backup", content);
      }
      return 0;
    };
  }
  /// A set that reaches the restart.
  static void set_and_restart(int fd, const Bytes& bytes) {
    EXPECT_THROW(receive(fd, bytes), fake::Restarted);
  }
};

TEST_F(ScantoolsSet, AMaskOf0StillCommitsTheBackupRepliesAndRestarts) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image("a=1"));
    set_and_restart(fd, message("ba03", "0000"));
    EXPECT_THAT(world().events,
                ElementsAre("tool nvram_mtd_read /tmp/nvram.backup backup >/dev/console",
                            "tool nvram_mtd_write /tmp/nvram.backup backup >/dev/console",
                            "send 696 to 192.168.1.50:4711", "tool killall -1 pppd >/dev/console",
                            "nvram_commit", "console nvram_commit ok\n", "signal 15",
                            "await_restart"));
    for (const fake::ToolRun& run : world().tools) {
      EXPECT_TRUE(run.waited);
      EXPECT_EQ(run.timeout_s, 0);
    }
  });
}

TEST_F(ScantoolsSet, TheReplyIsZeroBehindItsFirstTwoBytes) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question(696, 0x5A);
    put(question, 0, hex("ab 03 0000"));
    set_and_restart(fd, question);
    ASSERT_EQ(world().sent.size(), 1U);
    Bytes expected(696, 0);
    put(expected, 0, hex("ba04"));
    EXPECT_EQ(to_hex(world().sent[0].bytes), to_hex(expected));
  });
}

TEST_F(ScantoolsSet, EveryFieldTogetherIsAppliedInOrder) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(std::string("jqa_reconnect_interval=60\0z=1\0", 30)));
    Bytes question = message("ba03", "ffff");
    put(question, 4, fake::bytes_of("public"));
    put(question, 44, hex("c0a80201"));
    put(question, 600, hex("0a000001"));
    put(question, 692, hex("00000e10"));
    set_and_restart(fd, question);
    EXPECT_THAT(world().events_of({"nvram_set", "console \n", "tool nvram"}),
                ElementsAre("tool nvram_mtd_read /tmp/nvram.backup backup >/dev/console",
                            "nvram_set snmp_ro_sec=public", "nvram_set snmp_rw_sec=public",
                            "nvram_set lan0_ipaddr=192.168.2.1", "nvram_set lan0_ipaddr=10.0.0.1",
                            "console \n", "nvram_set jqa_reconnect_interval=3600",
                            "tool nvram_mtd_write /tmp/nvram.backup backup >/dev/console"));
    EXPECT_EQ(world().committed["lan0_ipaddr"], "10.0.0.1");
    EXPECT_EQ(world().read_file("/tmp/nvram.backup"),
              image(std::string("jqa_reconnect_interval=3600\0z=1\0", 32)));
  });
}

TEST_F(ScantoolsSet, TheSecondAddressWins) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0104");
    put(question, 44, hex("c0a80201"));
    put(question, 600, hex("0a000001"));
    set_and_restart(fd, question);
    EXPECT_THAT(world().nvram, ElementsAre(std::pair("lan0_ipaddr", "10.0.0.1")));
  });
}

TEST_F(ScantoolsSet, TheFirstAddressAloneIsTaken) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0004");
    put(question, 44, hex("fffe0001"));
    put(question, 600, hex("0a000001"));
    set_and_restart(fd, question);
    EXPECT_THAT(world().nvram, ElementsAre(std::pair("lan0_ipaddr", "255.254.0.1")));
  });
}

TEST_F(ScantoolsSet, OtherBitsOfTheMaskChangeNothing) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(std::string("jqa_reconnect_interval=60\0", 26)));
    Bytes question(696, 0x41);
    put(question, 0, hex("ba 03 defa"));
    set_and_restart(fd, question);
    EXPECT_TRUE(world().nvram.empty());
    EXPECT_EQ(world().read_file("/tmp/nvram.backup"),
              image(std::string("jqa_reconnect_interval=60\0", 26)));
  });
}

TEST_F(ScantoolsSet, ACommunityOf32BytesNeedsNoNul) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0001");
    put(question, 4, Bytes(32, 'c'));
    put(question, 36, Bytes(6, 'X'));
    set_and_restart(fd, question);
    EXPECT_EQ(world().nvram["snmp_ro_sec"], std::string(32, 'c'));
    EXPECT_EQ(world().nvram["snmp_rw_sec"], std::string(32, 'c'));
  });
}

TEST_F(ScantoolsSet, ACommunityEndsAtItsFirstNul) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0001");
    put(question, 4, hex("61 62 00 63 64"));
    set_and_restart(fd, question);
    EXPECT_EQ(world().nvram["snmp_rw_sec"], "ab");
  });
}

TEST_F(ScantoolsSet, AnEmptyCommunityIsSetToo) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(""));
    set_and_restart(fd, message("ba03", "0001"));
    EXPECT_EQ(world().nvram.count("snmp_ro_sec"), 1U);
    EXPECT_EQ(world().nvram["snmp_ro_sec"], "");
  });
}

TEST_F(ScantoolsSet, TheIntervalIsWrittenAsASignedNumber) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(std::string("jqa_reconnect_interval=60\0", 26)));
    Bytes question = message("ba03", "2000");
    put(question, 692, hex("80000000"));
    set_and_restart(fd, question);
    EXPECT_EQ(world().nvram["jqa_reconnect_interval"], "-2147483648");
    EXPECT_EQ(world().read_file("/tmp/nvram.backup"),
              image(std::string("jqa_reconnect_interval=-2147483648\0", 35)));
  });
}

TEST_F(ScantoolsSet, WithoutAnImageNothingChangesAndNothingIsAnswered) {
  const int fd = server();
  EXPECT_EQ(receive(fd, message("ba03", "2105")), -1);
  EXPECT_THAT(world().events,
              ElementsAre("tool nvram_mtd_read /tmp/nvram.backup backup >/dev/console"));
  EXPECT_TRUE(world().watched(fd));
}

TEST_F(ScantoolsSet, AShortReplyMeansNoRestart) {
  const int fd = server();
  partition_holds(image(""));
  world().send_result = [](const auto&) { return 0L; };
  Bytes question = message("ba03", "0004");
  put(question, 44, hex("c0a80201"));
  EXPECT_EQ(receive(fd, question), -1);
  EXPECT_EQ(world().events.back(), "console sendto 696 bytes fail return 0 \n");
  EXPECT_EQ(world().nvram["lan0_ipaddr"], "192.168.2.1") << "set, and not committed";
  EXPECT_TRUE(world().committed.empty());
}

TEST_F(ScantoolsSet, AFailedCommitOfTheBackupIsIgnored) {
  in_own_process([this] {
    const int fd = server();
    world().on_tool = [](const fake::ToolRun& run) {
      if (run.arguments[0] == "nvram_mtd_read") {
        world().write_file("/tmp/nvram.backup", image(""));
      }
      return 1; // the file is there: whether the tool says so is not asked
    };
    set_and_restart(fd, message("ba03"));
    EXPECT_EQ(world().events.back(), "await_restart");
  });
}

TEST_F(ScantoolsSet, AFailedCommitMeansNoRestartAndNoSecondTry) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(""));
    world().commit_result = 5;
    EXPECT_EQ(receive(fd, message("ba03")), 0);
    EXPECT_EQ(world().events.back(), "console nvram_commit fail ,ret = 5 \n");
    world().commit_result = 0;
    world().events.clear();
    EXPECT_EQ(receive(fd, message("ba03")), 0);
    EXPECT_EQ(world().sent.size(), 2U);
    EXPECT_EQ(world().events.back(), "send 696 to 192.168.1.50:4711");
    EXPECT_TRUE(world().committed.empty());
  });
}

TEST_F(ScantoolsSet, ABrokenConsoleLosesTheTextsAlone) {
  in_own_process([this] {
    const int fd = server();
    partition_holds(image(std::string("jqa_reconnect_interval=60\0", 26)));
    world().console_broken = true;
    Bytes question = message("ba03", "2000");
    put(question, 692, hex("00000007"));
    set_and_restart(fd, question);
    EXPECT_EQ(world().nvram["jqa_reconnect_interval"], "7");
    EXPECT_EQ(world().events.back(), "await_restart");
  });
}

} // namespace
