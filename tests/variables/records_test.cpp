// One variable packet: its bytes, and the wait for its acknowledgement.
#include "variables/records.h"

#include "core/owned.h"
#include "tests/variables/kit.h"

using namespace rcmd;
using fake::Bytes;
using fake::server_packet;
using fake::to_hex;
using fake::world;

namespace {

class VariablePackets : public fake::ContextFixture {
protected:
  VariablePackets() {
    context.seq = 0x01020304;
    context.online = 0;
    context.retransmit_count = 2;
    context.miss_count = 3;
    context.tx_length = 77;
  }

  int send() {
    RecordArea area = begin_records(context, kConf, kPerWan);
    ignore(area.records.append("wan_mode=ppp"));
    area.records.used++;
    return send_variable_param(context, kConf, kPerWan, 0, area.records);
  }
  static void answer_with(const Bytes& packet) {
    world().on_send = [packet](const fake::Datagram&) { world().deliver(1161, packet, 10); };
  }
};

TEST_F(VariablePackets, TheBytesOnTheWire) {
  std::memcpy(context.tx_buf, "staleses\xA1\xA2\xA3\xA4", 12);
  answer_with(server_packet(3, 1, 0x01020304));
  EXPECT_EQ(send(), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "4142434445464748"
                                           "a1a2a3a4"
                                           "534e30313233343536373839"
                                           "01020304"
                                           "0003"
                                           "0000"
                                           "a290"
                                           "0011"
                                           "0002"
                                           "0000"
                                           "77616e5f6d6f64653d70707000");
  EXPECT_EQ(world().events_of({"send"}), kit::Texts{"send 53 to 127.0.0.1:1162"});
}

TEST_F(VariablePackets, TheAcknowledgementGivesTheSessionAndMarksOnline) {
  answer_with(server_packet(3, 1, 0x01020304));
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(to_hex(context.session_id, 8), "53455353494f4e31");
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.retransmit_count, 0);
  EXPECT_EQ(context.miss_count, 3);
  EXPECT_EQ(context.seq, 0x01020304U);
  EXPECT_EQ(context.tx_length, 77U);
}

TEST_F(VariablePackets, NeitherOnlineNorTheLengthIsTouchedBeforeTheAcknowledgement) {
  for (const int online : {0, 1}) {
    context.online = online;
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(context.online, online);
    EXPECT_EQ(context.tx_length, 77U);
    EXPECT_EQ(context.retransmit_count, 2);
  }
}

TEST_F(VariablePackets, AnyTypeAndFlagsAcknowledge) {
  answer_with(server_packet(0x7777, 4, 0x01020304));
  EXPECT_EQ(send(), 0);
}

TEST_F(VariablePackets, ASilentServerIsSentThePacketFourTimes) {
  EXPECT_EQ(send(), -1);
  ASSERT_EQ(world().sent.size(), 4U);
  for (std::size_t i = 0; i < 4; i++) {
    EXPECT_EQ(world().sent[i].at_ms, static_cast<std::int64_t>(i) * 5000);
    EXPECT_EQ(world().sent[i].bytes, world().sent[0].bytes);
  }
  EXPECT_EQ(world().now_ms, 20'000);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(VariablePackets, StraysAreDroppedAndLengthenTheWait) {
  Bytes broken = server_packet(3, 1, 0x01020304, fake::bytes_of("x"));
  broken[36] = 'y';
  world().deliver(1161, server_packet(3, 1, 0x01020303), 4000);
  world().deliver(1161, fake::hex("0102"), 8000);
  world().deliver(1161, broken, 12000);
  world().deliver(1161, server_packet(3, 1, 0x01020304), 16000);
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().now_ms, 16'000);
  EXPECT_EQ(world().diagnostics(), "crc is error\n");
}

TEST_F(VariablePackets, AFailedSendEndsItAtOnce) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_EQ(send(), -1);
  EXPECT_EQ(world().now_ms, 0);
}

TEST_F(VariablePackets, AFailedWaitEndsItAtOnce) {
  world().waitfor_result = [](int, int) { return -1; };
  EXPECT_EQ(send(), -1);
  EXPECT_EQ(world().sent.size(), 1U);
}

TEST_F(VariablePackets, ACountForgetsWhatTheAreaHeld) {
  answer_everything();
  RecordArea area = begin_records(context, kStatus, kPlain);
  ignore(area.records.append("a=1"));
  ASSERT_EQ(end_record(area), 0);
  EXPECT_EQ(send_count(area, "count", 12), 0);
  EXPECT_EQ(kit::sent_records(), kit::Texts{"count=12"});
}

} // namespace
