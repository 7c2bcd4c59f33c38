#include "transfer/file_request.h"

#include "core/result.h"
#include "core/say.h"
#include "tests/transfer/server.h"

#include <climits>
#include <cstring>

using namespace rcmd;
using fake::Bytes;
using fake::bytes_of;
using fake::server_packet;
using fake::to_hex;
using fake::world;

namespace {

class FileRequests : public fake::TransferFixture {
protected:
  void acknowledge_with(std::uint16_t type, std::uint16_t flags) {
    world().on_send = [type, flags](const fake::Datagram& sent) {
      world().deliver(1161, server_packet(type, flags, fake::seq_of(sent.bytes) + 99), 20);
    };
  }
  int request() { return do_request_file(&context, "fw.trx", 0x1E00, 8, kFwReq); }
};

TEST_F(FileRequests, TheNumbersGoBackInLittleEndianOrderAndTheNameBehindThePayload) {
  acknowledge_with(8, 1);
  context.seq = 0x01020304;
  std::memcpy(context.tx_buf + 8, "\x0A\x0B\x0C\x0D", 4);
  std::memcpy(context.tx_buf + 36, "\xAA\xBB", 2);
  EXPECT_EQ(request(), kSuccess);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "4142434445464748"
                                           "0a0b0c0d"
                                           "534e30313233343536373839"
                                           "01020304"
                                           "0008"
                                           "0002"
                                           "b54e"
                                           "0008"
                                           "aabb"
                                           "0800"
                                           "001e0000"
                                           "66772e747278");
  EXPECT_EQ(world().events_of({"send"}), std::vector<std::string>{"send 50 to 127.0.0.1:1162"});
}

TEST_F(FileRequests, AConfigurationIsAskedForWithType13) {
  acknowledge_with(13, 1);
  EXPECT_EQ(do_request_file(&context, "c", 0x12345678, 0x0102, kConfReq), kSuccess);
  const Bytes& sent = world().sent[0].bytes;
  EXPECT_EQ(fake::type_of(sent), 13);
  EXPECT_EQ(to_hex(Bytes(sent.begin() + 32, sent.end())), "7768"
                                                          "0008"
                                                          "0000"
                                                          "0201"
                                                          "78563412"
                                                          "63");
}

TEST_F(FileRequests, TheCommandsUnreadBytesComeBackAfterItsAcknowledgement) {
  acknowledge_with(8, 1);
  command(256, 8, 0x1E00, "fw.trx");
  acknowledge_request(context);
  EXPECT_EQ(request(), kSuccess);
  const Bytes& sent = world().sent[1].bytes;
  EXPECT_EQ(to_hex(Bytes(sent.begin() + 8, sent.begin() + 12)), "a1a2a3a4");
  EXPECT_EQ(to_hex(Bytes(sent.begin() + 36, sent.begin() + 38)), "aabb");
}

TEST_F(FileRequests, ATransferAdvancesSeqAndLeavesTheExchangesFieldsAlone) {
  acknowledge_with(8, 1);
  context.seq = 7;
  context.online = 0;
  context.tx_length = 36;
  EXPECT_EQ(request(), kSuccess);
  EXPECT_EQ(context.seq, 8U);
  EXPECT_EQ(context.online, 0);
  EXPECT_EQ(context.tx_length, 36U);
  EXPECT_EQ(std::memcmp(context.session_id, "ABCDEFGH", 8), 0);
}

TEST_F(FileRequests, ANameOf1023CharactersIsSentWhole) {
  acknowledge_with(8, 1);
  const std::string name(1023, 'n');
  EXPECT_EQ(do_request_file(&context, name.c_str(), 1, 1, kFwReq), kSuccess);
  EXPECT_EQ(world().sent[0].bytes.size(), 44U + 1023);
  EXPECT_EQ(fake::length_of(world().sent[0].bytes), 8);
}

