#include "tests/server/engine_fixture.h"

using namespace server;
using fake::bytes_of;
using fake::hex;
using fake::to_hex;

namespace {

std::string joined(std::string text) {
  std::erase(text, ' ');
  return text;
}

class Orders : public EngineFixture {
protected:
  Orders() { enrol(); }
};

TEST_F(Orders, ASetRequestIsByteForByte) {
  submit(make_set(3, {{"wl_ssid", "a"}, {"wl_key", ""}}));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 80000001 "
                             "0101 0000 b12a 0016"
                             "00010003776c5f737369643d6100776c5f6b65793d00"
                             "00000000"));
  EXPECT_EQ(sent[0].to, kDevice);
}

TEST_F(Orders, TheFourNulsBehindASetRequestAreNotCounted) {
  submit(make_set(0, {{"a", "1"}}));
  EXPECT_EQ(sent[0].bytes.size(), 36U + 8U + 4U);
  EXPECT_EQ(fake::length_of(sent[0].bytes), 8);
}

TEST_F(Orders, ASetRequestFillsADevicesBufferAndNotMore) {
  const std::size_t most = 8192 - 36 - 4 - 4;
  submit(make_set(0, {{"a", std::string(most - 3, 'x')}}));
  EXPECT_EQ(sent[0].bytes.size(), 8192U);
  EXPECT_THROW(make_set(0, {{"a", std::string(most - 2, 'x')}}), std::invalid_argument);
}

TEST_F(Orders, WhatARecordCannotCarryIsRefused) {
  EXPECT_THROW(make_set(0, {}), std::invalid_argument);
  EXPECT_THROW(make_set(0, {{"", "x"}}), std::invalid_argument);
  EXPECT_THROW(make_set(0, {{"a=b", "x"}}), std::invalid_argument);
  EXPECT_THROW(make_set(0, {{std::string("a\0", 2), "x"}}), std::invalid_argument);
  EXPECT_THROW(make_set(0, {{"a", std::string("x\0", 2)}}), std::invalid_argument);
}

TEST_F(Orders, PlainCommandsAreByteForByte) {
  submit(make_plain(OperationKind::kStatus));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 80000001 "
                             "0104 0000 ffff 0000"));
  acknowledge();
  submit(make_plain(OperationKind::kCommit));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 80000002 "
                             "0102 0000 ffff 0000"));
  acknowledge();
  advance(11000);
  enrol();
  submit(make_plain(OperationKind::kRestoreDefaults));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 80000003 "
                             "0103 0000 ffff 0000")
                          .replace(14, 2, "32")); // it has registered a second time
}

TEST_F(Orders, AnAcknowledgementEndsASetOrAStatus) {
  const Operation set = submit(make_set(0, {{"a", "1"}}));
  EXPECT_EQ(set.state, OperationState::kSent);
  acknowledge();
  EXPECT_EQ(operation(set.id).state, OperationState::kDone);
  EXPECT_FALSE(engine->next_deadline());
}

TEST_F(Orders, AnUnansweredCommandIsSentAgainAndThenCountsAsRefused) {
  const Operation set = submit(make_set(0, {{"a", "1"}}));
  const Bytes first = sent[0].bytes;
  std::vector<std::int64_t> times;
  while (operation(set.id).state == OperationState::kSent) {
    sent.clear();
    pass(*engine->next_deadline() - now.steady_ms);
    if (!sent.empty()) {
      EXPECT_EQ(sent[0].bytes, first);
      times.push_back(now.steady_ms);
    }
  }
  EXPECT_THAT(times,
              testing::ElementsAre(2000, 8000, 14000, 20000, 26000, 32000, 38000, 44000, 50000));
  EXPECT_EQ(now.steady_ms, 56000);
  EXPECT_EQ(operation(set.id).state, OperationState::kRefused);
  EXPECT_EQ(operation(set.id).detail, "no acknowledgement to 10 sends");
}

