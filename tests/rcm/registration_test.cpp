#include "rcm/registration.h"

#include "core/say.h"
#include "core/timers.h"
#include "rcm/packet.h"
#include "tests/fake_platform/context.h"

#include <arpa/inet.h>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

using namespace rcmd;
using fake::Bytes;
using fake::bytes_of;
using fake::server_packet;
using fake::to_hex;
using fake::type_of;
using fake::world;

namespace {

class Registration : public fake::ContextFixture {
protected:
  Registration() {
    setenv("TZ", "UTC0", 1);
    tzset();
    answer_all();
  }

  // A whole server; `drops` decides about each packet whether it is left without an answer.
  void answer_all(std::function<bool(const fake::Datagram&)> drops = nullptr) {
    world().on_send = [this, drops](const fake::Datagram& sent) {
      if (drops && drops(sent)) {
        return;
      }
      const std::uint16_t type = type_of(sent.bytes);
      Bytes payload;
      if (type == kServerTime) {
        payload = bytes_of(server_time);
      } else if (type == kKeepaliveParam) {
        payload = bytes_of(parameters);
      }
      world().deliver(1161, server_packet(type, 1, fake::seq_of(sent.bytes), payload), 10);
    };
  }

  [[nodiscard]] std::vector<int> types_sent() const {
    std::vector<int> types;
    for (const fake::Datagram& datagram : world().sent) {
      const int type = type_of(datagram.bytes);
      if (types.empty() || types.back() != type) {
        types.push_back(type);
      }
    }
    return types;
  }