TEST_F(FileRequests, ARequestThatCannotBeSentFailsAtOnce) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_EQ(request(), kFailure);
  EXPECT_EQ(world().now_ms, 0);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(FileRequests, AnAcknowledgementOfAnotherTypeIsIgnoredAndTheRequestSentAgainAfterThePause) {
  world().on_send = [](const fake::Datagram& sent) {
    const bool first = world().sent.size() == 1;
    world().deliver(1161, server_packet(first ? 13 : 8, 1, fake::seq_of(sent.bytes)), 20);
  };
  EXPECT_EQ(request(), kSuccess);
  EXPECT_EQ(world().sent[1].at_ms, 20 + 5000 + 10000);
  EXPECT_EQ(world().diagnostics(), "cannot get ACK, try again\n");
}

TEST_F(FileRequests, OnlyFlags1Acknowledge) {
  for (const std::uint16_t flags : std::initializer_list<std::uint16_t>{0, 2, 3, 4}) {
    world().deliver(1161, server_packet(8, flags, 0));
  }
  world().deliver(1161, server_packet(8, 1, 0), 3000);
  EXPECT_EQ(request(), kSuccess);
  EXPECT_EQ(world().now_ms, 3000);
}

TEST_F(FileRequests, ShortAndDamagedDatagramsAreSkipped) {
  Bytes damaged = server_packet(8, 1, 0, bytes_of("payload"));
  damaged.back() ^= 1;
  Bytes cut = server_packet(8, 1, 0);
  cut.pop_back();
  world().deliver(1161, damaged);
  world().deliver(1161, cut);
  world().deliver(1161, {});
  world().deliver(1161, server_packet(8, 1, 0), 40);
  EXPECT_EQ(request(), kSuccess);
  EXPECT_EQ(world().now_ms, 40);
  EXPECT_EQ(world().diagnostics(), "crc is error\n");
}

TEST_F(FileRequests, EveryDatagramStartsTheWaitAfresh) {
  world().deliver(1161, server_packet(7, 1, 0), 4900);
  world().deliver(1161, server_packet(7, 1, 0), 9800);
  world().deliver(1161, server_packet(8, 1, 0), 14700);
  EXPECT_EQ(request(), kSuccess);
  EXPECT_EQ(world().sent.size(), 1U);
}

TEST_F(FileRequests, ASilentServerIsDeadBehindTheTwentiethWait) {
  context.seq = 100;
  EXPECT_EQ(request(), kPeerDead);
  EXPECT_EQ(world().now_ms, 20 * 5000 + 19 * 10000);
  ASSERT_EQ(world().sent.size(), 20U);
  std::string expected;
  for (std::uint32_t i = 0; i < 20; i++) {
    EXPECT_EQ(fake::seq_of(world().sent[i].bytes), 100 + i);
    EXPECT_EQ(world().sent[i].at_ms, i * 15000);
    expected += i < 19 ? "cannot get ACK, try again\n" : "";
  }
  EXPECT_EQ(world().diagnostics(), expected + "Peer dead while requesting file, register again\n");
}

TEST_F(FileRequests, ThePauseComesBeforeItsMessage) {
  acknowledge_with(8, 1);
  world().waitfor_result = [](int, int seconds) {
    EXPECT_EQ(seconds, 5);
    return world().sent.size() == 1 ? 0 : INT_MIN;
  };
  EXPECT_EQ(request(), kSuccess);
  EXPECT_EQ(story(), (std::vector<std::string>{"sleep 10", "diag cannot get ACK, try again\n"}));
}

TEST_F(FileRequests, AWaitErrorCountsAsSilence) {
  world().waitfor_result = [](int, int) { return -1; };
  EXPECT_EQ(request(), kPeerDead);
  EXPECT_EQ(world().sent.size(), 20U);
  EXPECT_EQ(world().now_ms, 19 * 10000);
}

class FragmentRequests : public fake::TransferFixture {};

TEST_F(FragmentRequests, AFirmwareFragmentIsAskedForWithFortyBytes) {
  context.seq = 5;
  std::memset(context.tx_buf + 36, 0xEE, 8);
  EXPECT_EQ(do_request_fw_fragment(&context, 3), 0);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "4142434445464748"
                                           "00000000"
                                           "534e30313233343536373839"
                                           "00000005"
                                           "0006"
                                           "0002"
                                           "ec45"
                                           "0004"
                                           "0003"
                                           "0000");
  EXPECT_EQ(context.seq, 6U);
  EXPECT_EQ(context.tx_length, 0U);
  EXPECT_EQ(context.online, 1);
}

