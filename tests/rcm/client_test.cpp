#include "rcm/client.h"

#include "core/timers.h"
#include "rcm/packet.h"
#include "tests/fake_platform/context.h"
#include "tests/fake_platform/stub_wiring.h"

#include <arpa/inet.h>
#include <cstring>
#include <random>
#include <sys/socket.h>

using namespace rcmd;
using fake::Bytes;
using fake::bytes_of;
using fake::server_packet;
using fake::world;

namespace {

class Dispatcher : public fake::ContextFixture {
protected:
  Dispatcher() {
    context.online = 0;
    context.retransmit_count = 3;
    context.miss_count = 5;
    context.seq = 10;
    fake::on_request = [this](const std::string& route, RcmContext& given) {
      EXPECT_EQ(&given, &context);
      routed.push_back(route);
      request_seq_inside = given.request_seq;
    };
  }
  ~Dispatcher() override { fake::on_request = nullptr; }

  int take(const Bytes& datagram, const std::string& from = "127.0.0.1",
           std::uint16_t port = 1162) {
    world().deliver(1161, datagram, 0, from, port);
    FdDescriptor descriptor{context.sock, 0, &context};
    return rcm_receive_func(&descriptor);
  }

  std::vector<std::string> routed;
  std::uint32_t request_seq_inside = 0;
};

TEST_F(Dispatcher, AFailedReadChangesNothing) {
  world().net_call_fails = [](const std::string& call) { return call == "recv"; };
  EXPECT_EQ(take(server_packet(7, 1, 10)), -1);
  EXPECT_EQ(world().diagnostics(), "read fail .... \n");
  EXPECT_EQ(context.rx_length, 0);
  EXPECT_EQ(context.peer_addr.sin_port, 0);
}

TEST_F(Dispatcher, AnEmptyDatagramIsAFailedRead) {
  EXPECT_EQ(take({}), -1);
  EXPECT_EQ(world().diagnostics(), "read fail .... \n");
  EXPECT_EQ(context.peer_addr.sin_port, 0);
}

TEST_F(Dispatcher, ADatagramOfOneByteIsAShortPacket) {
  EXPECT_EQ(take({7}), -1);
  EXPECT_EQ(world().diagnostics(), "too short packet .. \n");
  EXPECT_EQ(context.rx_length, 1);
}

TEST_F(Dispatcher, AShortPacketLeavesItsSenderAndLength) {
  EXPECT_EQ(take(Bytes(35, 1), "10.9.8.7", 99), -1);
  EXPECT_EQ(world().diagnostics(), "too short packet .. \n");
  EXPECT_EQ(context.rx_length, 35);
  EXPECT_EQ(context.peer_addr.sin_port, htons(99));
  EXPECT_EQ(context.peer_addr.sin_addr.s_addr, inet_addr("10.9.8.7"));
}

TEST_F(Dispatcher, AWrongChecksumIsDropped) {
  Bytes packet = server_packet(7, 1, 10, {1, 2, 3});
  packet[37] ^= 1;
  EXPECT_EQ(take(packet), -1);
  EXPECT_EQ(world().diagnostics(), "crc is error\n");
  EXPECT_EQ(context.seq, 10U);
  EXPECT_EQ(context.rx_length, 39);
}

TEST_F(Dispatcher, OtherFlagsAreIgnoredWithoutAWord) {
  for (const std::uint16_t flags : std::initializer_list<std::uint16_t>{4, 5, 255, 256, 65535}) {
    EXPECT_EQ(take(server_packet(7, flags, 10)), 0);
  }
  EXPECT_EQ(world().diagnostics(), "");
  EXPECT_EQ(context.seq, 10U);
  EXPECT_EQ(context.online, 0);
  EXPECT_TRUE(routed.empty());
}

TEST_F(Dispatcher, AnAcknowledgementIsNamedByItsTypeWithItsOwnSeq) {
  struct Row {
    std::uint16_t type;
    const char* message;
  };
  for (const Row& row :
       {Row{2, "receive Log ACK(seq=41)\n"}, Row{3, "receive CONF ACK(seq=41)\n"},
        Row{4, "receive Status ACK(seq=41)\n"}, Row{7, "receive keepalive ACK(seq=41)\n"},
        Row{9, "receive unknown(0009) ACK(seq=41) .... \n"},
        Row{64, "receive unknown(0040) ACK(seq=41) .... \n"},
        Row{0xABCD, "receive unknown(abcd) ACK(seq=41) .... \n"}}) {
    world().events.clear();
    EXPECT_EQ(take(server_packet(row.type, 1, 41)), 0);
    EXPECT_EQ(world().diagnostics(), row.message);
  }
}

TEST_F(Dispatcher, AnyAcknowledgementClosesTheOutstandingPacketWhateverItsSeq) {
  rearm(rcm_retransmit, 5);
  EXPECT_EQ(take(server_packet(9, 3, 0xFFFFFFFF)), 0);
  EXPECT_EQ(context.seq, 11U);
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_EQ(context.miss_count, 5);
  EXPECT_FALSE(world().armed(&rcm_retransmit));
  EXPECT_EQ(std::memcmp(context.session_id, "ABCDEFGH", 8), 0);
}

TEST_F(Dispatcher, TwoAcknowledgementsOfOnePacketAdvanceSeqTwice) {
  EXPECT_EQ(take(server_packet(2, 1, 10)), 0);
  EXPECT_EQ(take(server_packet(2, 1, 10)), 0);
  EXPECT_EQ(context.seq, 12U);
}

TEST_F(Dispatcher, OnlyAKeepaliveAcknowledgementClearsTheMisses) {
  take(server_packet(2, 1, 10));
  EXPECT_EQ(context.miss_count, 5);
  take(server_packet(7, 1, 10));
  EXPECT_EQ(context.miss_count, 0);
}

TEST_F(Dispatcher, RequestsGoToTheHandlerOfTheirType) {
  EXPECT_EQ(take(server_packet(256, 0, 1)), 0);
  EXPECT_EQ(take(server_packet(257, 2, 2)), 0);
  EXPECT_EQ(take(server_packet(261, 0, 3)), 0);
  EXPECT_EQ(take(server_packet(258, 2, 4)), 0);
  EXPECT_EQ(take(server_packet(1, 0, 5)), 0);
  EXPECT_EQ(take(server_packet(0, 0, 6)), 0);
  EXPECT_EQ(routed, (std::vector<std::string>{"upgrade", "config", "configfile", "generic",
                                              "generic", "generic"}));
  EXPECT_EQ(world().diagnostics(), "get upgradecmd ... \nget config .... \nget config file.... \n");
  EXPECT_EQ(context.seq, 10U);
  EXPECT_EQ(context.online, 0);
}

TEST_F(Dispatcher, TheRequestsSeqIsKeptAfterItsHandlerReturned) {
  context.request_seq = 1;
  fake::on_request = [&](const std::string&, RcmContext& given) {
    request_seq_inside = given.request_seq;
    std::memset(given.rx_buf, 0, 100); // an exchange inside the handler reuses the buffer
  };
  EXPECT_EQ(take(server_packet(260, 0, 0x01020304)), 0);
  EXPECT_EQ(request_seq_inside, 1U);
  EXPECT_EQ(context.request_seq, 0x01020304U);
}

TEST_F(Dispatcher, TheHandlerFindsTheRequestItsLengthAndItsSender) {
  fake::on_request = [](const std::string&, RcmContext& given) {
    EXPECT_EQ(given.rx_length, 39);
    EXPECT_EQ(std::memcmp(given.rx_buf + 36, "abc", 3), 0);
    EXPECT_EQ(given.peer_addr.sin_port, htons(4321));
  };
  EXPECT_EQ(take(server_packet(257, 0, 1, bytes_of("abc")), "10.0.0.2", 4321), 0);
}

TEST_F(Dispatcher, TheDatagramIsReadFromTheDescriptorItIsGiven) {
  const int other = world().make_socket(4000);
  world().deliver(4000, server_packet(2, 1, 10));
  world().deliver(1161, server_packet(3, 1, 10));
  FdDescriptor descriptor{other, 0, &context};
  EXPECT_EQ(rcm_receive_func(&descriptor), 0);
  EXPECT_EQ(world().diagnostics(), "receive Log ACK(seq=10)\n");
  EXPECT_TRUE(world().events_of({"receive"}).empty());
}

TEST_F(Dispatcher, TheLargestRequestReachesItsHandlerWhole) {
  const Bytes request = server_packet(257, 0, 1, Bytes(8192 - 36, 0x33));
  Bytes seen;
  fake::on_request = [&](const std::string&, RcmContext& given) {
    seen.assign(given.rx_buf, given.rx_buf + given.rx_length);
  };
  EXPECT_EQ(take(request), 0);
  EXPECT_EQ(seen, request);
}

TEST_F(Dispatcher, ALongerDatagramIsCutAndDroppedAndWritesNothingBehindTheBuffer) {
  EXPECT_EQ(take(server_packet(257, 0, 1, Bytes(8300, 0x33))), -1);
  EXPECT_TRUE(guards_stand());
  EXPECT_EQ(context.rx_length, 8192);
  EXPECT_EQ(world().diagnostics(), "crc is error\n");
}

TEST_F(Dispatcher, ARequestIsNamedBeforeItsHandlerRuns) {
  fake::on_request = [](const std::string&, RcmContext&) { world().note("handler"); };
  EXPECT_EQ(take(server_packet(257, 0, 1)), 0);
  EXPECT_EQ(world().events, (std::vector<std::string>{"diag get config .... \n", "handler"}));
}

TEST_F(Dispatcher, TheLargestSeqIsShownAsMinusOne) {
  EXPECT_EQ(take(server_packet(2, 1, 0xFFFFFFFF)), 0);
  EXPECT_EQ(take(server_packet(9, 1, 0xFFFFFFFF)), 0);
  EXPECT_EQ(world().diagnostics(),
            "receive Log ACK(seq=-1)\nreceive unknown(0009) ACK(seq=-1) .... \n");
}

TEST_F(Dispatcher, ARequestOfAHandlerThatDoesNotReturnIsNeverRecorded) {
  context.request_seq = 6;
  fake::on_request = [](const std::string&, RcmContext&) { throw fake::Restarted{}; };
  EXPECT_THROW(take(server_packet(258, 0, 7)), fake::Restarted);
  EXPECT_EQ(context.request_seq, 6U);
}

TEST_F(Dispatcher, AnAcknowledgementIsNoRequest) {
  context.request_seq = 6;
  EXPECT_EQ(take(server_packet(257, 1, 7)), 0);
  EXPECT_EQ(take(server_packet(256, 3, 8)), 0);
  EXPECT_TRUE(routed.empty());
  EXPECT_EQ(context.request_seq, 6U);
}

TEST_F(Dispatcher, NothingIsSentBackForABadDatagramOrAnAcknowledgement) {
  take(Bytes(35, 1));
  take(server_packet(7, 4, 10));
  take(server_packet(7, 1, 10));
  EXPECT_TRUE(world().sent.empty());
}

TEST_F(Dispatcher, RandomDatagramsOfUpTo40BytesAreDroppedOrNamed) {
  std::mt19937 random(20261);
  for (int round = 0; round < 20000; round++) {
    Bytes datagram(random() % 41);
    for (std::uint8_t& byte : datagram) {
      byte = static_cast<std::uint8_t>(random());
    }
    take(datagram);
  }
  for (const std::string& event : world().events_of({"diag"})) {
    EXPECT_TRUE(event == "diag read fail .... \n" || event == "diag too short packet .. \n" ||
                event == "diag crc is error\n")
        << event;
  }
}

TEST_F(Dispatcher, EveryTruncationOfAPacketIsDropped) {
  const Bytes whole = server_packet(257, 0, 1, bytes_of("\0\0\0\0lan_ipaddr=1"));
  for (std::size_t length = 0; length < whole.size(); length++) {
    EXPECT_EQ(take(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))), -1);
  }
  EXPECT_TRUE(routed.empty());
}

