#include "tools/rcm-lan/messages.h"

#include "tests/fake_platform/fixture.h"

using namespace rcm_lan;
using fake::hex;
using fake::to_hex;

namespace {

std::string zeros(std::size_t bytes) {
  return std::string(2 * bytes, '0');
}

TEST(RcmLanScan, ADiscoveryIsMagicAndType) {
  EXPECT_EQ(to_hex(discovery_request()), "ba01" + zeros(694));
}

TEST(RcmLanScan, ASetOfNothingCarriesAnEmptyMask) {
  EXPECT_EQ(to_hex(set_request({})), "ba03" + zeros(694));
}

TEST(RcmLanScan, ASetOfEverythingHasItsBytesInTheirPlaces) {
  Changes changes;
  changes.community = "public";
  changes.lan_address = Address{192, 168, 2, 1};
  changes.lan_address2 = Address{10, 0, 0, 1};
  changes.reconnect_interval_s = 3600;
  EXPECT_EQ(to_hex(set_request(changes)), "ba032105" +                              //
                                              ("7075626c6963" + zeros(26)) +        // 4
                                              zeros(8) +                            // 36
                                              "c0a80201" + zeros(552) +             // 44
                                              "0a000001" + zeros(88) + "00000e10"); // 600
}

TEST(RcmLanScan, EachValueHasItsBitOfTheMask) {
  Changes community, address, second, interval;
  community.community = "";
  address.lan_address = Address{};
  second.lan_address2 = Address{};
  interval.reconnect_interval_s = 0;
  EXPECT_EQ(to_hex(set_request(community)), "ba030001" + zeros(692));
  EXPECT_EQ(to_hex(set_request(address)), "ba030004" + zeros(692));
  EXPECT_EQ(to_hex(set_request(second)), "ba030100" + zeros(692));
  EXPECT_EQ(to_hex(set_request(interval)), "ba032000" + zeros(692));
}

TEST(RcmLanScan, ACommunityIsCutAtItsField) {
  Changes changes;
  changes.community = std::string(40, 'c');
  const Bytes bytes = set_request(changes);
  EXPECT_EQ(to_hex(bytes.data() + 34, 4), "63630000");
}

Bytes reply() {
  const std::string model = "4d4f44454c2d3900";
  return hex("ba0224d7 2a2a2a2a2a00" + zeros(26) + "001a2b3c4d5e 0000 c0a80101" + model +
             zeros(284) + "ac100002 6669726d776172652e62696e00" + zeros(243) + "fffffe00" +
             zeros(4) + "00000001" + zeros(80) + "12345678");
}

TEST(RcmLanScan, AReplyToADiscoveryIsRead) {
  const auto router = read_discovery_reply(reply());
  ASSERT_TRUE(router.has_value());
  EXPECT_EQ(text_of(router->address), "192.168.1.1");
  EXPECT_EQ(text_of(router->netmask), "255.255.254.0");
  EXPECT_EQ(to_hex(router->mac.data(), 6), "001a2b3c4d5e");
  EXPECT_EQ(router->model, "MODEL-9");
  EXPECT_EQ(router->reconnect_interval_s, 305419896U);
}

TEST(RcmLanScan, WhatIsNoReplyToADiscoveryIsNotRead) {
  Bytes bytes = reply();
  bytes.pop_back();
  EXPECT_FALSE(read_discovery_reply(bytes));
  bytes = reply();
  bytes.push_back(0);
  EXPECT_FALSE(read_discovery_reply(bytes));
  bytes = reply();
  bytes[0] = 0xAB;
  EXPECT_FALSE(read_discovery_reply(bytes));
  bytes = reply();
  bytes[1] = 1;
  EXPECT_FALSE(read_discovery_reply(bytes)) << "one's own question comes back on some networks";
  EXPECT_FALSE(read_discovery_reply({}));
}

TEST(RcmLanScan, AModelEndsBeforeTheNextFieldAndCannotSteerTheTerminal) {
  Bytes bytes = reply();
  std::fill(bytes.begin() + 48, bytes.begin() + 340, std::uint8_t{'m'});
  bytes[50] = 0x1B;
  bytes[51] = 0x7F;
  EXPECT_EQ(read_discovery_reply(bytes)->model, "mm??" + std::string(288, 'm'));
}

TEST(RcmLanScan, TheReplyToASetIsKnownByItsType) {
  EXPECT_TRUE(is_set_reply(hex("ba04" + zeros(694))));
  EXPECT_FALSE(is_set_reply(hex("ba03" + zeros(694))));
  EXPECT_FALSE(is_set_reply(hex("ba04" + zeros(693))));
}

TEST(RcmLanManager, ARequestIsTwelveBytes) {
  EXPECT_EQ(to_hex(manager_request(Order::kConnect, 0x01020304)), "0102030400010001"
                                                                  "0000000c");
  EXPECT_EQ(to_hex(manager_request(Order::kDisconnect, 0)), "0000000000020001"
                                                            "0000000c");
  EXPECT_EQ(to_hex(manager_request(Order::kStatus, 0xFFFFFFFF)), "ffffffff00030001"
                                                                 "0000000c");
}

TEST(RcmLanManager, AResponseGivesItsResult) {
  EXPECT_EQ(read_manager_response(hex("01020304 0003 00 02 00000010 00000002"), Order::kStatus,
                                  0x01020304),
            2U);
}

TEST(RcmLanManager, AResponseToAnotherRequestIsNone) {
  const Order status = Order::kStatus;
  const char* const others[] = {
      "01020305 0003 00 02 00000010 00000002", "01020304 0001 00 02 00000010 00000002",
      "01020304 0003 00 01 00000010 00000002", "01020304 0003 00 02 0000000c 00000002",
      "01020304 0003 00 02 00000010 000000",   "01020304 0003 00 02 00000010 0000000200"};
  for (const char* other : others) {
    EXPECT_FALSE(read_manager_response(hex(other), status, 0x01020304)) << other;
  }
}

TEST(RcmLanAddress, DottedTextsAndNothingElse) {
  EXPECT_EQ(address_of("192.168.1.1"), (Address{192, 168, 1, 1}));
  EXPECT_FALSE(address_of("192.168.1"));
  EXPECT_FALSE(address_of("router"));
  EXPECT_EQ(text_of(Address{10, 0, 0, 255}), "10.0.0.255");
}

} // namespace