TEST_F(FragmentRequests, AConfigurationFragmentIsAskedForWithType12) {
  EXPECT_EQ(do_request_config_fragment(&context, 0xFFFE), 0);
  const Bytes& sent = world().sent[0].bytes;
  EXPECT_EQ(fake::type_of(sent), 12);
  EXPECT_EQ(to_hex(Bytes(sent.begin() + 30, sent.end())), "0002"
                                                          "5adc"
                                                          "0004"
                                                          "fffe"
                                                          "0000");
}

TEST_F(FragmentRequests, ARequestThatCannotBeSentIsTold) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_NE(do_request_fw_fragment(&context, 0), 0);
  EXPECT_NE(do_request_config_fragment(&context, 0), 0);
}

TEST_F(FragmentRequests, ARequestThatCannotBeSentHasTakenItsSequenceNumberAllTheSame) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  context.seq = 9;
  EXPECT_NE(do_request_fw_fragment(&context, 0), 0);
  EXPECT_EQ(context.seq, 10U);
  EXPECT_EQ(do_request_file(&context, "fw.trx", 1, 1, kFwReq), kFailure);
  EXPECT_EQ(context.seq, 11U);
}

class FileCommands : public fake::TransferFixture {
protected:
  FileCommand read;
};

TEST_F(FileCommands, CountLengthAndNameAreRead) {
  command(256, 0x1234, 0x89ABCDEF, "fw.trx");
  ASSERT_TRUE(read_file_command(context, read));
  EXPECT_EQ(read.fragment_count, 0x1234);
  EXPECT_EQ(read.total_length, 0x89ABCDEFU);
  EXPECT_STREQ(read.name, "fw.trx");
}

TEST_F(FileCommands, ADatagramThatEndsBeforeTheNameIsNoCommand) {
  command(256, 1, 1, "fw.trx");
  context.rx_length = 43;
  EXPECT_FALSE(read_file_command(context, read));
  EXPECT_EQ(world().diagnostics(), "file command without a name .. \n");
}

TEST_F(FileCommands, ANameWithoutNulEndsWithTheDatagramAndNeverInOlderBytes) {
  command(256, 1, 1, "fw.trx-and-more");
  context.rx_length = 44 + 6;
  ASSERT_TRUE(read_file_command(context, read));
  EXPECT_STREQ(read.name, "fw.trx");
  context.rx_length = 44;
  ASSERT_TRUE(read_file_command(context, read));
  EXPECT_STREQ(read.name, "");
}

TEST_F(FileCommands, ANameMayHave1023CharactersAndNoMore) {
  const std::string name(1023, 'n');
  command(256, 1, 1, name);
  ASSERT_TRUE(read_file_command(context, read));
  EXPECT_EQ(read.name, name);
  command(256, 1, 1, name + "n");
  EXPECT_FALSE(read_file_command(context, read));
  EXPECT_EQ(world().diagnostics(), "file name too long .. \n");
}

TEST_F(FileCommands, AnUnendedNameOf1024CharactersIsTooLong) {
  command(256, 1, 1, std::string(2000, 'n'));
  context.rx_length = 44 + 1024;
  EXPECT_FALSE(read_file_command(context, read));
  context.rx_length = 44 + 1023;
  EXPECT_TRUE(read_file_command(context, read));
}

TEST_F(FileCommands, ALengthThatDoesNotCountWithItsSpareIsTheLargest) {
  command(256, 1, 0xFFFFFC00, "f");
  ASSERT_TRUE(read_file_command(context, read));
  EXPECT_EQ(file_fits(read, 1024), 1);
  read.total_length = 0xFFFFFBFF;
  EXPECT_EQ(file_fits(read, 1024), 1);
  EXPECT_EQ(story(),
            (std::vector<std::string>{"check_memory 4294967295", "check_memory 4294967295"}));
}

} // namespace