class Opening : public fake::ContextFixture {
protected:
  Opening() {
    world().sockets.clear();
    context.sock = 0;
    answer_everything();
  }
};

TEST_F(Opening, TheSocketIsBoundToPort1161OnEveryAddressAndWatchedBeforeRegistering) {
  const int fd = rcm_open(&context);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(context.sock, fd);
  EXPECT_EQ(world().sockets[fd].domain, AF_INET);
  EXPECT_EQ(world().sockets[fd].type, SOCK_DGRAM);
  EXPECT_EQ(world().sockets[fd].protocol, 17);
  const std::string name = std::to_string(fd);
  const std::vector<std::string> first(world().events.begin(), world().events.begin() + 4);
  EXPECT_EQ(first, (std::vector<std::string>{"socket " + name,
                                             "setsockopt " + std::to_string(SOL_SOCKET) + " " +
                                                 std::to_string(SO_REUSEADDR),
                                             "bind 0.0.0.0:1161", "register " + name}));
  EXPECT_TRUE(world().armed(&rcm_keepalive));
}

TEST_F(Opening, TheLoopsHandlerWorksOnTheContext) {
  const int fd = rcm_open(&context);
  context.seq = 40;
  world().deliver(1161, server_packet(7, 1, 40));
  EXPECT_EQ(world().call_handler(fd), 0);
  EXPECT_EQ(context.seq, 41U);
}