  std::string server_time = "20010909014607";
  std::string parameters = "keepalive_interval=30;keepalive_maxretries=3";
};

TEST_F(Registration, TheRegisterPacketCarriesIdentityUptimeAndWanAddress) {
  world().nvram["wan0_ipaddr"] = "10.11.12.13";
  world().uptime_base = 0x01020304;
  context.seq = 0x0A0B0C0D;
  std::memcpy(context.firmware_version, "1.2", 3);
  std::memset(context.product_model, 'M', 64);
  std::memset(context.tx_buf, 0xEE, 300);
  do_rcm_register(&context);
  const Bytes packet = world().sent[0].bytes;
  ASSERT_EQ(packet.size(), 236U);
  EXPECT_EQ(to_hex(packet).substr(0, 64), "0000000000000000"
                                          "00010002"
                                          "534e30313233343536373839"
                                          "0a0b0c0d"
                                          "0001"
                                          "0000");
  EXPECT_EQ(fake::length_of(packet), 200);
  EXPECT_EQ(to_hex(Bytes(packet.begin() + 36, packet.begin() + 52)), "01020304"
                                                                     "0a0b0c0d"
                                                                     "6578616d706c6500");
  EXPECT_EQ(Bytes(packet.begin() + 51, packet.begin() + 108), Bytes(57, 0));
  EXPECT_EQ(to_hex(Bytes(packet.begin() + 108, packet.begin() + 113)), "312e320000");
  EXPECT_EQ(Bytes(packet.begin() + 172, packet.end()), Bytes(64, 'M'));
  Bytes mended = packet;
  fake::mend_checksum(mended);
  EXPECT_EQ(packet, mended);
}

TEST_F(Registration, AnUnsetWanAddressGoesOutAsInetAddrReadsIt) {
  do_rcm_register(&context);
  EXPECT_EQ(to_hex(Bytes(world().sent[0].bytes.begin() + 40, world().sent[0].bytes.begin() + 44)),
            "ffffffff");
}

TEST_F(Registration, TheChainRunsInOrderUnderOneSeq) {
  context.seq = 5;
  do_rcm_register(&context);
  EXPECT_EQ(types_sent(), (std::vector<int>{1, 11, 14, 3, 4}));
  for (const fake::Datagram& datagram : world().sent) {
    EXPECT_EQ(fake::seq_of(datagram.bytes), 5U);
    EXPECT_EQ(ntohs(datagram.peer.sin_port), 1162);
  }
  EXPECT_EQ(context.seq, 5U);
}

TEST_F(Registration, ThePacketsAfterTheFirstKeepItsVersionAndCarryTheServersSession) {
  do_rcm_register(&context);
  for (std::size_t i = 1; i < world().sent.size(); i++) {
    EXPECT_EQ(to_hex(world().sent[i].bytes).substr(0, 24), "53455353494f4e31"
                                                           "00010002");
  }
}

TEST_F(Registration, ItTellsTheStoryOnStandardErrorWhenDebugging) {
  do_rcm_register(&context);
  EXPECT_EQ(world().diagnostics(), "\nBegin to connect to RCM server ... OK"
                                   "\nrequest server time .."
                                   "Sun Sep  9 01:46:07 2001\n"
                                   "\nrequest keepalive .."
                                   "interval = 30, maxretries = 3"
                                   "\nBegin to send config to RCM server ... OK"
                                   "\nBegin to send status to RCM server ... "
                                   "OK\n");
}

TEST_F(Registration, TheServersTimeIsToldAsTheLocalTimeThatItIs) {
  setenv("TZ", "XYZ-2", 1);
  tzset();
  do_rcm_register(&context);
  EXPECT_EQ(context.server_time, 999'992'767);
  EXPECT_EQ(world().events_of({"diag Sun"}),
            std::vector<std::string>{"diag Sun Sep  9 01:46:07 2001\n"});
}

TEST_F(Registration, TheAnswerBringsTheDeviceOnlineAndClearsTheCounts) {
  context.online = 0;
  context.retransmit_count = 4;
  context.miss_count = 12;
  do_rcm_register(&context);
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_EQ(context.miss_count, 0);
}

TEST_F(Registration, FiveTimersAreArmedInOrderEachAfterACancel) {
  world().nvram["rcm_log_interval"] = "300";
  do_rcm_register(&context);
  EXPECT_EQ(world().events_of({"arm", "cancel", "disarm"}),
            (std::vector<std::string>{"cancel rcm_keepalive", "arm rcm_keepalive 30",
                                      "cancel rcm_logsender", "arm rcm_logsender 300",
                                      "cancel rcm_gpssender", "arm rcm_gpssender 60",
                                      "cancel rcm_trafficget", "arm rcm_trafficget 7",
                                      "cancel rcm_trafficsender", "arm rcm_trafficsender 3600"}));
}

TEST_F(Registration, AnUnsetLogIntervalArmsTheLogSenderWithZero) {
  do_rcm_register(&context);
  EXPECT_EQ(rcm_logsender.interval, 0);
  EXPECT_TRUE(world().armed(&rcm_logsender));
}

TEST_F(Registration, AServerTimeOnTheMinuteArmsTheTrafficSamplerWithZero) {
  server_time = "20010909014600";
  do_rcm_register(&context);
  EXPECT_EQ(rcm_trafficget.interval, 0);
}

TEST_F(Registration, WithAServerTimeOfABillionTheFirstSampleComes40SecondsLater) {
  server_time = "20010909014640";
  do_rcm_register(&context);
  EXPECT_EQ(context.server_time, 1'000'000'000);
  EXPECT_EQ(rcm_trafficget.interval, 40);
}

TEST_F(Registration, ATimeBefore1970ArmsTheTrafficSamplerWithANegativeRemainder) {
  server_time = "19691231235953";
  do_rcm_register(&context);
  EXPECT_EQ(rcm_trafficget.interval, -7);
}

TEST_F(Registration, AnUnansweredRegisterIsSentAgainAtOnceUnchanged) {
  int silent = 30;
  answer_all([&](const fake::Datagram&) { return silent-- > 0; });
  do_rcm_register(&context);
  for (std::size_t i = 0; i < 31; i++) {
    EXPECT_EQ(world().sent[i].at_ms, static_cast<std::int64_t>(i) * 5000);
    EXPECT_EQ(world().sent[i].bytes, world().sent[0].bytes);
  }
  EXPECT_TRUE(world().events_of({"sleep"}).empty());
  EXPECT_EQ(world().events_of({"diag"})[0], "diag \nBegin to connect to RCM server ... ");
  EXPECT_EQ(world().events_of({"diag"})[1], "diag timeout .... \n");
}

TEST_F(Registration, AFailedSendPausesFiveSecondsAndRebuilds) {
  int failures = 2;
  world().send_fails = [&](const fake::Datagram&) { return failures-- > 0; };
  do_rcm_register(&context);
  EXPECT_EQ(world().events_of({"sleep"}), (std::vector<std::string>{"sleep 5", "sleep 5"}));
  EXPECT_EQ(fake::u32_at(world().sent[0].bytes, 36), 110U); // the uptime of the third build
  EXPECT_EQ(world().diagnostics().find("timeout"), std::string::npos);
}

TEST_F(Registration, AWaitErrorIsReportedLikeATimeoutButPauses) {
  int errors = 1;
  world().waitfor_result = [&](int, int) { return errors-- > 0 ? -1 : INT_MIN; };
  world().deliver(1161, Bytes(1, 0));
  do_rcm_register(&context);
  EXPECT_EQ(world().events_of({"sleep"}), std::vector<std::string>{"sleep 5"});
  EXPECT_EQ(world().events_of({"diag"})[1], "diag timeout .... \n");
}

TEST_F(Registration, AServerThatNeverTellsTheTimeIsAskedFourTimesThenRegisteredWithAgain) {
  int dropped = 0;
  answer_all([&](const fake::Datagram& sent) {
    return type_of(sent.bytes) == kServerTime && dropped++ < 4;
  });
  do_rcm_register(&context);
  std::vector<int> first;
  for (std::size_t i = 0; i < 6; i++) {
    first.push_back(type_of(world().sent[i].bytes));
  }
  EXPECT_EQ(first, (std::vector<int>{1, 11, 11, 11, 11, 1}));
  EXPECT_EQ(world().sent[5].at_ms - world().sent[1].at_ms, 25000);
  EXPECT_EQ(world().events_of({"diag"})[3], "diag timeout .... \n");
}

TEST_F(Registration, AnyFailingStepStartsTheChainAfreshAfterFiveSeconds) {
  for (const std::uint16_t type : {kKeepaliveParam, kConf, kStatus}) {
    world().sent.clear();
    world().events.clear();
    int dropped = 0;
    answer_all([&, type](const fake::Datagram& sent) {
      return type_of(sent.bytes) == type && dropped++ < 4;
    });
    do_rcm_register(&context);
    EXPECT_EQ(world().events_of({"sleep"}), std::vector<std::string>{"sleep 5"}) << type;
    const auto said = world().events_of({"diag timeout"});
    EXPECT_EQ(said, std::vector<std::string>{"diag timeout .... \n"}) << type;
    const auto registers = std::count_if(world().sent.begin(), world().sent.end(), [](auto& sent) {
      return type_of(sent.bytes) == kRegister;
    });
    EXPECT_EQ(registers, 2) << type;
  }
}

TEST_F(Registration, ARebuiltRegisterCarriesTheNewWanAddress) {
  int failures = 1;
  world().send_fails = [&](const fake::Datagram&) { return failures-- > 0; };
  world().after(1000, [] { world().nvram["wan0_ipaddr"] = "1.2.3.4"; });
  do_rcm_register(&context);
  EXPECT_EQ(fake::u32_at(world().sent[0].bytes, 40), 0x01020304U);
}

TEST_F(Registration, AnAnswerOfAnyTypeWithTheRightSeqIsAccepted) {
  world().on_send = [](const fake::Datagram& sent) {
    world().deliver(1161, server_packet(0x4242, 0xFF, fake::seq_of(sent.bytes)), 10);
  };
  do_rcm_register(&context);
  EXPECT_EQ(types_sent(), (std::vector<int>{1, 11, 14, 3, 4}));
}

TEST_F(Registration, TheTimersTakeTheIntervalsThatHoldNow) {
  parameters = "keepalive_interval=77;keepalive_maxretries=3";
  gps_send_interval = 45;
  world().nvram["rcm_log_interval"] = "-5";
  do_rcm_register(&context);
  EXPECT_EQ(rcm_keepalive.interval, 77);
  EXPECT_EQ(rcm_gpssender.interval, 45);
  EXPECT_EQ(rcm_logsender.interval, -5);
}

TEST_F(Registration, ItsResultIsThatOfTheLastArming) {
  world().on_timer = [](const std::string& call, const RcmTimer& timer) {
    return call == "add" && &timer == &rcm_trafficsender ? 42 : -7;
  };
  EXPECT_EQ(do_rcm_register(&context), 42);
}

TEST_F(Registration, TheWholeRegisterIsThePacketThatIsOutstanding) {
  std::uint32_t tx_length = 0;
  auto answer = world().on_send;
  world().on_send = [&](const fake::Datagram& sent) {
    if (type_of(sent.bytes) == kRegister) {
      tx_length = context.tx_length;
    }
    answer(sent);
  };
  do_rcm_register(&context);
  EXPECT_EQ(tx_length, 236U);
}

TEST_F(Registration, TheDeviceStaysOnlineWhileTheTimeAndTheParametersAreAwaited) {
  context.online = 0;
  std::map<int, int> online;
  auto answer = world().on_send;
  world().on_send = [&](const fake::Datagram& sent) {
    online.emplace(type_of(sent.bytes), context.online);
    answer(sent);
  };
  do_rcm_register(&context);
  EXPECT_EQ(online[kRegister], 0);
  EXPECT_EQ(online[kServerTime], 1);
  EXPECT_EQ(online[kKeepaliveParam], 1);
}

TEST_F(Registration, AFailedChainLeavesSeqAsItIs) {
  context.seq = 0xFFFFFFFF;
  int dropped = 0;
  answer_all(
      [&](const fake::Datagram& sent) { return type_of(sent.bytes) == kStatus && dropped++ < 4; });
  do_rcm_register(&context);
  for (const fake::Datagram& datagram : world().sent) {
    EXPECT_EQ(fake::seq_of(datagram.bytes), 0xFFFFFFFFU);
  }
  EXPECT_EQ(context.seq, 0xFFFFFFFFU);
}

TEST_F(Registration, TheSecondRegisterOfAChainCarriesNoSessionEither) {
  int dropped = 0;
  answer_all([&](const fake::Datagram& sent) {
    return type_of(sent.bytes) == kServerTime && dropped++ < 4;
  });
  do_rcm_register(&context);
  EXPECT_EQ(to_hex(world().sent[5].bytes).substr(0, 24), "0000000000000000"
                                                         "00010002");
}

TEST_F(Registration, ServerTimeThatCannotBeSentFailsAtOnce) {
  int failures = 1;
  world().send_fails = [&](const fake::Datagram& sent) {
    return type_of(sent.bytes) == kServerTime && failures-- > 0;
  };
  do_rcm_register(&context);
  EXPECT_EQ(world().sent[1].at_ms - world().sent[0].at_ms, 10 + 5000);
  EXPECT_EQ(world().events_of({"diag timeout", "sleep"}),
            (std::vector<std::string>{"diag timeout .... \n", "sleep 5"}));
}

TEST_F(Registration, WithoutDebugNothingIsSaid) {
  debug = 0;
  do_rcm_register(&context);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(Registration, NoTimerIsTouchedBeforeTheChainHasSucceeded) {
  int dropped = 0;
  answer_all(
      [&](const fake::Datagram& sent) { return type_of(sent.bytes) == kConf && dropped++ < 4; });
  do_rcm_register(&context);
  const auto order = world().events_of({"sleep", "arm", "cancel", "diag OK\n"});
  ASSERT_GE(order.size(), 3U);
  EXPECT_EQ(order[0], "sleep 5");
  EXPECT_EQ(order[1], "diag OK\n");
  EXPECT_EQ(order[2], "cancel rcm_keepalive");
}

} // namespace
