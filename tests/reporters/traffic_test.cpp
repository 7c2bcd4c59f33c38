#include "reporters/traffic.h"

#include "core/say.h"
#include "core/timers.h"
#include "tests/fake_platform/context.h"

#include <cstring>

using namespace rcmd;
using fake::to_hex;
using fake::world;
using Texts = std::vector<std::string>;

namespace {

class Traffic : public fake::ContextFixture {
protected:
  Traffic() {
    empty_the_table();
    context.server_time = 1'000'000'000;
    context.server_time_uptime = 100; // the uptime that the world begins with
    context.seq = 9;
    context.retransmit_count = 3;
    context.miss_count = 2;
    setenv("TZ", "EST5", 1); // times are UTC, wherever the device lives
    tzset();
  }

  // A report begins the next hour, sent or not.
  void empty_the_table() {
    world().send_fails = [](const fake::Datagram&) { return true; };
    rcm_trafficsender_func(&context);
    world().send_fails = nullptr;
    world().due.clear();
    world().events.clear();
    context.online = 1;
    std::memset(context.tx_buf, 0, 8192);
    context.tx_length = 0;
  }
  void sample(const std::string& tx, const std::string& rx) {
    world().nvram["wwan_tx_bytes"] = tx;
    world().nvram["wwan_rx_bytes"] = rx;
    rcm_trafficget_func(&context);
  }
  static std::string text() {
    char place[4096];
    return {place, get_traffic_info(place, sizeof place)};
  }
  static Texts seen() { return world().events_of({"diag", "send", "arm", "disarm", "cancel"}); }
};

// Sampling ---------------------------------------------------------------------------------------

TEST_F(Traffic, TheTextRecordOfAMinute) {
  context.server_time = 1'002'592'000; // 2001-10-09 01:46:40
  context.last_wwan_tx_bytes = 5;
  context.last_wwan_rx_bytes = 7;
  world().advance_to(80'000);
  sample("10245", "88217");
  EXPECT_EQ(text(), "20011009014800,10240,88210\r\n");
}

TEST_F(Traffic, TheTextRecordAtTenToFour) {
  context.server_time = 1'002'599'280; // 2001-10-09 03:48:00
  sample("10240", "88210");
  EXPECT_EQ(text(), "20011009034800,10240,88210\r\n");
}

TEST_F(Traffic, TheFirstSampleCarriesTheWholeCounters) {
  world().nvram["wwan_tx_packets"] = "3";
  world().nvram["wwan_rx_packets"] = "4";
  sample("1", "2");
  EXPECT_EQ(text(), "20010909014640,1,2\r\n");
  EXPECT_EQ(traffic_log().hour_tx_packets, 3U);
  EXPECT_EQ(traffic_log().hour_rx_packets, 4U);
  EXPECT_EQ(context.last_wwan_tx_bytes, 1U);
  EXPECT_EQ(context.last_wwan_rx_bytes, 2U);
  EXPECT_EQ(context.last_wwan_tx_packets, 3U);
  EXPECT_EQ(context.last_wwan_rx_packets, 4U);
}

TEST_F(Traffic, TheCountersAreReadInOrderAndBehindTheClock) {
  Texts keys;
  world().on_nvram_get = [&](const std::string& key) {
    keys.push_back(key);
    world().advance_to(world().now_ms + 5000);
  };
  rcm_trafficget_func(&context);
  EXPECT_EQ(keys, (Texts{"wwan_tx_bytes", "wwan_rx_bytes", "wwan_tx_packets", "wwan_rx_packets"}));
  EXPECT_EQ(text(), "20010909014640,0,0\r\n");
}

TEST_F(Traffic, UnsetCountersAreZero) {
  rcm_trafficget_func(&context);
  EXPECT_EQ(text(), "20010909014640,0,0\r\n");
}

TEST_F(Traffic, TheDifferencesOfAMinuteAndTheirSums) {
  world().nvram["wwan_tx_packets"] = "10";
  world().nvram["wwan_rx_packets"] = "20";
  sample("100", "200");
  world().nvram["wwan_tx_packets"] = "11";
  world().nvram["wwan_rx_packets"] = "23";
  world().advance_to(60'000);
  sample("150", "1200");
  EXPECT_EQ(text(), "20010909014640,100,200\r\n20010909014740,50,1000\r\n");
  EXPECT_EQ(traffic_log().sample_count, 2);
  EXPECT_EQ(traffic_log().hour_tx_bytes, 150U);
  EXPECT_EQ(traffic_log().hour_rx_bytes, 1200U);
  EXPECT_EQ(traffic_log().hour_tx_packets, 11U);
  EXPECT_EQ(traffic_log().hour_rx_packets, 23U);
  EXPECT_EQ(traffic_log().difference[1].tx_packets, 1U);
  EXPECT_EQ(traffic_log().difference[1].rx_packets, 3U);
}

TEST_F(Traffic, FallingCountersGiveNegativeDifferencesAndWrappedTotals) {
  sample("1000", "5000");
  sample("400", "0");
  EXPECT_EQ(text(), "20010909014640,1000,5000\r\n20010909014640,-600,-5000\r\n");
  EXPECT_EQ(traffic_log().hour_tx_bytes, 400U);
  EXPECT_EQ(traffic_log().hour_rx_bytes, 0U);
  empty_the_table();
  sample("100", "0");
  EXPECT_EQ(traffic_log().hour_tx_bytes, 4294966996U); // -300
}

TEST_F(Traffic, CountersAreUnsignedAndThirtyTwoBitsWide) {
  sample("4294967295", "99999999999");
  EXPECT_EQ(text(), "20010909014640,-1,-1\r\n");
  sample("5", "4294967295");
  EXPECT_EQ(traffic_log().difference[1].tx_bytes, 6U);
  EXPECT_EQ(traffic_log().difference[1].rx_bytes, 0U);
}

// DELIBERATE: what a full table meets is dropped.
TEST_F(Traffic, The61stMinuteIsMissingFromTheSlotsAndTheTotals) {
  for (int minute = 1; minute <= 61; minute++) {
    sample(std::to_string(minute * 10), std::to_string(minute * 100));
  }
  EXPECT_EQ(traffic_log().sample_count, 60);
  EXPECT_EQ(traffic_log().hour_tx_bytes, 600U);
  EXPECT_EQ(traffic_log().hour_rx_bytes, 6000U);
  const std::string records = text();
  EXPECT_EQ(std::count(records.begin(), records.end(), '\n'), 60);
  EXPECT_EQ(context.last_wwan_tx_bytes, 610U) << "the baselines go on";
  EXPECT_EQ(context.last_wwan_rx_bytes, 6100U);
  empty_the_table();
  sample("620", "6200");
  EXPECT_EQ(text(), "20010909014640,10,100\r\n");
}

TEST_F(Traffic, TheSamplerRunsEveryMinuteWhateverOnlineSays) {
  for (const int online : {0, 1}) {
    world().events.clear();
    context.online = online;
    rcm_trafficget_func(&context);
    EXPECT_EQ(world().events.back(), "arm rcm_trafficget 60");
    EXPECT_EQ(context.online, online);
  }
  EXPECT_EQ(seen(), (Texts{"disarm rcm_trafficget", "arm rcm_trafficget 60"}));
  EXPECT_EQ(traffic_log().sample_count, 2);
}

TEST_F(Traffic, TheClockWrapsLikeAThirtyTwoBitNumber) {
  context.server_time = 2'147'483'647;
  world().advance_to(1000);
  sample("1", "1");
  EXPECT_EQ(text(), "19011213204552,1,1\r\n");
}

TEST_F(Traffic, WithServerTime1000000000TheFirstSampleComes40SecondsLater) {
  rcm_trafficget.callback = rcm_trafficget_func;
  rearm(rcm_trafficget, context.server_time % 60); // as registration arms it
  world().run_for(39);
  EXPECT_EQ(traffic_log().sample_count, 0);
  world().run_for(1);
  EXPECT_EQ(traffic_log().sample_count, 1);
  EXPECT_EQ(text(), "20010909014720,0,0\r\n");
  world().run_for(60);
  EXPECT_EQ(traffic_log().sample_count, 2);
}

TEST_F(Traffic, NoSlotNoText) {
  EXPECT_EQ(text(), "");
}

TEST_F(Traffic, ATextThatDoesNotFitIsCutBetweenRecords) {
  sample("1", "1");
  sample("100", "100");
  sample("101", "101");
  char place[50] = {};
  EXPECT_EQ(get_traffic_info(place, 42), 20U) << "no record overtakes another";
  EXPECT_EQ(std::string(place), "20010909014640,1,1\r\n");
}

// Sending ----------------------------------------------------------------------------------------

TEST_F(Traffic, ThePacketHoldsTheTotalsAndTheText) {
  std::memcpy(context.tx_buf + 8, "\xA1\xA2\xA3\xA4", 4);
  context.server_time = 1'002'599'280;
  sample("10240", "88210");
  answer_everything();
  rcm_trafficsender_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "4142434445464748"
                                           "a1a2a3a4"
                                           "534e30313233343536373839"
                                           "00000009"
                                           "0040"
                                           "0000"
                                           "6524"
                                           "0024"
                                           "00002800"
                                           "00015892"
                                           "3230303131303039303334383030"
                                           "2c31303234302c38383231300d0a");
  EXPECT_EQ(context.tx_length, 72U);
}

TEST_F(Traffic, TheTextIsToldWithoutWhatAnOlderPacketLeftBehindIt) {
  std::memset(context.tx_buf, '#', 8192);
  sample("1", "2");
  answer_everything();
  rcm_trafficsender_func(&context);
  EXPECT_THAT(world().diagnostics(), ::testing::HasSubstr("20010909014640,1,2\r\n"));
  EXPECT_THAT(world().diagnostics(), ::testing::Not(::testing::HasSubstr("#")));
}

// DELIBERATE: `online` is not asked.
TEST_F(Traffic, TheHourIsSentInEveryState) {
  answer_everything();
  for (const int online : {0, 1, 2}) {
    world().sent.clear();
    context.online = online;
    rcm_trafficsender_func(&context);
    EXPECT_EQ(world().sent.size(), 1U) << online;
    EXPECT_EQ(context.online, 1);
  }
}

TEST_F(Traffic, AnAcknowledgedHourInOrder) {
  context.online = 0;
  sample("1", "2");
  world().events.clear();
  answer_everything();
  rcm_trafficsender_func(&context);
  EXPECT_EQ(seen(), (Texts{"diag Send traffic packet(seq=9) to server...\n",
                           "diag hour_tx_bytes=1\n", "diag hour_rx_bytes=2\n",
                           "diag 20010909014640,1,2\r\n", "send 64 to 127.0.0.1:1162",
                           "cancel rcm_trafficsender", "arm rcm_trafficsender 3600"}));
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_EQ(context.miss_count, 2);
  EXPECT_EQ(context.seq, 9U);
  EXPECT_EQ(std::memcmp(context.session_id, "ABCDEFGH", 8), 0);
  EXPECT_EQ(traffic_log().sample_count, 0);
}

TEST_F(Traffic, AnHourWithoutSamplesIsEightBytesOfZero) {
  answer_everything();
  rcm_trafficsender_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(fake::Bytes(world().sent[0].bytes.begin() + 34, world().sent[0].bytes.end())),
            "00080000000000000000");
  EXPECT_EQ(context.tx_length, 44U);
}

// DELIBERATE: the hour is gone.
TEST_F(Traffic, ASilentServerLosesTheHourAndTheDeviceIsOffline) {
  world().nvram["wwan_tx_packets"] = "3";
  world().nvram["wwan_rx_packets"] = "4";
  sample("1", "2");
  world().events.clear();
  rcm_trafficsender_func(&context);
  const std::string words = "diag 20010909014640,1,2\r\n";
  const std::string send = "send 64 to 127.0.0.1:1162";
  EXPECT_EQ(world().events_of({"diag 2", "send"}),
            (Texts{words, send, words, send, words, send, words, send}));
  ASSERT_EQ(world().sent.size(), 4U);
  for (std::size_t i = 0; i < 4; i++) {
    EXPECT_EQ(world().sent[i].at_ms, static_cast<std::int64_t>(i) * 5000);
    EXPECT_EQ(world().sent[i].bytes, world().sent[0].bytes);
  }
  EXPECT_EQ(context.online, 0);
  EXPECT_EQ(context.retransmit_count, 3);
  EXPECT_EQ(world().events.back(), "arm rcm_trafficsender 3600");
  EXPECT_EQ(text(), "");
  EXPECT_EQ(traffic_log().hour_tx_bytes, 0U);
  EXPECT_EQ(traffic_log().hour_rx_bytes, 0U);
  EXPECT_EQ(traffic_log().hour_tx_packets, 0U);
  EXPECT_EQ(traffic_log().hour_rx_packets, 0U);
}

TEST_F(Traffic, TheTableIsEmptyBeforeThePacketLeaves) {
  sample("1", "2");
  bool seen_empty = false;
  world().on_send = [&](const fake::Datagram&) {
    seen_empty = traffic_log().sample_count == 0 && traffic_log().hour_tx_bytes == 0;
    world().deliver(1161, fake::server_packet(64, 1, 9));
  };
  rcm_trafficsender_func(&context);
  EXPECT_TRUE(seen_empty);
}

TEST_F(Traffic, AFailedSendGoesOffline) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  rcm_trafficsender_func(&context);
  EXPECT_EQ(context.online, 0);
  EXPECT_EQ(context.retransmit_count, 3);
  EXPECT_EQ(world().now_ms, 0);
  EXPECT_EQ(world().events.back(), "arm rcm_trafficsender 3600");
}