TEST_F(Opening, AllSixTimersGetTheContext) {
  RcmTimer* timers[] = {&rcm_retransmit, &rcm_keepalive,  &rcm_logsender,
                        &rcm_gpssender,  &rcm_trafficget, &rcm_trafficsender};
  for (RcmTimer* timer : timers) {
    timer->arg = nullptr;
  }
  rcm_open(&context);
  for (RcmTimer* timer : timers) {
    EXPECT_EQ(timer->arg, &context);
  }
}

TEST_F(Opening, DescriptorZeroIsASocketLikeAnyOther) {
  world().next_fd = 0;
  EXPECT_EQ(rcm_open(&context), 0);
  EXPECT_EQ(world().diagnostics().find("fail"), std::string::npos);
  EXPECT_FALSE(world().sent.empty());
}

TEST_F(Opening, AFailingStepIsReportedAndLeavesTheSocketOpen) {
  world().socket_fails_at = 0;
  EXPECT_EQ(rcm_open(&context), -1);
  EXPECT_EQ(world().diagnostics(), "socket() fail \n");

  world().net_call_fails = [](const std::string& call) { return call == "setsockopt"; };
  EXPECT_EQ(rcm_open(&context), -1);
  EXPECT_EQ(world().diagnostics(), "socket() fail \nsetsockopt() fail \n");

  world().net_call_fails = [](const std::string& call) { return call == "bind"; };
  EXPECT_EQ(rcm_open(&context), -1);
  EXPECT_EQ(world().diagnostics(), "socket() fail \nsetsockopt() fail \nbind() fail \n");
  EXPECT_TRUE(world().events_of({"close", "register"}).empty());
  EXPECT_TRUE(world().sent.empty());
  EXPECT_EQ(context.sock, 0);
}

TEST_F(Opening, ClosingReturnsZero) {
  const int fd = world().make_socket();
  EXPECT_EQ(rcm_close(fd), 0);
  EXPECT_EQ(world().events_of({"close"}), std::vector<std::string>{"close " + std::to_string(fd)});
}

} // namespace
