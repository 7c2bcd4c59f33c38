#include "local/deskmgr.h"

#include "tests/fake_platform/fixture.h"

#include <cstring>

using fake::Bytes;
using fake::hex;
using fake::to_hex;
using fake::world;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

namespace {

// The bytes that are not interpreted are 0a0b0c0d and 5e.
Bytes request(const std::string& code, const std::string& kind = "01",
              const std::string& length = "0000000c") {
  return hex("0a0b0c0d" + code + "5e" + kind + length);
}

const std::string kAnswerToConnect = "0a0b0c0d00015e0200000010";
const std::string kAnswerToDisconnect = "0a0b0c0d00025e0200000010";
const std::string kAnswerToStatus = "0a0b0c0d00035e0200000010";

class Deskmgr : public fake::Fixture {
protected:
  /// Opens the server in stream mode and accepts one connection; forgets what was seen so far.
  int connection() {
    const int server = rcmd::deskmgr_open(2);
    world().connections.push_back(world().make_socket());
    const int fd = world().connections.front();
    EXPECT_EQ(world().call_handler(server), 0);
    world().events.clear();
    return fd;
  }
  /// What one read of the connection brings.
  static int read(int fd, const Bytes& bytes) {
    world().sockets[fd].inbox.push_back({fd, bytes, {}, 0});
    return world().call_handler(fd);
  }
  static std::string last_answer() {
    return world().sent.empty() ? "" : to_hex(world().sent.back().bytes);
  }
};

using DeskmgrOpening = Deskmgr;

TEST_F(DeskmgrOpening, Mode1IsADatagramSocketOnPort5000OfAllAddresses) {
  const int fd = rcmd::deskmgr_open(1);
  ASSERT_EQ(fd, 1000);
  EXPECT_EQ(world().sockets[fd].domain, AF_INET);
  EXPECT_EQ(world().sockets[fd].type, SOCK_DGRAM);
  EXPECT_EQ(world().sockets[fd].protocol, IPPROTO_UDP);
  EXPECT_THAT(world().events,
              ElementsAre("socket 1000", "setsockopt 1 2", "bind 0.0.0.0:5000", "register 1000"));
}

TEST_F(DeskmgrOpening, Mode2IsAStreamSocketThatListensWithABacklogOf5) {
  const int fd = rcmd::deskmgr_open(2);
  ASSERT_EQ(fd, 1000);
  EXPECT_EQ(world().sockets[fd].domain, AF_INET);
  EXPECT_EQ(world().sockets[fd].type, SOCK_STREAM);
  EXPECT_EQ(world().sockets[fd].protocol, IPPROTO_TCP);
  EXPECT_THAT(world().events, ElementsAre("socket 1000", "setsockopt 1 2", "bind 0.0.0.0:5000",
                                          "listen 5", "register 1000"));
}

TEST_F(DeskmgrOpening, Descriptor0IsASocketLikeAnyOther) {
  world().next_fd = 0;
  EXPECT_EQ(rcmd::deskmgr_open(2), 0);
  EXPECT_TRUE(world().watched(0));
}

TEST_F(DeskmgrOpening, AnyOtherModeIsUnknown) {
  EXPECT_EQ(rcmd::deskmgr_open(3), -1);
  EXPECT_EQ(rcmd::deskmgr_open(0), -1);
  EXPECT_EQ(rcmd::deskmgr_open(-7), -1);
  EXPECT_THAT(world().events,
              ElementsAre("console Unknown socket type 3 \n", "console Unknown socket type 0 \n",
                          "console Unknown socket type -7 \n"));
}

TEST_F(DeskmgrOpening, NoSocketIsReported) {
  world().socket_fails_at = 0;
  EXPECT_EQ(rcmd::deskmgr_open(1), -1);
  EXPECT_THAT(world().events, ElementsAre("console socket() fail \n"));
}

TEST_F(DeskmgrOpening, ARefusedOptionIsReportedAndTheSocketClosed) {
  world().net_call_fails = [](const std::string& call) { return call == "setsockopt"; };
  EXPECT_EQ(rcmd::deskmgr_open(1), -1);
  EXPECT_THAT(world().events, ElementsAre("socket 1000", "setsockopt 1 2",
                                          "console setsockopt() fail \n", "close 1000"));
}

TEST_F(DeskmgrOpening, AnOccupiedPortIsReportedAndTheSocketClosed) {
  world().net_call_fails = [](const std::string& call) { return call == "bind"; };
  EXPECT_EQ(rcmd::deskmgr_open(2), -1);
  EXPECT_THAT(world().events, ElementsAre("socket 1000", "setsockopt 1 2", "bind 0.0.0.0:5000",
                                          "console bind() fail \n", "close 1000"));
}

TEST_F(DeskmgrOpening, AFailedListenIsReportedAndTheSocketClosed) {
  world().net_call_fails = [](const std::string& call) { return call == "listen"; };
  EXPECT_EQ(rcmd::deskmgr_open(2), -1);
  EXPECT_THAT(world().events, ElementsAre("socket 1000", "setsockopt 1 2", "bind 0.0.0.0:5000",
                                          "listen 5", "console listen() fail \n", "close 1000"));
}

TEST_F(DeskmgrOpening, ALoopWithoutRoomLeavesNoSocketBehind) {
  world().watch_table_full = true;
  EXPECT_EQ(rcmd::deskmgr_open(1), -1);
  EXPECT_TRUE(world().sockets.empty());
}

TEST_F(DeskmgrOpening, ABrokenConsoleLosesTheTextAlone) {
  world().console_broken = true;
  EXPECT_EQ(rcmd::deskmgr_open(9), -1);
  EXPECT_EQ(rcmd::deskmgr_open(2), 1000);
}

using DeskmgrAccepting = Deskmgr;

TEST_F(DeskmgrAccepting, AConnectionIsAnnouncedAndWatched) {
  const int server = rcmd::deskmgr_open(2);
  world().connections = {world().make_socket()};
  world().events.clear();
  EXPECT_EQ(world().call_handler(server), 0);
  EXPECT_THAT(world().events, ElementsAre("console call deskmgr_handler ... \n",
                                          "console recevie connect request ! \n", "register 1001"));
}

TEST_F(DeskmgrAccepting, Descriptor0IsAConnectionLikeAnyOther) {
  const int server = rcmd::deskmgr_open(2);
  world().next_fd = 0;
  world().connections = {world().make_socket()};
  EXPECT_EQ(world().call_handler(server), 0);
  EXPECT_TRUE(world().watched(0));
}

TEST_F(DeskmgrAccepting, AFailedAcceptDoesNothingElse) {
  const int server = rcmd::deskmgr_open(2);
  world().connections = {world().make_socket()};
  world().events.clear();
  world().net_call_fails = [](const std::string& call) {
    world().note(call);
    return true;
  };
  EXPECT_EQ(world().call_handler(server), -1);
  EXPECT_THAT(world().events, ElementsAre("console call deskmgr_handler ... \n", "accept"));
}

TEST_F(DeskmgrAccepting, InDatagramModeTheDatagramStaysUnread) {
  const int server = rcmd::deskmgr_open(1);
  world().deliver(5000, request("0001"));
  world().events.clear();
  EXPECT_EQ(world().call_handler(server), -1);
  EXPECT_THAT(world().events, ElementsAre("console call deskmgr_handler ... \n"));
  EXPECT_EQ(world().sockets[server].inbox.size(), 1U);
  EXPECT_TRUE(world().sent.empty());
}

TEST_F(DeskmgrAccepting, AConnectionThatTheLoopHasNoRoomForIsClosed) {
  const int server = rcmd::deskmgr_open(2);
  world().connections = {world().make_socket()};
  world().watch_table_full = true;
  world().events.clear();
  EXPECT_EQ(world().call_handler(server), 0);
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgr_handler ... \n",
                          "console recevie connect request ! \n", "register 1001", "close 1001"));
}

