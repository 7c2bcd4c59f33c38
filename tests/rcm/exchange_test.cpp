#include "rcm/exchange.h"

#include "rcm/packet.h"
#include "tests/fake_platform/context.h"

#include <climits>

using namespace rcmd;
using fake::Bytes;
using fake::server_packet;
using fake::world;

namespace {

class Exchanges : public fake::ContextFixture {
protected:
  Exchanges() {
    context.seq = 7;
    context.online = 0;
    context.retransmit_count = 3;
    context.miss_count = 2;
    begin_packet(context, kLog, kReportFlags);
    bytes = finish_packet(context, 0);
  }

  // The server answers the n-th send (counted from 1) after a while.
  void answer_send(std::size_t n, const Bytes& packet, std::int64_t after_ms = 100) {
    world().on_send = [=](const fake::Datagram&) {
      if (world().sent.size() == n) {
        world().deliver(1161, packet, after_ms);
      }
    };
  }

  std::size_t bytes = 0;
};

TEST_F(Exchanges, TheAnswerIsMatchedBySeqWhateverItsTypeFlagsAndSender) {
  world().on_send = [](const fake::Datagram&) {
    world().deliver(1161, server_packet(0x7777, 9, 7), 10, "203.0.113.9", 5);
  };
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_EQ(context.seq, 7U);
}

TEST_F(Exchanges, OnlySomeExchangesTakeTheAnswersSessionIdentifier) {
  struct Row {
    const ExchangeRules* rules;
    const char* session;
  };
  for (const Row& row : {Row{&kRegisterExchange, "NEWSESSI"}, Row{&kServerTimeExchange, "NEWSESSI"},
                         Row{&kParametersExchange, "NEWSESSI"}, Row{&kReportExchange, "NEWSESSI"},
                         Row{&kLogExchange, "ABCDEFGH"}, Row{&kTrafficExchange, "ABCDEFGH"}}) {
    std::copy_n("ABCDEFGH", 8, context.session_id);
    world().on_send = [](const fake::Datagram&) {
      world().deliver(1161, server_packet(2, 1, 7, {}, "NEWSESSI"), 10);
    };
    ASSERT_EQ(exchange(context, bytes, *row.rules), Answer::kMatched);
    EXPECT_EQ(std::string(context.session_id, context.session_id + 8), row.session);
  }
}

TEST_F(Exchanges, OnlyTheAnswerToARegistrationClearsTheMisses) {
  for (const ExchangeRules* rules : {&kServerTimeExchange, &kParametersExchange, &kReportExchange,
                                     &kLogExchange, &kTrafficExchange, &kRegisterExchange}) {
    answer_everything();
    ASSERT_EQ(exchange(context, bytes, *rules), Answer::kMatched);
    EXPECT_EQ(context.miss_count, rules == &kRegisterExchange ? 0 : 2);
  }
}

TEST_F(Exchanges, ASilentServerGetsFourSendsFiveSecondsApart) {
  for (const ExchangeRules* rules : {&kServerTimeExchange, &kParametersExchange, &kReportExchange,
                                     &kLogExchange, &kTrafficExchange}) {
    world().sent.clear();
    const std::int64_t start = world().now_ms;
    EXPECT_EQ(exchange(context, bytes, *rules), Answer::kTimeout);
    ASSERT_EQ(world().sent.size(), 4U);
    for (std::size_t i = 0; i < 4; i++) {
      EXPECT_EQ(world().sent[i].at_ms - start, static_cast<std::int64_t>(i) * 5000);
      EXPECT_EQ(world().sent[i].bytes, world().sent[0].bytes);
    }
    EXPECT_EQ(world().now_ms - start, 20000);
    EXPECT_EQ(context.retransmit_count, 3);
  }
}

TEST_F(Exchanges, WhatAFailureDoesToOnlineDiffersOnPurpose) {
  struct Row {
    const ExchangeRules* rules;
    int online_before;
    int online_after;
  };
  for (const Row& row : {Row{&kServerTimeExchange, 1, 0}, Row{&kParametersExchange, 1, 0},
                         Row{&kReportExchange, 1, 1}, Row{&kReportExchange, 0, 0},
                         Row{&kLogExchange, 0, 1}, Row{&kTrafficExchange, 1, 0}}) {
    context.online = row.online_before;
    EXPECT_EQ(exchange(context, bytes, *row.rules), Answer::kTimeout);
    EXPECT_EQ(context.online, row.online_after);
    context.online = row.online_before;
    world().send_fails = [](const fake::Datagram&) { return true; };
    EXPECT_EQ(exchange(context, bytes, *row.rules), Answer::kSendFailed);
    EXPECT_EQ(context.online, row.online_after);
    world().send_fails = nullptr;
    context.online = row.online_before;
    world().waitfor_result = [](int, int) { return -1; };
    EXPECT_EQ(exchange(context, bytes, *row.rules), Answer::kWaitError);
    EXPECT_EQ(context.online, row.online_after);
    world().waitfor_result = nullptr;
  }
}

TEST_F(Exchanges, AFailedSendIsNotTriedAgain) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_EQ(exchange(context, bytes, kReportExchange), Answer::kSendFailed);
  EXPECT_EQ(world().events_of({"send"}).size(), 1U);
  EXPECT_EQ(world().now_ms, 0);
}

