#include "local/scantools.h"

#include "tests/fake_platform/fixture.h"
#include "tests/local/scantools_kit.h"

#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>

using fake::Bytes;
using fake::hex;
using fake::to_hex;
using fake::world;
using scan::message;
using scan::part;
using scan::put;
using scan::Scantools;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

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

TEST_F(ScantoolsOpening, Descriptor0IsASocketLikeAnyOther) {
  world().next_fd = 0;
  EXPECT_EQ(rcmd::scantools_open(1), 0);
  EXPECT_TRUE(world().watched(0));
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

TEST_F(ScantoolsReceiving, OneByteIsTooShortAndNoFailedRead) {
  const int fd = server();
  EXPECT_EQ(receive(fd, {0xBA}), 0) << "nothing is left to ask again about";
  EXPECT_THAT(world().events,
              ElementsAre("console too short packet .. \n", "close 1000", "unregister 1000"));
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

TEST_F(ScantoolsReceiving, BehindAFailedReadNothingIsLeftToAskAgainAbout) {
  const int fd = server();
  EXPECT_EQ(receive(fd, {}), 0);
}

TEST_F(ScantoolsReceiving, BehindAWrongMagicNothingIsLeftToAskAgainAbout) {
  const int fd = server();
  EXPECT_EQ(receive(fd, message("bb01")), 0);
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
      requests.push_back(request);
      asked_socket = fd;
      asked_type = world().sockets[fd].type;
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
  std::vector<unsigned long> requests;
  int asked_socket = -1;
  int asked_type = -1;
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
  EXPECT_EQ(asked_type, SOCK_DGRAM);
  EXPECT_THAT(asked, ElementsAre("br0", "br0", "br0"));
  EXPECT_THAT(requests, ElementsAre(SIOCGIFHWADDR, SIOCGIFADDR, SIOCGIFNETMASK));
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

TEST_F(Discovery, Descriptor0IsASecondSocketLikeAnyOther) {
  const int fd = server();
  world().next_fd = 0;
  EXPECT_EQ(receive(fd, message("ba01")), 0);
  EXPECT_EQ(asked_socket, 0);
  EXPECT_EQ(world().events.back(), "close 0");
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

} // namespace