TEST_F(DeskmgrAccepting, SeveralConnectionsAreServedSideBySide) {
  const int server = rcmd::deskmgr_open(2);
  const int first = world().make_socket();
  const int second = world().make_socket();
  world().connections = {first, second};
  EXPECT_EQ(world().call_handler(server), 0);
  EXPECT_EQ(world().call_handler(server), 0);
  read(second, request("0003"));
  read(first, request("0003"));
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(world().sent[0].fd, second);
  EXPECT_EQ(world().sent[1].fd, first);
}

using DeskmgrReading = Deskmgr;

TEST_F(DeskmgrReading, AFailedReadClosesAndThenUnregisters) {
  const int fd = connection();
  world().net_call_fails = [](const std::string& call) {
    world().note(call);
    return true;
  };
  EXPECT_EQ(world().call_handler(fd), 0);
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "recv",
                          "console read fail .... \n", "close 1001", "unregister 1001"));
}

TEST_F(DeskmgrReading, ThePeersEndClosesAndThenUnregisters) {
  const int fd = connection();
  read(fd, {});
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console read fail .... \n",
                          "close 1001", "unregister 1001"));
}

TEST_F(DeskmgrReading, OneByteIsTooShortAndNoFailedRead) {
  const int fd = connection();
  EXPECT_EQ(read(fd, {0x0A}), 0);
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 1 \n",
                          "console too short packet .. \n", "close 1001", "unregister 1001"));
}

