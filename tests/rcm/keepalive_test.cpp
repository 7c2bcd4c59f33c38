#include "rcm/keepalive.h"

#include "core/timers.h"
#include "rcm/client.h"
#include "rcm/packet.h"
#include "tests/fake_platform/context.h"

#include <cstring>

using namespace rcmd;
using fake::Bytes;
using fake::server_packet;
using fake::to_hex;
using fake::type_of;
using fake::world;

namespace {

class Keepalive : public fake::ContextFixture {
protected:
  Keepalive() {
    rcm_keepalive.callback = rcm_keepalive_func;
    rcm_retransmit.callback = rcm_retransmit_func;
    context.keepalive_interval = 120;
    context.keepalive_maxretries = 10;
    register_fd_desc(context.sock, rcm_receive_func, &context);
    world().events.clear();
  }

  // Silent to keepalives and log packets; anything else is answered.
  void answer_registrations() {
    world().on_send = [](const fake::Datagram& sent) {
      if (type_of(sent.bytes) != kKeepalive && type_of(sent.bytes) != kLog) {
        world().deliver(1161, server_packet(type_of(sent.bytes), 1, fake::seq_of(sent.bytes)), 10);
      }
    };
  }

  [[nodiscard]] std::int64_t count_sent(std::uint16_t type) const {
    return std::count_if(world().sent.begin(), world().sent.end(),
                         [type](const auto& sent) { return type_of(sent.bytes) == type; });
  }

  [[nodiscard]] const fake::Datagram* first_sent(std::uint16_t type) const {
    for (const fake::Datagram& datagram : world().sent) {
      if (type_of(datagram.bytes) == type) {
        return &datagram;
      }
    }
    return nullptr;
  }
};

TEST_F(Keepalive, ThePacketIs36BytesAndLeavesSeqAsItIs) {
  context.seq = 0x11223344;
  std::memcpy(context.tx_buf + 8, "\xAA\xBB\xCC\xDD", 4);
  rcm_keepalive_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "4142434445464748"
                                           "aabbccdd"
                                           "534e30313233343536373839"
                                           "11223344"
                                           "0007"
                                           "0000"
                                           "ffff"
                                           "0000");
  EXPECT_EQ(context.seq, 0x11223344U);
  EXPECT_EQ(context.tx_length, 36U);
  EXPECT_EQ(context.online, 0);
  EXPECT_EQ(context.miss_count, 1);
}

TEST_F(Keepalive, ItIsAnnouncedSentAndReArmed) {
  context.seq = 9;
  rcm_keepalive_func(&context);
  EXPECT_EQ(world().events,
            (std::vector<std::string>{"diag Send keepalive packet(seq=9) to server ... \n",
                                      "send 36 to 127.0.0.1:1162", "cancel rcm_keepalive",
                                      "arm rcm_keepalive 120"}));
}

TEST_F(Keepalive, ItGoesOutWhateverOnlineSaysAndAFailedSendIsIgnored) {
  context.online = 0;
  world().send_fails = [](const fake::Datagram&) { return true; };
  rcm_keepalive_func(&context);
  EXPECT_EQ(context.online, 0);
  EXPECT_TRUE(world().armed(&rcm_keepalive));
  EXPECT_EQ(world().events_of({"send"}).size(), 1U);
}

TEST_F(Keepalive, SilentServerIsDeclaredDeadAtTheTwelfthExpiry) {
  answer_registrations();
  rearm(rcm_keepalive, 120);
  world().run_for(12 * 120 - 1);
  EXPECT_EQ(count_sent(kKeepalive), 11);
  EXPECT_EQ(count_sent(kRegister), 0);
  world().run_for(2);
  ASSERT_NE(first_sent(kRegister), nullptr);
  EXPECT_EQ(first_sent(kRegister)->at_ms, 12 * 120 * 1000);
  EXPECT_EQ(count_sent(kKeepalive), 11);
  EXPECT_EQ(context.miss_count, 0);
}

