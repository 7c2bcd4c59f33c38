#include "reporters/log_sender.h"

#include "core/timers.h"
#include "tests/reporters/log_fixture.h"

#include <cstring>

using namespace rcmd;
using fake::Bytes;
using fake::to_hex;
using fake::world;
using Texts = std::vector<std::string>;

namespace {

class LogSender : public fake::LogFixture {
protected:
  LogSender() {
    context.seq = 7;
    context.retransmit_count = 3;
    context.miss_count = 2;
    world().nvram["rcm_log_interval"] = "300";
  }
  void put_line() { ring->put("0 1 days 02:03:04 h s crond: ok\n"); }
  [[nodiscard]] static Texts seen() {
    return world().events_of({"diag", "send", "arm", "disarm", "cancel"});
  }
  static inline const std::string kSay = "diag Send log packet(seq=7) to server...\n";
  static inline const Texts kRearmed = {"cancel rcm_logsender", "arm rcm_logsender 300"};
  // 36 bytes of header, 31 of text.
  static inline const std::string kSend = "send 67 to 127.0.0.1:1162";
};

Texts operator+(Texts left, const Texts& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST_F(LogSender, ThePacketHoldsTheLinesWithoutATerminator) {
  std::memcpy(context.tx_buf + 8, "\xA1\xA2\xA3\xA4", 4);
  context.seq = 0x01020304;
  put_line();
  answer_everything();
  rcm_logsender_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes),
            "4142434445464748" // the session
            "a1a2a3a4"         // whatever the buffer held
            "534e30313233343536373839"
            "01020304"
            "0002"
            "0000"
            "0cf1"
            "001f"
            "323030312d30392d31302030333a34383a3034732063726f6e643a206f6b0a");
  EXPECT_EQ(context.tx_length, 67U);
}

TEST_F(LogSender, AnAcknowledgementKeepsTheSequenceNumberAndTheSession) {
  put_line();
  answer_everything();
  rcm_logsender_func(&context);
  EXPECT_EQ(seen(), (Texts{kSay, kSend} + kRearmed));
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.seq, 7U);
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_EQ(context.miss_count, 2);
  EXPECT_EQ(std::memcmp(context.session_id, "ABCDEFGH", 8), 0);
}

TEST_F(LogSender, NothingIsSentWhileAPacketAwaitsItsAcknowledgement) {
  put_line();
  for (const int online : {0, 2, -1}) {
    world().events.clear();
    context.online = online;
    rcm_logsender_func(&context);
    EXPECT_EQ(seen().back(), "arm rcm_logsender 300");
    EXPECT_EQ(world().events_of({"diag", "send", "sem", "shm"}), Texts{});
    EXPECT_EQ(context.online, online);
  }
  EXPECT_EQ(ring->data()[0], '0');
}

TEST_F(LogSender, WithoutNewLinesNothingIsSent) {
  rcm_logsender_func(&context);
  EXPECT_EQ(seen(), (Texts{kSay, "diag nothing!\n"} + kRearmed));
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.tx_length, 0U);
  EXPECT_EQ(context.retransmit_count, 3);
}

TEST_F(LogSender, TheHeaderIsWrittenBeforeTheLinesAreLookedFor) {
  std::memset(context.tx_buf, 0xEE, 40);
  rcm_logsender_func(&context);
  EXPECT_EQ(to_hex(tx(40)), "4142434445464748eeeeeeee534e30313233343536373839"
                            "00000007"
                            "0002"
                            "0000"
                            "eeeeeeeeeeeeeeee");
}

TEST_F(LogSender, AnUnreadableStampCountsAsNoLines) {
  put_line();
  ring->put("0 0 d noon h s m\n");
  rcm_logsender_func(&context);
  EXPECT_EQ(seen(), (Texts{kSay, "diag nothing!\n"} + kRearmed));
  EXPECT_EQ(context.online, 1);
}

TEST_F(LogSender, ASilentServerIsSentFourIdenticalPacketsFiveSecondsApart) {
  put_line();
  rcm_logsender_func(&context);
  ASSERT_EQ(world().sent.size(), 4U);
  for (int i = 0; i < 4; i++) {
    EXPECT_EQ(world().sent[static_cast<std::size_t>(i)].at_ms, i * 5000);
    EXPECT_EQ(world().sent[static_cast<std::size_t>(i)].bytes, world().sent[0].bytes);
  }
  EXPECT_EQ(world().now_ms, 20'000);
  EXPECT_EQ(seen(), (Texts{kSay, kSend, kSend, kSend, kSend} + kRearmed));
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 3);
  EXPECT_EQ(context.seq, 7U);
}

// DELIBERATE: the batch was marked when it was collected.
TEST_F(LogSender, ABatchThatNobodyAcknowledgesIsNotSentAgain) {
  put_line();
  rcm_logsender_func(&context);
  world().sent.clear();
  ring->put("0 1 days 02:03:05 h s crond: two\n");
  answer_everything();
  rcm_logsender_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(std::string(world().sent[0].bytes.begin() + 36, world().sent[0].bytes.end()),
            "2001-09-10 03:48:05s crond: two\n");
}