TEST_F(DeskmgrReading, ElevenBytesAreTooShort) {
  const int fd = connection();
  Bytes bytes = request("0001");
  bytes.pop_back();
  read(fd, bytes);
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 11 \n",
                          "console too short packet .. \n", "close 1001", "unregister 1001"));
}

TEST_F(DeskmgrReading, ALengthFieldAboveTheCountIsAMismatch) {
  const int fd = connection();
  read(fd, request("0001", "01", "0000000d"));
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 12 \n",
                          "console mismatch length packet .. \n", "close 1001", "unregister 1001"));
}

TEST_F(DeskmgrReading, TheLengthFieldIsUnsigned) {
  const int fd = connection();
  read(fd, request("0001", "01", "ffffffff"));
  EXPECT_THAT(world().events, Contains("console mismatch length packet .. \n"));
}

TEST_F(DeskmgrReading, ACountAboveTheLengthFieldIsAccepted) {
  const int fd = connection();
  Bytes two = request("0003");
  const Bytes second = request("0001");
  two.insert(two.end(), second.begin(), second.end());
  read(fd, two);
  EXPECT_THAT(world().events, Contains("console len = 24 \n"));
  EXPECT_EQ(last_answer(), kAnswerToStatus + "00000002");
  EXPECT_EQ(world().sent.size(), 1U) << "what stands behind the message is dropped";
  EXPECT_FALSE(world().nvram.contains("wan0_action"));
}

TEST_F(DeskmgrReading, ALengthFieldBelowTheHeaderIsAccepted) {
  const int fd = connection();
  read(fd, request("0003", "01", "00000000"));
  EXPECT_EQ(last_answer(), kAnswerToStatus + "00000002");
}

TEST_F(DeskmgrReading, OneReadTakesNoMoreThan1024Bytes) {
  const int fd = connection();
  Bytes bytes = request("0003", "01", "00000400");
  bytes.resize(3000, 0x11);
  read(fd, bytes);
  EXPECT_THAT(world().events, Contains("console len = 1024 \n"));
  EXPECT_EQ(world().sent.size(), 1U);
  bytes = request("0003", "01", "00000401");
  bytes.resize(3000, 0x11);
  read(fd, bytes);
  EXPECT_THAT(world().events, Contains("console mismatch length packet .. \n"));
}

TEST_F(DeskmgrReading, AResponseIsNoRequest) {
  const int fd = connection();
  read(fd, request("0001", "02"));
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 12 \n",
                          "console msg_hdr->type = 02 (2) \n",
                          "console We are only to accept request packet \n", "close 1001",
                          "unregister 1001"));
}

TEST_F(DeskmgrReading, BehindAResponseNothingIsLeftToAskAgainAbout) {
  const int fd = connection();
  EXPECT_EQ(read(fd, request("0001", "02")), 0);
}

TEST_F(DeskmgrReading, TheKindIsShownInBothNotations) {
  const int fd = connection();
  read(fd, request("0001", "fe"));
  EXPECT_THAT(world().events, Contains("console msg_hdr->type = fe (254) \n"));
}

TEST_F(DeskmgrReading, ABrokenConsoleStillClosesAndUnregisters) {
  const int fd = connection();
  world().console_broken = true;
  read(fd, request("0001", "02"));
  EXPECT_THAT(world().events, ElementsAre("close 1001", "unregister 1001"));
}

