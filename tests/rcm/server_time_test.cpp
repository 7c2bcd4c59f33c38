#include "rcm/server_time.h"

#include "rcm/packet.h"
#include "tests/fake_platform/context.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

using namespace rcmd;
using fake::Bytes;
using fake::bytes_of;
using fake::server_packet;
using fake::to_hex;
using fake::world;

namespace {

class ServerTime : public fake::ContextFixture {
protected:
  ServerTime() {
    setenv("TZ", "UTC0", 1);
    tzset();
    context.seq = 3;
  }

  void answer_with(const std::string& text) {
    world().on_send = [text](const fake::Datagram& sent) {
      world().deliver(
          1161, server_packet(99, 1, fake::seq_of(sent.bytes), bytes_of(text), "SSSSSSSS"), 1000);
    };
  }
};

TEST_F(ServerTime, TheRequestIs36BytesOfType11) {
  answer_with("20010909014640");
  std::memcpy(context.tx_buf + 8, "\1\2\3\4", 4);
  EXPECT_EQ(do_request_servertime(&context), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "4142434445464748"
                                           "01020304"
                                           "534e30313233343536373839"
                                           "00000003"
                                           "000b"
                                           "0000"
                                           "ffff"
                                           "0000");
  EXPECT_EQ(context.tx_length, 36U);
}

TEST_F(ServerTime, TheTimeIsKeptBesideTheUptimeAtWhichItCame) {
  world().uptime_base = 500;
  context.online = 0;
  context.retransmit_count = 2;
  answer_with("20010909014640");
  EXPECT_EQ(do_request_servertime(&context), 0);
  EXPECT_EQ(context.server_time, 1'000'000'000);
  EXPECT_EQ(context.server_time_uptime, 501);
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_EQ(std::memcmp(context.session_id, "SSSSSSSS", 8), 0);
  EXPECT_EQ(context.seq, 3U);
}

TEST_F(ServerTime, ASilentServerIsAskedFourTimesAndLeavesTheDeviceOffline) {
  EXPECT_EQ(do_request_servertime(&context), -1);
  EXPECT_EQ(world().sent.size(), 4U);
  EXPECT_EQ(world().now_ms, 20000);
  EXPECT_EQ(context.online, 0);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(ServerTime, TheTextIsLocalTime) {
  setenv("TZ", "XYZ-2", 1);
  tzset();
  EXPECT_EQ(string2time("20010909034640"), 1'000'000'000);
}

TEST_F(ServerTime, DaylightSavingIsFoundOutNotGuessed) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0", 1);
  tzset();
  EXPECT_EQ(string2time("20010909034640"), 1'000'000'000);
  EXPECT_EQ(string2time("20010109024640"), 979'004'800);
}

TEST_F(ServerTime, ATextThatEndsEarlyLacksTheDigitsBehindItsEnd) {
  EXPECT_EQ(string2time("20010909"), 999'993'600);
  EXPECT_EQ(string2time("200109090146405999"), 1'000'000'000);
}

TEST_F(ServerTime, OnlyThePayloadsOwnBytesAreRead) {
  std::memset(context.rx_buf, '9', kBufferBytes);
  answer_with("2001090901464");
  EXPECT_EQ(do_request_servertime(&context), 0);
  EXPECT_EQ(context.server_time, 999'999'964);
}

TEST_F(ServerTime, AShortTextIsNotContinuedByTheLastLongOne) {
  answer_with("20010909014659" + std::string(100, '9'));
  EXPECT_EQ(do_request_servertime(&context), 0);
  answer_with("2001090901464");
  EXPECT_EQ(do_request_servertime(&context), 0);
  EXPECT_EQ(context.server_time, 999'999'964);
}

TEST_F(ServerTime, ShortParametersAreNotContinuedByTheLastLongOnes) {
  answer_with("keepalive_interval=99;keepalive_maxretries=9");
  EXPECT_EQ(do_request_keeplive(&context), 0);
  context.keepalive_maxretries = 4;
  answer_with("keepalive_interval=3");
  EXPECT_EQ(do_request_keeplive(&context), 0);
  EXPECT_EQ(context.keepalive_interval, 3);
  EXPECT_EQ(context.keepalive_maxretries, 4);
}

TEST_F(ServerTime, NumbersBeyondTheCalendarRunOnIntoTheNextUnit) {
  EXPECT_EQ(string2time("20010909014699"), 1'000'000'059);
  EXPECT_EQ(string2time("20001309014640"), string2time("20010109014640"));
}

TEST_F(ServerTime, AnyTextInPlaceOfATimeIsHarmless) {
  answer_with("no time at all, and much longer than fourteen");
  EXPECT_EQ(do_request_servertime(&context), 0);
}

TEST_F(ServerTime, APayloadThatFillsTheBufferIsRead) {
  answer_with("20010909014640" + std::string(8192 - 36 - 14, 'x'));
  EXPECT_EQ(do_request_servertime(&context), 0);
  EXPECT_EQ(context.server_time, 1'000'000'000);
}

TEST_F(ServerTime, FormattingIsTheReverseAndGoesToTheConsole) {
  char text[16];
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(format_time_string(1'000'000'000, text), 0);
  EXPECT_EQ(std::string(text, 16), "20010909014640xx");
  EXPECT_EQ(world().console(), "tmp = 20010909014640 \n");
}

TEST_F(ServerTime, FormattingIsInUtcWhateverTheLocalTime) {
  setenv("TZ", "XYZ-2", 1);
  tzset();
  char text[14];
  EXPECT_EQ(format_time_string(1'000'000'000, text), 0);
  EXPECT_EQ(std::string(text, 14), "20010909014640");
}

TEST_F(ServerTime, FormattingNeedsNoConsole) {
  world().console_broken = true;
  char text[14];
  EXPECT_EQ(format_time_string(5, text), 0);
  EXPECT_EQ(std::string(text, 14), "19700101000005");
}

TEST_F(ServerTime, TheParametersAreAskedForWithType14) {
  answer_with("keepalive_interval=30;keepalive_maxretries=5");
  EXPECT_EQ(do_request_keeplive(&context), 0);
  EXPECT_EQ(fake::type_of(world().sent[0].bytes), 14);
  EXPECT_EQ(fake::flags_of(world().sent[0].bytes), 0);
  EXPECT_EQ(world().sent[0].bytes.size(), 36U);
  EXPECT_EQ(context.tx_length, 36U);
  EXPECT_EQ(context.keepalive_interval, 30);
  EXPECT_EQ(context.keepalive_maxretries, 5);
  EXPECT_EQ(std::memcmp(context.session_id, "SSSSSSSS", 8), 0);
}

TEST_F(ServerTime, NegativeParametersGiveWayToTheDefaultsAndZeroStays) {
  answer_with("keepalive_interval=-1 keepalive_maxretries=-7");
  EXPECT_EQ(do_request_keeplive(&context), 0);
  EXPECT_EQ(context.keepalive_interval, 120);
  EXPECT_EQ(context.keepalive_maxretries, 10);
  answer_with("keepalive_interval=0 keepalive_maxretries=0");
  EXPECT_EQ(do_request_keeplive(&context), 0);
  EXPECT_EQ(context.keepalive_interval, 0);
  EXPECT_EQ(context.keepalive_maxretries, 0);
}

TEST_F(ServerTime, ANegativeParameterGivesWayAlone) {
  answer_with("keepalive_interval=-1 keepalive_maxretries=5");
  EXPECT_EQ(do_request_keeplive(&context), 0);
  EXPECT_EQ(context.keepalive_interval, 120);
  EXPECT_EQ(context.keepalive_maxretries, 5);
  answer_with("keepalive_interval=30 keepalive_maxretries=-1");
  EXPECT_EQ(do_request_keeplive(&context), 0);
  EXPECT_EQ(context.keepalive_interval, 30);
  EXPECT_EQ(context.keepalive_maxretries, 10);
}

TEST_F(ServerTime, AMissingParameterKeepsItsValue) {
  context.keepalive_interval = 77;
  context.keepalive_maxretries = 8;
  answer_with("keepalive_maxretries=4");
  EXPECT_EQ(do_request_keeplive(&context), 0);
  EXPECT_EQ(context.keepalive_interval, 77);
  EXPECT_EQ(context.keepalive_maxretries, 4);
}

TEST_F(ServerTime, UnansweredParametersLeaveTheDeviceOffline) {
  EXPECT_EQ(do_request_keeplive(&context), -1);
  EXPECT_EQ(world().sent.size(), 4U);
  EXPECT_EQ(context.online, 0);
}

TEST_F(ServerTime, ParametersStandInAnyOrderWithAnythingBetween) {
  std::int32_t interval = -9;
  std::int32_t retries = -9;
  string2keepalive("?keepalive_maxretries is = 3,x;keepalive_interval\n=+60s", &interval, &retries);
  EXPECT_EQ(interval, 60);
  EXPECT_EQ(retries, 3);
}

TEST_F(ServerTime, AKeyWithoutAnEqualsSignLeavesItsNumber) {
  std::int32_t interval = 11;
  std::int32_t retries = 12;
  string2keepalive("keepalive_interval=5 keepalive_maxretries", &interval, &retries);
  EXPECT_EQ(interval, 5);
  EXPECT_EQ(retries, 12);
  string2keepalive("keepalive_maxretries 9", &interval, &retries);
  EXPECT_EQ(retries, 12);
}

TEST_F(ServerTime, OnlyWholeKeysAreFound) {
  std::int32_t interval = 11;
  std::int32_t retries = 12;
  string2keepalive("interval=8;maxretries=9;keepalive_maxretries=4", &interval, &retries);
  EXPECT_EQ(interval, 11);
  EXPECT_EQ(retries, 4);
}

TEST_F(ServerTime, TheFirstOccurrenceOfAKeyCounts) {
  std::int32_t interval = 0;
  std::int32_t retries = 0;
  string2keepalive("keepalive_interval=5 keepalive_interval=6 keepalive_maxretries=1", &interval,
                   &retries);
  EXPECT_EQ(interval, 5);
}

} // namespace
