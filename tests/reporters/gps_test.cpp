#include "reporters/gps.h"

#include "core/context.h"
#include "core/timers.h"
#include "tests/fake_platform/context.h"

#include <cstring>

using namespace rcmd;
using fake::to_hex;
using fake::world;
using Texts = std::vector<std::string>;

namespace {

class Gps : public fake::ContextFixture {
protected:
  Gps() {
    context.seq = 5;
    context.retransmit_count = 3;
    context.miss_count = 2;
  }
};

TEST_F(Gps, APositionWithoutLongitudeIs18Bytes) {
  std::memcpy(context.tx_buf + 8, "\xA1\xA2\xA3\xA4", 4);
  world().nvram["gps_lat"] = "40.7128";
  rcm_gpssender_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "4142434445464748"
                                           "a1a2a3a4"
                                           "534e30313233343536373839"
                                           "00000005"
                                           "0009"
                                           "0004"
                                           "4072"
                                           "0012"
                                           "6c61743d34302e373132383b6c6f6e673d00");
  EXPECT_EQ(context.tx_length, 54U);
}

TEST_F(Gps, NoPositionIs11Bytes) {
  rcm_gpssender_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "4142434445464748"
                                           "00000000"
                                           "534e30313233343536373839"
                                           "00000005"
                                           "0009"
                                           "0004"
                                           "0f3a"
                                           "000b"
                                           "6c61743d3b6c6f6e673d00");
}

TEST_F(Gps, BothValuesGoAsTheyStand) {
  world().nvram["gps_lat"] = "-33.8;x=%s";
  world().nvram["gps_long"] = " 151,2 E";
  rcm_gpssender_func(&context);
  const fake::Bytes& sent = world().sent.at(0).bytes;
  EXPECT_EQ(std::string(sent.begin() + 36, sent.end()),
            std::string("lat=-33.8;x=%s;long= 151,2 E") + '\0');
}

// DELIBERATE: `online` is not asked, and is 0 afterwards.
TEST_F(Gps, APositionGoesOutInEveryStateAndAwaitsItsAcknowledgement) {
  for (const int online : {1, 0}) {
    context.online = online;
    world().events.clear();
    rcm_gpssender_func(&context);
    EXPECT_EQ(context.online, 0);
    EXPECT_EQ(world().events,
              (Texts{"diag Send gps packet(seq=5) to server...\n", "send 47 to 127.0.0.1:1162",
                     online == 1 ? "cancel rcm_gpssender" : "disarm rcm_gpssender",
                     "arm rcm_gpssender 60"}));
  }
  EXPECT_EQ(context.seq, 5U);
  EXPECT_EQ(context.retransmit_count, 3);
  EXPECT_EQ(context.miss_count, 2);
  EXPECT_EQ(world().now_ms, 0) << "nothing is waited for";
}

TEST_F(Gps, AFailedSendGoesUnnoticed) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  rcm_gpssender_func(&context);
  EXPECT_EQ(context.online, 0);
  EXPECT_EQ(world().events.back(), "arm rcm_gpssender 60");
}

TEST_F(Gps, ThePeriodIsTheOneOfStartUpAlone) {
  world().nvram["gps_send_interval"] = "30";
  for (const int period : {10, 120}) {
    gps_send_interval = period;
    rcm_gpssender_func(&context);
    EXPECT_EQ(world().events.back(), "arm rcm_gpssender " + std::to_string(period));
  }
}

TEST_F(Gps, ValuesThatAreNoPositionsAreCut) {
  world().nvram["gps_lat"] = std::string(9000, '1');
  world().nvram["gps_long"] = std::string(9000, '2');
  rcm_gpssender_func(&context);
  EXPECT_EQ(world().sent.at(0).bytes.size(), 36U + 4 + 4000 + 6 + 4000 + 1);
}

} // namespace