TEST_F(Exchanges, TheSecondSendMayBeAnswered) {
  answer_send(2, server_packet(2, 1, 7));
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(world().now_ms, 5100);
}

TEST_F(Exchanges, StraysAreDroppedAndStartTheWaitAfresh) {
  Bytes wrong_checksum = server_packet(2, 1, 7, {1});
  wrong_checksum[32] ^= 0x40;
  world().on_send = [&](const fake::Datagram&) {
    world().deliver(1161, server_packet(2, 1, 8), 4000); // another seq
    world().deliver(1161, Bytes(35, 0), 8000);           // too short
    world().deliver(1161, wrong_checksum, 12000);
    world().deliver(1161, server_packet(257, 0, 99), 16000); // a request is lost
    world().deliver(1161, server_packet(2, 1, 7), 20900);
  };
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().now_ms, 20900);
  EXPECT_EQ(world().diagnostics(), "crc is error\n");
}

TEST_F(Exchanges, AReceiveErrorCountsLikeAShortDatagram) {
  int reads = 0;
  world().net_call_fails = [&](const std::string& call) { return call == "recv" && reads++ == 0; };
  world().deliver(1161, server_packet(2, 1, 7));
  answer_send(1, server_packet(2, 1, 7), 3000);
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(world().now_ms, 3000);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(Exchanges, AnAnswerMayFillTheReceiveBuffer) {
  const Bytes largest = server_packet(2, 1, 7, Bytes(8156, 0x5A));
  ASSERT_EQ(largest.size(), 8192U);
  answer_send(1, largest);
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(context.rx_buf[8191], 0x5A);
}

TEST_F(Exchanges, AnEmptyDatagramIsSkipped) {
  world().deliver(1161, {});
  answer_send(1, server_packet(2, 1, 7), 3000);
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(Exchanges, WordsAreSaidBeforeEachSendAndAtEachTimeout) {
  const auto words = [](const RcmContext&) { world().note("diag say"); };
  EXPECT_EQ(exchange(context, bytes, kReportExchange, {words, "time"}), Answer::kTimeout);
  const std::vector<std::string> once = {"diag say", "send 36 to 127.0.0.1:1162", "diag time"};
  std::vector<std::string> expected;
  for (int i = 0; i < 4; i++) {
    expected.insert(expected.end(), once.begin(), once.end());
  }
  EXPECT_EQ(world().events, expected);
}

TEST_F(Exchanges, AFailingRegistrationLeavesOnlineAlone) {
  for (const int online : {0, 1}) {
    context.online = online;
    world().send_fails = [](const fake::Datagram&) { return true; };
    EXPECT_EQ(exchange(context, bytes, kRegisterExchange), Answer::kSendFailed);
    EXPECT_EQ(context.online, online);
    world().send_fails = nullptr;
    world().waitfor_result = [](int, int) { return -1; };
    EXPECT_EQ(exchange(context, bytes, kRegisterExchange), Answer::kWaitError);
    EXPECT_EQ(context.online, online);
  }
}

TEST_F(Exchanges, ARegistrationIsSentAgainWithoutEndAndLeavesOnlineAloneMeanwhile) {
  context.online = 1;
  world().on_send = [this](const fake::Datagram&) {
    EXPECT_EQ(context.online, 1);
    EXPECT_EQ(context.retransmit_count, 3);
    if (world().sent.size() == 501) {
      world().deliver(1161, server_packet(1, 1, 7), 100);
    }
  };
  EXPECT_EQ(exchange(context, bytes, kRegisterExchange), Answer::kMatched);
  EXPECT_EQ(world().sent.size(), 501U);
  EXPECT_EQ(world().now_ms, 500 * 5000 + 100);
}

TEST_F(Exchanges, AFailedSendAfterATimeoutEndsTheExchange) {
  world().send_fails = [](const fake::Datagram&) { return world().sent.size() == 2; };
  EXPECT_EQ(exchange(context, bytes, kTrafficExchange), Answer::kSendFailed);
  EXPECT_EQ(world().events_of({"send"}).size(), 3U);
}

TEST_F(Exchanges, EachWaitIsForTheManagementSocketAndFiveSecondsLong) {
  std::vector<std::pair<int, int>> waits;
  world().waitfor_result = [&](int fd, int seconds) {
    waits.emplace_back(fd, seconds);
    return 0;
  };
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kTimeout);
  EXPECT_EQ(waits, (std::vector<std::pair<int, int>>(4, {context.sock, 5})));
}

TEST_F(Exchanges, AnyPositiveResultOfTheWaitIsReadable) {
  world().waitfor_result = [](int, int) { return 2; };
  world().deliver(1161, server_packet(2, 1, 7));
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
}

TEST_F(Exchanges, TheLargestAnswerStandsWholeInTheReceiveBuffer) {
  const Bytes answer = server_packet(2, 1, 7, Bytes(8192 - 36, 0x55));
  answer_send(1, answer);
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(Bytes(context.rx_buf, context.rx_buf + 8192), answer);
}

TEST_F(Exchanges, ALongerDatagramIsCutAndDroppedAndWritesNothingBehindTheBuffer) {
  world().deliver(1161, server_packet(2, 1, 7, Bytes(8300, 0x55)));
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kTimeout);
  EXPECT_TRUE(guards_stand());
  EXPECT_EQ(world().diagnostics(), "crc is error\n");
}