TEST_F(Traffic, AWaitErrorGoesOffline) {
  world().waitfor_result = [](int, int) { return -1; };
  rcm_trafficsender_func(&context);
  EXPECT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(context.online, 0);
  EXPECT_EQ(world().events.back(), "arm rcm_trafficsender 3600");
}

TEST_F(Traffic, TheAnswerIsKnownByItsSequenceNumberAlone) {
  fake::Bytes broken = fake::server_packet(64, 1, 9, fake::bytes_of("x"));
  broken[36] ^= 1;
  world().deliver(1161, broken, 1000);
  world().deliver(1161, fake::server_packet(64, 1, 10), 2000);
  world().deliver(1161, fake::server_packet(3, 0, 9), 6500);
  rcm_trafficsender_func(&context);
  EXPECT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().now_ms, 6500);
  EXPECT_EQ(world().events_of({"diag crc"}), Texts{"diag crc is error\n"});
  EXPECT_EQ(context.online, 1);
}

TEST_F(Traffic, TotalsArePrintedAsSignedNumbers) {
  sample("4294967295", "2147483648");
  answer_everything();
  rcm_trafficsender_func(&context);
  EXPECT_EQ(world().events_of({"diag hour"}),
            (Texts{"diag hour_tx_bytes=-1\n", "diag hour_rx_bytes=-2147483648\n"}));
  EXPECT_EQ(to_hex(world().sent[0].bytes.data() + 36, 8), "ffffffff80000000");
}

TEST_F(Traffic, AFullHourOfTheLongestRecordsFitsThePacket) {
  for (int minute = 0; minute < 60; minute++) {
    sample(minute % 2 == 0 ? "2147483648" : "0", minute % 2 == 0 ? "2147483648" : "0");
  }
  answer_everything();
  rcm_trafficsender_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().sent[0].bytes.size(), 44U + 60 * 40);
}

} // namespace