TEST_F(DeskmgrReading, ABrokenConsoleStillServes) {
  const int server = rcmd::deskmgr_open(2);
  const int fd = world().make_socket();
  world().connections = {fd};
  world().console_broken = true;
  EXPECT_EQ(world().call_handler(server), 0);
  world().events.clear();
  for (const char* code : {"0001", "0002", "0003"}) {
    read(fd, request(code));
  }
  EXPECT_THAT(world().events, ElementsAre("nvram_set wan0_action=start", "send 16 to 0.0.0.0:0",
                                          "nvram_set wan0_action=stop", "send 16 to 0.0.0.0:0",
                                          "send 16 to 0.0.0.0:0"));
}

TEST_F(DeskmgrReading, TheConnectionStaysForFurtherRequests) {
  const int fd = connection();
  for (int i = 0; i < 3; i++) {
    read(fd, request("0003"));
  }
  EXPECT_EQ(world().sent.size(), 3U);
  EXPECT_TRUE(world().watched(fd));
}

using DeskmgrDispatch = Deskmgr;

TEST_F(DeskmgrDispatch, Code4IsTakenAndNotAnswered) {
  const int fd = connection();
  read(fd, request("0004"));
  EXPECT_TRUE(world().sent.empty());
  EXPECT_TRUE(world().watched(fd));
  EXPECT_TRUE(world().sockets.contains(fd));
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 12 \n",
                          "console msg_hdr->type = 01 (1) \n"));
}

TEST_F(DeskmgrDispatch, UnknownCodesAreNotAnsweredAndTheConnectionStays) {
  const int fd = connection();
  for (const char* code : {"0000", "0005", "0101", "0300", "ffff"}) {
    read(fd, request(code));
  }
  EXPECT_TRUE(world().sent.empty());
  EXPECT_TRUE(world().watched(fd));
}

TEST_F(DeskmgrDispatch, ItsResultTellsWhetherTheCodeHasAHandler) {
  const int fd = world().make_socket();
  rcmd::DeskmgrHeader message{};
  for (const auto& [code, result] : {std::pair{0, -1}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, -1}}) {
    message.code = static_cast<std::uint16_t>(code);
    EXPECT_EQ(rcmd::deskmgr_msg_dispatch(fd, message, 12), result) << code;
  }
}

using DeskmgrConnect = Deskmgr;

TEST_F(DeskmgrConnect, AllowedValuesStartTheWwan) {
  const int fd = connection();
  world().nvram = {{"wan0_enable", "1"}, {"wan0_wwan_mode", "3"}};
  world().on_nvram_get = [](const std::string& name) { world().note("nvram_get " + name); };
  EXPECT_EQ(read(fd, request("0001")), 0);
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 12 \n",
                          "console msg_hdr->type = 01 (1) \n",
                          "console receive a wwan_connect request ! \n", "nvram_get wan0_enable",
                          "nvram_get wan0_wwan_mode", "nvram_set wan0_action=start",
                          "send 16 to 0.0.0.0:0", "console send response packet ! \n"));
  EXPECT_EQ(last_answer(), kAnswerToConnect + "00000000");
  EXPECT_TRUE(world().committed.empty());
}

TEST_F(DeskmgrConnect, UnsetKeysAllowIt) {
  const int fd = connection();
  read(fd, request("0001"));
  EXPECT_EQ(last_answer(), kAnswerToConnect + "00000000");
  EXPECT_EQ(world().nvram["wan0_action"], "start");
}

TEST_F(DeskmgrConnect, ADisabledWanRefuses) {
  const int fd = connection();
  for (const char* value : {"0", "", "11", " 1"}) {
    world().nvram = {{"wan0_enable", value}, {"wan0_wwan_mode", "3"}};
    read(fd, request("0001"));
    EXPECT_EQ(last_answer(), kAnswerToConnect + "00000001") << value;
    EXPECT_FALSE(world().nvram.contains("wan0_action"));
  }
}