TEST_F(Keepalive, WithNoRetriesOneIsSentAndTheSecondExpiryRegisters) {
  context.keepalive_maxretries = 0;
  answer_registrations();
  rearm(rcm_keepalive, 120);
  world().run_for(241);
  EXPECT_EQ(count_sent(kKeepalive), 1);
  ASSERT_NE(first_sent(kRegister), nullptr);
  EXPECT_EQ(first_sent(kRegister)->at_ms, 240'000);
}

TEST_F(Keepalive, OneAcknowledgementInBetweenStartsTheCountAfresh) {
  int keepalives = 0;
  world().on_send = [&](const fake::Datagram& sent) {
    if (type_of(sent.bytes) != kKeepalive || ++keepalives == 11) {
      world().deliver(1161, server_packet(type_of(sent.bytes), 1, fake::seq_of(sent.bytes)), 10);
    }
  };
  rearm(rcm_keepalive, 120);
  world().run_for(22 * 120 + 60);
  EXPECT_EQ(count_sent(kRegister), 0);
  EXPECT_EQ(count_sent(kKeepalive), 22);
  world().run_for(120);
  EXPECT_EQ(count_sent(kRegister), 1);
}

TEST_F(Keepalive, ADeadPeerCancelsFiveTimersInOrderBeforeRegistering) {
  answer_registrations();
  context.miss_count = 11;
  for (RcmTimer* timer :
       {&rcm_keepalive, &rcm_logsender, &rcm_gpssender, &rcm_trafficget, &rcm_trafficsender}) {
    rearm(*timer, 1000);
  }
  rearm(rcm_retransmit, 1000);
  world().events.clear();
  rcm_keepalive_func(&context);
  const std::vector<std::string> first(world().events.begin(), world().events.begin() + 7);
  EXPECT_EQ(first, (std::vector<std::string>{"diag peer had been dead.\n", "disarm rcm_keepalive",
                                             "disarm rcm_logsender", "disarm rcm_gpssender",
                                             "disarm rcm_trafficget", "disarm rcm_trafficsender",
                                             "diag \nBegin to connect to RCM server ... "}));
  EXPECT_TRUE(world().armed(&rcm_retransmit));
  EXPECT_TRUE(world().armed(&rcm_keepalive));
}

TEST_F(Keepalive, TheMissesAreComparedAsTheyWereBeforeThisExpiry) {
  context.miss_count = 10;
  rcm_keepalive_func(&context);
  EXPECT_EQ(count_sent(kKeepalive), 1);
  EXPECT_EQ(context.miss_count, 11);
}

TEST_F(Keepalive, ItReArmsWithTheIntervalThatHoldsNow) {
  context.keepalive_interval = 45;
  rcm_keepalive_func(&context);
  EXPECT_EQ(world().due_in_ms(&rcm_keepalive), 45'000);
}

TEST_F(Keepalive, WithRetriesOfMinusOneTheFirstExpiryRegisters) {
  context.keepalive_maxretries = -1;
  answer_registrations();
  rcm_keepalive_func(&context);
  EXPECT_EQ(count_sent(kKeepalive), 0);
  EXPECT_EQ(count_sent(kRegister), 1);
}

TEST_F(Keepalive, ItLeavesTheRetransmissionsAlone) {
  context.retransmit_count = 2;
  rearm(rcm_retransmit, 1000);
  rcm_keepalive_func(&context);
  EXPECT_EQ(context.retransmit_count, 2);
  EXPECT_TRUE(world().armed(&rcm_retransmit));
}

TEST_F(Keepalive, TheLargestSeqIsShownAsMinusOne) {
  context.seq = 0xFFFFFFFF;
  rcm_keepalive_func(&context);
  EXPECT_EQ(world().diagnostics(), "Send keepalive packet(seq=-1) to server ... \n");
}

TEST_F(Keepalive, BehindAnAnsweredRequestItCarriesTheRequestsVersion) {
  receive(server_packet(258, 0, 1));
  acknowledge_request(context);
  rcm_keepalive_func(&context);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(to_hex(world().sent[1].bytes).substr(0, 24), "4142434445464748"
                                                         "a1a2a3a4");
}

class Retransmission : public Keepalive {
protected:
  Retransmission() {
    begin_packet(context, kLog, kReportFlags);
    context.tx_length = 40;
    std::memcpy(context.tx_buf + 36, "body", 4);
  }
};

TEST_F(Retransmission, PausesGrowByFiveSecondsAndTheFifthFiringRegistersWithoutSending) {
  answer_registrations();
  rearm(rcm_retransmit, 5);
  world().run_for(5 + 5 + 10 + 15 + 20);
  std::vector<std::int64_t> times;
  for (const fake::Datagram& datagram : world().sent) {
    if (type_of(datagram.bytes) == kLog) {
      times.push_back(datagram.at_ms);
    }
  }
  EXPECT_EQ(times, (std::vector<std::int64_t>{5000, 10000, 20000, 35000}));
  ASSERT_EQ(count_sent(kRegister), 1);
  EXPECT_EQ(first_sent(kRegister)->at_ms, 55000);
}

TEST_F(Retransmission, ThePacketGoesOutUnchanged) {
  const Bytes before = tx(40);
  rcm_retransmit_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().sent[0].bytes, before);
  EXPECT_EQ(context.retransmit_count, 1);
  EXPECT_EQ(rcm_retransmit.interval, 5);
}

TEST_F(Retransmission, ItLeavesOnlineTheMissesAndSeqAlone) {
  for (const int online : {0, 1}) {
    context.online = online;
    context.miss_count = 4;
    context.seq = 6;
    rcm_retransmit_func(&context);
    EXPECT_EQ(context.online, online);
    EXPECT_EQ(context.miss_count, 4);
    EXPECT_EQ(context.seq, 6U);
    EXPECT_EQ(context.tx_length, 40U);
  }
}

TEST_F(Retransmission, APacketThatCannotBeSentIsTriedAgainAllTheSame) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  rcm_retransmit_func(&context);
  EXPECT_EQ(world().events, (std::vector<std::string>{
                                "diag retransmit LOG packet ... \n", "send 40 to 127.0.0.1:1162",
                                "cancel rcm_retransmit", "arm rcm_retransmit 5"}));
}