TEST_F(Orders, ACommandGoesOutAgainWhenTheDeviceHasBeenAnswered) {
  const Operation set = submit(make_set(0, {{"a", "1"}}));
  const Bytes first = sent[0].bytes;
  hear(kStatus, 0, 1, Bytes(4));
  ASSERT_EQ(sent.size(), 2U); // the acknowledgement comes first
  EXPECT_EQ(fake::type_of(sent[0].bytes), kStatus);
  EXPECT_EQ(sent[1].bytes, first);
  hear(kConf, 0, 1, Bytes(4));
  EXPECT_EQ(sent.size(), 1U); // after a configuration packet the device sends the next
  hear(kServerTime, 0, 1);
  EXPECT_EQ(sent.size(), 1U);
  pass(56000);
  EXPECT_EQ(operation(set.id).state, OperationState::kRefused); // no later for it
}

TEST_F(Orders, OnlyTheReplyWithItsTypeAndSequenceCounts) {
  const Operation set = submit(make_set(0, {{"a", "1"}}));
  hear(kConfig, 1, 0x80000002);
  hear(kSendStatus, 1, 0x80000001);
  hear(kConfig, 0, 0x80000001);
  EXPECT_EQ(operation(set.id).state, OperationState::kSent);
  hear(kConfig, 1, 0x80000001);
  EXPECT_EQ(operation(set.id).state, OperationState::kDone);
}

TEST_F(Orders, OneCommandAtATimeIsOnItsWay) {
  const Operation first = submit(make_set(0, {{"a", "1"}}));
  const Bytes request = sent[0].bytes;
  const Operation second = submit(make_set(0, {{"a", "2"}}));
  EXPECT_TRUE(sent.empty());
  EXPECT_EQ(second.state, OperationState::kQueued);
  sent.push_back({kDevice, request});
  acknowledge();
  EXPECT_EQ(operation(first.id).state, OperationState::kDone);
  EXPECT_EQ(operation(second.id).state, OperationState::kSent);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(fake::seq_of(sent[0].bytes), 0x80000002U);
}

TEST_F(Orders, CommandsToTwoDevicesRunSideBySide) {
  enrol(0, 10, "1.0", "OTHER");
  submit(make_set(0, {{"a", "1"}}));
  const Operation other = submit(make_set(0, {{"a", "1"}}), "OTHER");
  EXPECT_EQ(other.state, OperationState::kSent);
}

TEST_F(Orders, AnUnknownDeviceCannotBeOrdered) {
  EXPECT_THROW(submit(make_plain(OperationKind::kStatus), "NOBODY"), std::out_of_range);
}

TEST_F(Orders, ACommitIsDoneWhenTheDeviceIsBack) {
  const Operation commit = submit(make_plain(OperationKind::kCommit));
  acknowledge();
  EXPECT_EQ(operation(commit.id).state, OperationState::kRestarting);
  advance(13000);
  hear(kRegister, 0, 0, registration(10, "1.0")); // as it looked before, byte for byte
  EXPECT_EQ(operation(commit.id).state, OperationState::kDone);
  EXPECT_EQ(sent[0].bytes[7], '2');
}

TEST_F(Orders, ARestartIsNoProofOfACommitWithoutAnAcknowledgement) {
  hear(kKeepalive, 0, 5);
  const Operation commit = submit(make_plain(OperationKind::kCommit));
  advance(1000);
  hear(kRegister, 0, 0, registration(1, "1.0")); // a power cut looks like this, too
  EXPECT_EQ(operation(commit.id).state, OperationState::kSent);
  advance(1000);
  sent.clear();
  engine->tick(now);
  ASSERT_EQ(sent.size(), 1U); // it is sent again
  acknowledge();
  advance(15000);
  hear(kRegister, 0, 0, registration(2, "1.0"));
  EXPECT_EQ(operation(commit.id).state, OperationState::kDone);
}

TEST_F(Orders, ARegistrationWithoutARestartIsNoProof) {
  hear(kKeepalive, 0, 5);
  const Operation commit = submit(make_plain(OperationKind::kCommit));
  advance(1000);
  hear(kRegister, 0, 5, registration(11, "1.0"));
  EXPECT_EQ(operation(commit.id).state, OperationState::kSent);
}

