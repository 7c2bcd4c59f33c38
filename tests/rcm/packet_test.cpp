#include "rcm/packet.h"

#include "tests/fake_platform/context.h"

#include <cstring>

using namespace rcmd;
using fake::Bytes;
using fake::hex;
using fake::to_hex;
using fake::world;

namespace {

class Packets : public fake::ContextFixture {};

TEST_F(Packets, AnEmptyPacketCarriesTheChecksumOfNoBytes) {
  context.seq = 0x01020304;
  std::memcpy(context.tx_buf + 8, "\1\0\1\2", 4);
  begin_packet(context, kKeepalive, kReportFlags);
  EXPECT_EQ(finish_packet(context, 0), 36U);
  EXPECT_EQ(to_hex(tx(36)), "4142434445464748"
                            "01000102"
                            "534e30313233343536373839"
                            "01020304"
                            "0007"
                            "0000"
                            "ffff"
                            "0000");
}

TEST_F(Packets, FlagsAreWrittenAsTheSenderGivesThem) {
  begin_packet(context, kFwData, kTransferFlags);
  EXPECT_EQ(to_hex(Bytes(context.tx_buf + 28, context.tx_buf + 32)), "00060002");
  begin_packet(context, kGps, kGpsFlags);
  EXPECT_EQ(to_hex(Bytes(context.tx_buf + 28, context.tx_buf + 32)), "00090004");
}

TEST_F(Packets, ThePacketFromTheBeginningOfTheBufferGoesToTheServerWithoutSendFlags) {
  begin_packet(context, kLog, kReportFlags);
  const Bytes whole = tx(kBufferBytes);
  EXPECT_TRUE(send_to_server(context, 41));
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().sent[0].bytes, Bytes(whole.begin(), whole.begin() + 41));
  EXPECT_EQ(world().sent[0].fd, context.sock);
  EXPECT_EQ(world().sent[0].flags, 0);
  EXPECT_EQ(world().events, std::vector<std::string>{"send 41 to 127.0.0.1:1162"});
}

TEST_F(Packets, AShortSendIsNoFailure) {
  for (const long result : {0L, 1L, 35L}) {
    world().send_result = [result](const fake::Datagram&) { return result; };
    EXPECT_TRUE(send_to_server(context, 36));
  }
  world().send_result = [](const fake::Datagram&) { return -1L; };
  EXPECT_FALSE(send_to_server(context, 36));
}

TEST_F(Packets, TheChecksumCoversThePayloadAlone) {
  begin_packet(context, kLog, kReportFlags);
  std::memcpy(tx_payload(context), "123456789", 9);
  EXPECT_EQ(finish_packet(context, 9), 45U);
  EXPECT_EQ(to_hex(Bytes(context.tx_buf + 32, context.tx_buf + 45)), "6f91"
                                                                     "0009"
                                                                     "313233343536373839");
}

TEST_F(Packets, TheLargestPayloadFillsTheBufferToItsEnd) {
  begin_packet(context, kLog, kReportFlags);
  std::memset(tx_payload(context), 0xFF, kMaxPayloadBytes);
  EXPECT_EQ(finish_packet(context, kMaxPayloadBytes), 8192U);
  EXPECT_EQ(context.tx_buf[8191], 0xFF);
  EXPECT_TRUE(guards_stand());
}

TEST_F(Packets, ADatagramOf35BytesIsNoPacket) {
  const Bytes packet = fake::server_packet(7, 1, 0);
  EXPECT_EQ(check_packet(packet.data(), 35), PacketCheck::kTooShort);
  EXPECT_EQ(check_packet(packet.data(), 36), PacketCheck::kGood);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(Packets, AWrongChecksumIsReported) {
  Bytes packet = fake::server_packet(7, 1, 0, fake::bytes_of("payload"));
  packet[40] ^= 1;
  EXPECT_EQ(check_packet(packet.data(), packet.size()), PacketCheck::kBadChecksum);
  EXPECT_EQ(world().diagnostics(), "crc is error\n");
}

TEST_F(Packets, ALengthThatReachesPastTheDatagramFailsTheChecksumTest) {
  Bytes packet = fake::server_packet(7, 1, 0, fake::bytes_of("payload"));
  packet.pop_back();
  packet.shrink_to_fit();
  EXPECT_EQ(check_packet(packet.data(), packet.size()), PacketCheck::kBadChecksum);
  EXPECT_EQ(world().diagnostics(), "crc is error\n");
}

TEST_F(Packets, StaleBytesBehindTheDatagramDoNotMakeItsChecksumRight) {
  const Bytes packet = fake::server_packet(7, 1, 0, fake::bytes_of("payload"));
  EXPECT_EQ(check_packet(packet.data(), packet.size() - 1), PacketCheck::kBadChecksum);
  EXPECT_EQ(check_packet(packet.data(), 36), PacketCheck::kBadChecksum);
  EXPECT_EQ(check_packet(packet.data(), packet.size()), PacketCheck::kGood);
}

TEST_F(Packets, BytesBehindTheCountedPayloadAreNotChecked) {
  Bytes packet = fake::server_packet(7, 1, 0, fake::bytes_of("payload"));
  packet.push_back('x');
  EXPECT_EQ(check_packet(packet.data(), packet.size()), PacketCheck::kGood);
}

TEST_F(Packets, AReplyEchoesTheRequestsHeaderAndGoesToItsSender) {
  receive(fake::server_packet(257, 2, 0xDEADBEEF, fake::bytes_of("abcdef")));
  acknowledge_request(context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "53455353494f4e31"
                                           "a1a2a3a4"
                                           "534e30313233343536373839"
                                           "deadbeef"
                                           "0101"
                                           "0001"
                                           "ffff"
                                           "0000");
  EXPECT_EQ(world().events_of({"send"}), std::vector<std::string>{"send 36 to 10.1.2.3:4000"});
  EXPECT_EQ(to_hex(Bytes(context.tx_buf + 36, context.tx_buf + 42)), "616263646566");
  EXPECT_EQ(context.tx_length, 0U);
}

TEST_F(Packets, AReplyLeavesTheDevicesOwnCountersAlone) {
  context.seq = 9;
  context.tx_length = 77;
  context.request_seq = 3;
  receive(fake::server_packet(258, 0, 0xDEADBEEF));
  acknowledge_request(context);
  EXPECT_EQ(context.seq, 9U);
  EXPECT_EQ(context.tx_length, 77U);
  EXPECT_EQ(context.request_seq, 3U);
  EXPECT_EQ(context.online, 1);
}

TEST_F(Packets, TheLargestRequestIsCopiedWholeBeforeItIsAnswered) {
  receive(fake::server_packet(257, 0, 1, Bytes(8192 - 36, 0x77)));
  acknowledge_request(context);
  EXPECT_EQ(Bytes(context.tx_buf + 36, context.tx_buf + 8192), Bytes(8192 - 36, 0x77));
  EXPECT_EQ(world().sent[0].bytes.size(), 36U);
}

TEST_F(Packets, AShortlySentReplyIsNotReported) {
  receive(fake::server_packet(257, 0, 1));
  world().send_result = [](const fake::Datagram&) { return 0L; };
  acknowledge_request(context);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(Packets, AReplyThatCannotBeSentIsReportedAndNothingElse) {
  receive(fake::server_packet(257, 0, 1));
  world().send_fails = [](const fake::Datagram&) { return true; };
  acknowledge_request(context);
  EXPECT_EQ(world().diagnostics(), "sendto fail .. \n");
}

} // namespace
