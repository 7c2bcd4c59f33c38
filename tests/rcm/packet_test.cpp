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

TEST_F(Packets, TheChecksumCoversThePayloadAlone) {
  begin_packet(context, kLog, kReportFlags);
  std::memcpy(tx_payload(context), "123456789", 9);
  EXPECT_EQ(finish_packet(context, 9), 45U);
  EXPECT_EQ(to_hex(Bytes(context.tx_buf + 32, context.tx_buf + 45)), "6f91"
                                                                     "0009"
                                                                     "313233343536373839");
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

TEST_F(Packets, AReplyThatCannotBeSentIsReportedAndNothingElse) {
  receive(fake::server_packet(257, 0, 1));
  world().send_fails = [](const fake::Datagram&) { return true; };
  acknowledge_request(context);
  EXPECT_EQ(world().diagnostics(), "sendto fail .. \n");
}

} // namespace