TEST_F(Orders, ADeviceThatDoesNotComeBackIsDead) {
  const Operation commit = submit(make_plain(OperationKind::kCommit));
  acknowledge();
  pass(300000);
  EXPECT_EQ(operation(commit.id).state, OperationState::kDead);
  EXPECT_EQ(operation(commit.id).detail, "no progress for 300 seconds, and the device is silent");
}

// Transfers

class Transfers : public Orders {
protected:
  Transfers() {
    Bytes content(1024, 'x');
    content.insert(content.end(), {'a', 'b', 'c'});
    image = std::make_shared<TestImage>(content);
  }

  Operation order(OperationKind kind = OperationKind::kUpgrade) {
    return submit(make_transfer(kind, image, "fw.trx", "/srv/fw.trx"));
  }
  /// The device's file request, its name behind the counted payload.
  Bytes file_request(std::uint32_t seq, std::uint16_t type = kFirmwareRequest,
                     const std::string& name = "fw.trx", const std::string& session = "SESSION1") {
    Bytes request = fake::server_packet(type, 2, seq, hex("ffff 0200 03040000"), session);
    request.insert(request.end(), name.begin(), name.end());
    return request;
  }
  void fragment_request(std::uint32_t seq, std::uint8_t number,
                        std::uint16_t type = kFirmwareFragment) {
    hear(type, 2, seq, {0, number, 0, 0});
  }
  Operation transfer_all() {
    const Operation upgrade = order();
    acknowledge();
    hear(file_request(5));
    fragment_request(6, 0);
    fragment_request(7, 1);
    return operation(upgrade.id);
  }

  std::shared_ptr<const Image> image;
};

TEST_F(Transfers, TheUpgradeCommandIsByteForByte) {
  order();
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 80000001 "
                             "0100 0000 b0f2 000f"
                             "ffff00020000040366772e74727800"));
}

TEST_F(Transfers, TheImportCommandIsByteForByte) {
  order(OperationKind::kImport);
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 80000001 "
                             "0105 0000 b0f2 000f"
                             "ffff00020000040366772e74727800"));
}

TEST_F(Transfers, TheFileRequestIsAcknowledgedWithItsOwnType) {
  order();
  acknowledge();
  hear(hex("53455353494f4e31 00010002 534e30313233343536373839 00000005 0008 0002 4efa 0008"
           "ffff02000304000066772e747278"));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 00000005 "
                             "0008 0001 ffff 0000"));
}

TEST_F(Transfers, AFragmentIsAnsweredByteForByte) {
  order();
  acknowledge();
  hear(file_request(5));
  hear(hex("53455353494f4e31 00010002 534e30313233343536373839 00000006 0006 0002 59fd 0004"
           "00010000"));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 00000006 "
                             "0006 0001 2f4d 0007"
                             "00010000616263"));
  fragment_request(7, 0);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].bytes.size(), 36U + 4U + 1024U);
}

TEST_F(Transfers, AConfigurationFileHasTypesOfItsOwn) {
  order(OperationKind::kImport);
  acknowledge();
  hear(file_request(5, kFirmwareRequest));
  EXPECT_TRUE(sent.empty());
  hear(hex("53455353494f4e31 00010002 534e30313233343536373839 00000005 000d 0002 4efa 0008"
           "ffff02000304000066772e747278"));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 00000005 "
                             "000d 0001 ffff 0000"));
  hear(hex("53455353494f4e31 00010002 534e30313233343536373839 00000006 000c 0002 59fd 0004"
           "00010000"));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 00000006 "
                             "000c 0001 2f4d 0007"
                             "00010000616263"));
}

TEST_F(Transfers, ARequestForAnotherFileIsNotAcknowledged) {
  order();
  acknowledge();
  hear(file_request(5, kFirmwareRequest, "other"));
  EXPECT_TRUE(sent.empty());
  Bytes wrong_count = fake::server_packet(kFirmwareRequest, 2, 6, hex("ffff 0300 03040000"));
  wrong_count.insert(wrong_count.end(), {'f', 'w', '.', 't', 'r', 'x'});
  hear(wrong_count);
  EXPECT_TRUE(sent.empty());
}