TEST_F(Retransmission, EachPacketTypeHasItsMessage) {
  struct Row {
    std::uint16_t type;
    const char* message;
  };
  for (const Row& row :
       {Row{0, "retransmit UNKNOWN packet ... \n"}, Row{1, "retransmit REGISTER packet ... \n"},
        Row{2, "retransmit LOG packet ... \n"}, Row{3, "retransmit CONF packet ... \n"},
        Row{4, "retransmit STATUS packet ... \n"}, Row{5, "retransmit STATUSABLE packet ... \n"},
        Row{6, "retransmit FWDATA packet ... \n"}, Row{7, "retransmit KEEPALIVE packet ... \n"},
        Row{8, "retransmit FWREQ packet ... \n"}, Row{9, "retransmit UNKNOWN packet ... \n"},
        Row{0xFFFF, "retransmit UNKNOWN packet ... \n"}}) {
    world().events.clear();
    world().sent.clear();
    context.retransmit_count = 0;
    tx_header(context).type = row.type;
    rcm_retransmit_func(&context);
    EXPECT_EQ(world().diagnostics(), row.message);
    EXPECT_EQ(world().sent.size(), 1U);
  }
}

TEST_F(Retransmission, AnAcknowledgementCancelsItAndClearsTheCount) {
  rcm_retransmit_func(&context);
  rcm_retransmit_func(&context);
  EXPECT_EQ(context.retransmit_count, 2);
  world().deliver(1161, server_packet(2, 1, 0));
  world().serve_ready();
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_FALSE(world().armed(&rcm_retransmit));
}

TEST_F(Retransmission, GivingUpCancelsThreeTimersAndLeavesTheTrafficTimersRunning) {
  answer_registrations();
  context.retransmit_count = 4;
  for (RcmTimer* timer :
       {&rcm_keepalive, &rcm_logsender, &rcm_gpssender, &rcm_trafficget, &rcm_trafficsender}) {
    rearm(*timer, 1000);
  }
  world().events.clear();
  rcm_retransmit_func(&context);
  const std::vector<std::string> first(world().events.begin(), world().events.begin() + 5);
  EXPECT_EQ(first, (std::vector<std::string>{"diag peer had dead.\n", "disarm rcm_logsender",
                                             "disarm rcm_keepalive", "disarm rcm_gpssender",
                                             "diag \nBegin to connect to RCM server ... "}));
  EXPECT_EQ(count_sent(kLog), 0);
}

TEST_F(Retransmission, NothingButItsOwnCallbackArmsIt) {
  answer_registrations();
  rearm(rcm_keepalive, 120);
  world().run_for(12 * 120 + 60);
  EXPECT_EQ(count_sent(kRegister), 1);
  EXPECT_TRUE(world().events_of({"arm rcm_retransmit"}).empty());
}

} // namespace