TEST_F(LogSender, TheSecondSendIsAnswered) {
  put_line();
  world().on_send = [](const fake::Datagram& sent) {
    if (world().sent.size() == 2) {
      world().deliver(1161, fake::server_packet(2, 3, fake::seq_of(sent.bytes)), 100);
    }
  };
  rcm_logsender_func(&context);
  EXPECT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(world().now_ms, 5100);
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_EQ(context.seq, 7U);
}

TEST_F(LogSender, TypeAndFlagsOfTheAnswerAreNotLookedAt) {
  put_line();
  world().deliver(1161, fake::server_packet(0x1234, 2, 7, fake::bytes_of("anything")));
  rcm_logsender_func(&context);
  EXPECT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(context.retransmit_count, 0);
}

TEST_F(LogSender, WhatIsNoAnswerIsDroppedAndTheWaitBeginsAfresh) {
  put_line();
  Bytes broken = fake::server_packet(2, 1, 7, fake::bytes_of("x"));
  broken[36] ^= 1;
  world().deliver(1161, broken, 4000);
  world().deliver(1161, fake::server_packet(2, 1, 8), 8000);
  world().deliver(1161, Bytes(35, 0), 12'000);
  world().deliver(1161, fake::server_packet(2, 1, 7), 16'000);
  rcm_logsender_func(&context);
  EXPECT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().now_ms, 16'000);
  EXPECT_EQ(seen(), (Texts{kSay, kSend, "diag crc is error\n"} + kRearmed));
  EXPECT_EQ(context.retransmit_count, 0);
}

TEST_F(LogSender, AFailedSendEndsTheBatchWithoutAWord) {
  put_line();
  world().send_fails = [](const fake::Datagram&) { return true; };
  rcm_logsender_func(&context);
  EXPECT_EQ(seen(), (Texts{kSay, kSend} + kRearmed));
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 3);
  EXPECT_EQ(world().now_ms, 0);
}

TEST_F(LogSender, AWaitErrorEndsTheBatchWithoutAWord) {
  put_line();
  world().waitfor_result = [](int, int) { return -1; };
  rcm_logsender_func(&context);
  EXPECT_EQ(seen(), (Texts{kSay, kSend} + kRearmed));
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 3);
}

TEST_F(LogSender, TheIntervalIsReadAfreshAndHasNoDefault) {
  context.online = 0;
  const std::vector<std::pair<std::string, std::string>> intervals = {
      {"300", "300"}, {"0", "0"}, {"", "0"}, {"x", "0"}, {"-5", "-5"}, {"60 s", "60"}};
  for (const auto& [value, interval] : intervals) {
    world().nvram["rcm_log_interval"] = value;
    rcm_logsender_func(&context);
    EXPECT_EQ(world().events.back(), "arm rcm_logsender " + interval);
  }
  world().nvram.erase("rcm_log_interval");
  rcm_logsender_func(&context);
  EXPECT_EQ(world().events.back(), "arm rcm_logsender 0");
}

TEST_F(LogSender, TheIntervalIsTheOneBehindTheExchange) {
  put_line();
  world().on_send = [](const fake::Datagram&) {
    world().nvram["rcm_log_interval"] = "45";
    world().deliver(1161, fake::server_packet(2, 1, 7));
  };
  rcm_logsender_func(&context);
  EXPECT_EQ(world().events.back(), "arm rcm_logsender 45");
}

TEST_F(LogSender, ARunningTimerIsCancelledBeforeItIsArmedAgain) {
  context.online = 0;
  rcm_logsender_func(&context);
  world().events.clear();
  rcm_logsender_func(&context);
  EXPECT_EQ(seen(), (Texts{"disarm rcm_logsender", "arm rcm_logsender 300"}));
}

TEST_F(LogSender, AFullPacketIsAsLongAsTheBufferAndNoLonger) {
  // Seven lines of 1025 characters leave 981 of the 8156: 22 for the date and the newline, and 959.
  answer_everything();
  for (const std::size_t last : {959U, 960U}) {
    world().sent.clear();
    use_ring(65536);
    for (int i = 0; i < 7; i++) {
      ring->put("0 0 d 00:00:01 h s " + std::string(1003, 'x') + "\n");
    }
    ring->put("0 0 d 00:00:01 h s " + std::string(last, 'x') + "\n");
    rcm_logsender_func(&context);
    ASSERT_EQ(world().sent.size(), 1U);
    EXPECT_EQ(world().sent[0].bytes.size(), last == 959 ? 8192U : 36U + 7 * 1025);
    EXPECT_EQ(fake::length_of(world().sent[0].bytes), world().sent[0].bytes.size() - 36);
  }
}

TEST_F(LogSender, AMissingRingEndsTheDaemon) {
  world().ring_missing = true;
  EXPECT_THROW(rcm_logsender_func(&context), fake::Exited);
}

} // namespace