TEST_F(Transfers, ProgressFollowsTheFragmentsAskedFor) {
  const Operation upgrade = order();
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kSent);
  acknowledge();
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kAccepted);
  hear(file_request(5));
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kTransferring);
  EXPECT_EQ(operation(upgrade.id).asked, 0U);
  fragment_request(6, 0);
  EXPECT_EQ(operation(upgrade.id).asked, 1U);
  fragment_request(7, 1);
  EXPECT_EQ(operation(upgrade.id).asked, 2U);
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kRestarting);
}

TEST_F(Transfers, AnUpgradeIsDoneWhenTheDeviceIsBackWithItsVersion) {
  const Operation upgrade = transfer_all();
  advance(60000);
  hear(kRegister, 0, 0, registration(5, "2.0"));
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kDone);
  EXPECT_EQ(operation(upgrade.id).detail, "the device is back online with version 2.0");
  EXPECT_EQ(operation(upgrade.id).firmware_before, "1.0");
  EXPECT_EQ(operation(upgrade.id).firmware_after, "2.0");
}

TEST_F(Transfers, TheSameVersionIsDoneAndSaidSo) {
  const Operation upgrade = transfer_all();
  advance(60000);
  hear(kRegister, 0, 0, registration(5, "1.0"));
  EXPECT_EQ(operation(upgrade.id).detail, "the device is back online with the same version 1.0");
}

TEST_F(Transfers, ARestartHalfwayIsAFailure) {
  const Operation upgrade = order();
  acknowledge();
  hear(file_request(5));
  fragment_request(6, 0);
  advance(10000);
  hear(kRegister, 0, 0, registration(5, "1.0"));
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kFailed);
}

TEST_F(Transfers, ADeviceThatRegistersAmidATransferBeginsAnew) {
  const Operation upgrade = order();
  acknowledge();
  hear(file_request(5));
  fragment_request(6, 0);
  advance(10000);
  hear(kRegister, 0, 7, registration(20, "1.0"));
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kTransferring);
  hear(file_request(7, kFirmwareRequest, "fw.trx", "SESSION2"));
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_EQ(operation(upgrade.id).asked, 0U);
}

TEST_F(Transfers, ALateCopyOfTheFileRequestDoesNotTurnProgressBack) {
  const Operation upgrade = transfer_all();
  hear(file_request(5));
  EXPECT_EQ(operation(upgrade.id).asked, 2U);
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kRestarting);
}

TEST_F(Transfers, TheFileRequestIsProofOfALostAcknowledgement) {
  const Operation upgrade = order();
  hear(file_request(5));
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kTransferring);
  sent.clear();
  pass(100000);
  EXPECT_TRUE(sent.empty()); // the command is not sent again
}

TEST_F(Transfers, ARefusedUpgradeThatBeginsAllTheSameGoesOn) {
  const Operation upgrade = order();
  pass(56000);
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kRefused);
  const Operation set = submit(make_set(0, {{"a", "1"}}));
  hear(file_request(5));
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kTransferring);
  EXPECT_EQ(operation(set.id).state, OperationState::kFailed); // it would end up in the file
}

TEST_F(Transfers, NoCommandIsSentAmidATransfer) {
  order();
  acknowledge();
  hear(file_request(5));
  EXPECT_EQ(submit(make_set(0, {{"a", "1"}})).state, OperationState::kQueued);
  pass(299000);
  EXPECT_TRUE(sent.empty());
}

TEST_F(Transfers, ASilentDeviceIsDead) {
  const Operation upgrade = order();
  acknowledge();
  hear(file_request(5));
  pass(100000);
  fragment_request(6, 0);
  pass(299999);
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kTransferring);
  pass(1);
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kDead);
}