TEST_F(DeskmgrConnect, ARefusalIsAnsweredAndToldLikeAConsent) {
  const int fd = connection();
  world().nvram = {{"wan0_enable", "0"}};
  EXPECT_EQ(read(fd, request("0001")), 0);
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 12 \n",
                          "console msg_hdr->type = 01 (1) \n",
                          "console receive a wwan_connect request ! \n", "send 16 to 0.0.0.0:0",
                          "console send response packet ! \n"));
  EXPECT_EQ(world().sent[0].fd, fd);
}

TEST_F(DeskmgrConnect, AnotherWwanModeRefuses) {
  const int fd = connection();
  for (const char* value : {"2", "", "33"}) {
    world().nvram = {{"wan0_enable", "1"}, {"wan0_wwan_mode", value}};
    read(fd, request("0001"));
    EXPECT_EQ(last_answer(), kAnswerToConnect + "00000001") << value;
    EXPECT_FALSE(world().nvram.contains("wan0_action"));
  }
}

TEST_F(DeskmgrConnect, AFailedSendIsNotReported) {
  const int fd = connection();
  world().send_fails = [](const auto&) { return true; };
  EXPECT_EQ(read(fd, request("0001")), 0);
  EXPECT_EQ(world().events.back(), "console send response packet ! \n");
  EXPECT_TRUE(world().watched(fd));
}

TEST_F(DeskmgrConnect, AnAnswerNeitherWaitsNorRaisesASignal) {
  const int fd = connection();
  read(fd, request("0001"));
  EXPECT_EQ(world().sent[0].flags, MSG_DONTWAIT | MSG_NOSIGNAL);
}

TEST_F(DeskmgrConnect, AStoreThatRefusesIsStillAnsweredWithDone) {
  const int fd = connection();
  world().nvram_set_result = -1;
  read(fd, request("0001"));
  EXPECT_EQ(last_answer(), kAnswerToConnect + "00000000");
}

using DeskmgrDisconnect = Deskmgr;

TEST_F(DeskmgrDisconnect, AllowedValuesStopTheWwanAndNothingFollowsTheAnswer) {
  const int fd = connection();
  world().nvram = {{"wan0_enable", "1"}, {"wan0_wwan_mode", "3"}};
  EXPECT_EQ(read(fd, request("0002")), 0);
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 12 \n",
                          "console msg_hdr->type = 01 (1) \n",
                          "console receive a wwan_disconnect request ! \n",
                          "nvram_set wan0_action=stop", "send 16 to 0.0.0.0:0"));
  EXPECT_EQ(last_answer(), kAnswerToDisconnect + "00000000");
}

TEST_F(DeskmgrDisconnect, ValuesThatDifferRefuse) {
  const int fd = connection();
  world().nvram = {{"wan0_enable", "0"}};
  read(fd, request("0002"));
  EXPECT_EQ(last_answer(), kAnswerToDisconnect + "00000001");
  world().nvram = {{"wan0_wwan_mode", "1"}};
  read(fd, request("0002"));
  EXPECT_EQ(last_answer(), kAnswerToDisconnect + "00000001");
  EXPECT_FALSE(world().nvram.contains("wan0_action"));
}

using DeskmgrStatus = Deskmgr;

TEST_F(DeskmgrStatus, DownIs1) {
  const int fd = connection();
  world().nvram = {{"wan0_status", "down"}};
  world().on_nvram_get = [](const std::string& name) { world().note("nvram_get " + name); };
  EXPECT_EQ(read(fd, request("0003")), 0);
  EXPECT_THAT(world().events,
              ElementsAre("console call deskmgrp_rw_handler ... \n", "console len = 12 \n",
                          "console msg_hdr->type = 01 (1) \n",
                          "console receive a status request ! \n", "nvram_get wan0_status",
                          "send 16 to 0.0.0.0:0"));
  EXPECT_EQ(last_answer(), kAnswerToStatus + "00000001");
}

TEST_F(DeskmgrStatus, AnythingElseAndUnsetIs2) {
  const int fd = connection();
  read(fd, request("0003"));
  EXPECT_EQ(last_answer(), kAnswerToStatus + "00000002");
  for (const char* value : {"up", "", "Down", "down "}) {
    world().nvram = {{"wan0_status", value}};
    read(fd, request("0003"));
    EXPECT_EQ(last_answer(), kAnswerToStatus + "00000002") << value;
  }
  EXPECT_THAT(world().events, Not(Contains("console send response packet ! \n")));
}

} // namespace
