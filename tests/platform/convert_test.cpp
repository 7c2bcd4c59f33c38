#include "platform/api/convert.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <nss.h>
#include <string>

namespace {

std::uint32_t number(const char* text, int expected = 0) {
  std::uint32_t value = 0;
  EXPECT_EQ(atoul(text, nullptr, 10, &value), expected) << text;
  return value;
}

TEST(Numbers, ADecimalNumberIsReadUpToItsLastDigit) {
  const char* end = nullptr;
  std::uint32_t value = 0;
  const char* text = " \t+120abc";
  EXPECT_EQ(atoul(text, &end, 0, &value), 0);
  EXPECT_EQ(value, 120U);
  EXPECT_STREQ(end, "abc");
}

TEST(Numbers, TheCharacterBehindNineIsNoDigit) {
  const char* end = nullptr;
  std::uint32_t value = 0;
  EXPECT_EQ(atoul("12:34", &end, 10, &value), 0);
  EXPECT_EQ(value, 12U);
  EXPECT_STREQ(end, ":34");
}

TEST(Numbers, ATextWithoutDigitsGivesZeroAndAFailure) {
  EXPECT_EQ(number("", -1), 0U);
  EXPECT_EQ(number("x1", -1), 0U);
  EXPECT_EQ(number("+", -1), 0U);
}

TEST(Numbers, ANegativeNumberGivesZero) {
  EXPECT_EQ(number("-5"), 0U);
}

TEST(Numbers, WhatDoesNotFitIsTheLargestNumber) {
  EXPECT_EQ(number("4294967295"), 0xFFFFFFFFU);
  EXPECT_EQ(number("4294967296"), 0xFFFFFFFFU);
  EXPECT_EQ(number("99999999999999999999"), 0xFFFFFFFFU);
  EXPECT_EQ(number("4294967294"), 0xFFFFFFFEU);
}

TEST(Split, EmptyFieldsKeepTheirPlaces) {
  char work[32];
  char* fields[4] = {};
  EXPECT_EQ(split(",a,,", ',', work, sizeof work, fields, 4), 4);
  EXPECT_STREQ(fields[0], "");
  EXPECT_STREQ(fields[1], "a");
  EXPECT_STREQ(fields[2], "");
  EXPECT_STREQ(fields[3], "");
}

TEST(Split, FieldsBeyondTheArrayAreCountedOnly) {
  char work[32];
  char* fields[2] = {};
  EXPECT_EQ(split("a,b,c,d", ',', work, sizeof work, fields, 2), 4);
  EXPECT_STREQ(fields[1], "b");
  EXPECT_EQ(split("", ',', work, sizeof work, fields, 2), 1);
}

TEST(Split, ATextThatDoesNotFitTheWorkSpaceIsRefused) {
  char work[4];
  char* fields[2] = {};
  EXPECT_EQ(split("a,bc", ',', work, sizeof work, fields, 2), -1);
  EXPECT_EQ(split("a,b", ',', work, sizeof work, fields, 2), 2);
}

TEST(EtherAddress, IsWrittenInUpperCaseWithColons) {
  const std::uint8_t mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
  char text[18];
  EXPECT_STREQ(ether_etoa(mac, text), "00:1A:2B:3C:4D:5E");
}

class Resolver : public testing::Test {
protected:
  /// Names are looked up in the machine's own hosts file alone: nothing leaves the machine.
  static void SetUpTestSuite() { __nss_configure_lookup("hosts", "files"); }

  static std::string error_of(const std::string& text) {
    in_addr address{};
    const char* error = atoaddr(text.c_str(), 0, &address);
    return error == nullptr ? "" : error;
  }
};

TEST_F(Resolver, ADottedAddressIsTakenAsItStands) {
  in_addr address{};
  EXPECT_EQ(atoaddr("172.16.0.2", 0, &address), nullptr);
  EXPECT_EQ(address.s_addr, htonl(0xAC100002));
}

TEST_F(Resolver, ANameResolves) {
  in_addr address{};
  EXPECT_EQ(atoaddr("localhost", 0, &address), nullptr);
  EXPECT_EQ(address.s_addr, htonl(INADDR_LOOPBACK));
}

TEST_F(Resolver, AWellFormedNameThatDoesNotResolveNowIsALookupFailure) {
  const std::string longest_label(63, 'a');
  for (const std::string& name :
       {std::string("no-such-host.example"), std::string("rcm1"), std::string("a_b.example."),
        longest_label + ".example", std::string("1.2.3.x")}) {
    EXPECT_EQ(error_of(name), "name lookup failed") << name;
  }
}

TEST_F(Resolver, WhatCanNeverBeAnAddressOrANameIsAnotherError) {
  const std::string long_label(64, 'a');
  std::string long_name;
  for (int i = 0; i < 64; i++) {
    long_name += "abc.";
  }
  for (const std::string& text :
       {std::string(), std::string("."), std::string("1.2.3"), std::string("256.1.1.1"),
        std::string("1.2.3.4.5"), std::string("10"), std::string("a..b"), std::string(".a"),
        std::string("-a.b"), std::string("a-.b"), std::string("a b"), std::string("a/b"),
        std::string("h\xC3\xA4"), long_label + ".b", long_name}) {
    EXPECT_FALSE(error_of(text).empty()) << text;
    EXPECT_NE(error_of(text), "name lookup failed") << text;
  }
}

constexpr char kNoName[] = "not a host name";
constexpr char kUnknown[] = "name lookup failed"; // a name, but nobody's

TEST_F(Resolver, ANameHasLettersDigitsDashesAndUnderlines) {
  for (const char good : std::string("azAZ09-_")) {
    EXPECT_EQ(error_of(std::string("x") + good + "x.example"), kUnknown) << good;
  }
  for (const char bad : std::string("`{@[/: ,")) {
    EXPECT_EQ(error_of(std::string("x") + bad + "x.example"), kNoName) << bad;
  }
}

TEST_F(Resolver, ANameMayHaveOneCharacterAndADotAtItsEnd) {
  EXPECT_EQ(error_of("x"), kUnknown);
  EXPECT_EQ(error_of("x."), kUnknown);
  EXPECT_EQ(error_of("x.."), kNoName);
}

TEST_F(Resolver, ALabelDoesNotEndWithADash) {
  EXPECT_EQ(error_of("rcm-"), kNoName);
  EXPECT_EQ(error_of("rcm-.example"), kNoName);
}

TEST_F(Resolver, ANameHas253CharactersAtTheMostAndADotBehindThem) {
  const std::string label = std::string(63, 'a') + ".";
  const std::string longest = label + label + label + std::string(61, 'a');
  ASSERT_EQ(longest.size(), 253U);
  EXPECT_EQ(error_of(longest), kUnknown);
  EXPECT_EQ(error_of(longest + "."), kUnknown);
  EXPECT_EQ(error_of(longest + "a"), kNoName);
  EXPECT_EQ(error_of(longest + "a."), kNoName);
}

} // namespace