TEST_F(Transfers, ADeviceThatGoesOnWithoutTheFileHasFailed) {
  const Operation upgrade = order();
  acknowledge();
  pass(200000);
  hear(kKeepalive, 0, 1);
  pass(100000);
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kFailed);
}

TEST_F(Transfers, FragmentsThatDoNotExistAreNotAnswered) {
  order();
  acknowledge();
  hear(file_request(5));
  fragment_request(6, 2);
  EXPECT_TRUE(sent.empty());
  hear(kFirmwareFragment, 2, 7, {0});
  EXPECT_TRUE(sent.empty());
  hear(kFirmwareFragment, 2, 7, {0xFF, 0xFF, 0, 0});
  EXPECT_TRUE(sent.empty());
}

TEST_F(Transfers, FragmentsAreServedWithoutATransferToNobody) {
  fragment_request(6, 0);
  EXPECT_TRUE(sent.empty());
  hear(file_request(5));
  EXPECT_TRUE(sent.empty());
}

TEST_F(Transfers, AnImageOfTheMostFragmentsIsServedToItsEnd) {
  Bytes content(kMostFragments * kFragmentBytes);
  content.back() = 0x5A;
  image = std::make_shared<TestImage>(std::move(content));
  EXPECT_EQ(image->fragments(), 65535U);
  order();
  EXPECT_EQ(to_hex(Bytes(sent[0].bytes.begin() + 36, sent[0].bytes.begin() + 44)),
            joined("ffff ffff 03fffc00"));
  acknowledge();
  Bytes request = fake::server_packet(kFirmwareRequest, 2, 5, hex("ffff ffff 00fcff03"));
  request.insert(request.end(), {'f', 'w', '.', 't', 'r', 'x'});
  hear(request);
  hear(kFirmwareFragment, 2, 6, {0xFF, 0xFE, 0, 0});
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].bytes.back(), 0x5A);
}

TEST_F(Transfers, NamesThatCannotBeCarriedAreRefused) {
  for (const std::string& name : {std::string(), std::string(256, 'x'), std::string("a/b"),
                                  std::string("a b"), std::string("a\0b", 3)}) {
    EXPECT_THROW(make_transfer(OperationKind::kUpgrade, image, name, "/x"), std::invalid_argument);
  }
}

// A server that was restarted

TEST_F(Transfers, ARestartedServerGoesOnWithATransfer) {
  const Operation upgrade = order();
  acknowledge();
  hear(file_request(5));
  fragment_request(6, 0);
  const Device device = *engine->device("SN0123456789");
  const Operation left = operation(upgrade.id);
  start();
  engine->restore(device);
  engine->restore(left, image, now);
  advance(10000);
  fragment_request(8, 1);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kRestarting);
  hear(kRegister, 0, 0, registration(5, "2.0"));
  EXPECT_EQ(operation(upgrade.id).state, OperationState::kDone);
}

TEST_F(Transfers, ARestartedServerRefusesAFileThatHasChanged) {
  Operation left = order();
  left.state = OperationState::kTransferring;
  const Device device = *engine->device("SN0123456789");
  start();
  engine->restore(device);
  engine->restore(left, std::make_shared<TestImage>(Bytes(1027)), now);
  EXPECT_EQ(operation(left.id).state, OperationState::kFailed);
}

TEST_F(Orders, ARestartedServerDoesNotSendOldCommands) {
  const Operation left = submit(make_set(0, {{"a", "1"}}));
  const Device device = *engine->device("SN0123456789");
  start();
  engine->restore(device);
  engine->restore(left, nullptr, now);
  EXPECT_EQ(operation(left.id).state, OperationState::kFailed);
  sent.clear();
  pass(100000);
  EXPECT_TRUE(sent.empty());
}

TEST_F(Orders, ARestartedServerStillKnowsItsDevicesAndTheirSessions) {
  const Device device = *engine->device("SN0123456789");
  start();
  engine->restore(device);
  hear(kKeepalive, 0, 1);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(std::string(sent[0].bytes.begin(), sent[0].bytes.begin() + 8), "SESSION1");
}

} // namespace