TEST_F(Exchanges, AnAnswerTouchesNeitherTheDispatchersLengthAndPeerNorTxLength) {
  context.rx_length = 99;
  context.tx_length = 55;
  answer_send(1, server_packet(2, 1, 7));
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(context.rx_length, 99);
  EXPECT_EQ(context.peer_addr.sin_port, 0);
  EXPECT_EQ(context.tx_length, 55U);
  EXPECT_TRUE(world().events_of({"receive"}).empty());
}

TEST_F(Exchanges, AnEmptyWaitThatWasPromisedADatagramWaitsOn) {
  int promises = 0;
  world().waitfor_result = [&](int, int) { return promises++ < 3 ? 1 : INT_MIN; };
  answer_send(1, server_packet(2, 1, 7), 2000);
  EXPECT_EQ(exchange(context, bytes, kLogExchange), Answer::kMatched);
  EXPECT_EQ(world().now_ms, 2000);
  EXPECT_EQ(world().sent.size(), 1U);
}

TEST_F(Exchanges, AnotherWaitMayMatchOtherwise) {
  const auto second = [](const RcmContext& given, void* argument) {
    auto& seen = *static_cast<std::vector<std::uint32_t>*>(argument);
    seen.push_back(rx_header(given).seq);
    return seen.size() == 2;
  };
  std::vector<std::uint32_t> seen;
  world().deliver(1161, server_packet(2, 1, 70));
  world().deliver(1161, server_packet(2, 1, 71));
  world().deliver(1161, server_packet(2, 1, 72));
  EXPECT_EQ(await_packet(context, second, &seen), Answer::kMatched);
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{70, 71}));
  EXPECT_EQ(await_packet(
                context, [](const RcmContext&, void*) { return false; }, nullptr),
            Answer::kTimeout);
}

TEST_F(Exchanges, AFailureIsNoTimeoutToSpeakOf) {
  world().waitfor_result = [](int, int) { return -1; };
  EXPECT_EQ(exchange(context, bytes, kReportExchange, {nullptr, "time"}), Answer::kWaitError);
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_EQ(exchange(context, bytes, kReportExchange, {nullptr, "time"}), Answer::kSendFailed);
  EXPECT_EQ(world().diagnostics(), "");
}

} // namespace
