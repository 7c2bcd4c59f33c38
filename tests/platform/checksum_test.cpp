#include "platform/api/checksum.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

// The definitions, one bit at a time.
std::uint16_t slow16(const std::uint8_t* at, std::size_t length, std::uint16_t value) {
  for (; length > 0; length--, at++) {
    value = static_cast<std::uint16_t>(value ^ *at);
    for (int bit = 0; bit < 8; bit++) {
      value = static_cast<std::uint16_t>((value & 1) != 0 ? (value >> 1) ^ 0x8408 : value >> 1);
    }
  }
  return value;
}

std::uint32_t slow32(const std::uint8_t* at, std::size_t length, std::uint32_t value) {
  for (; length > 0; length--, at++) {
    value ^= *at;
    for (int bit = 0; bit < 8; bit++) {
      value = (value & 1) != 0 ? (value >> 1) ^ 0xEDB88320U : value >> 1;
    }
  }
  return value;
}

TEST(Checksums, TheAgreedTextGivesTheAgreedValues) {
  EXPECT_EQ(crc16("123456789", 9, 0xFFFF), 0x6F91);
  EXPECT_EQ(crc32("123456789", 9, 0xFFFFFFFFU), 0x340BC6D9U);
}

TEST(Checksums, NoBytesGiveTheInitialValue) {
  EXPECT_EQ(crc16(nullptr, 0, 0xFFFF), 0xFFFF);
  EXPECT_EQ(crc16("x", 0, 0x1234), 0x1234);
  EXPECT_EQ(crc32("x", 0, 0x12345678U), 0x12345678U);
}

TEST(Checksums, EveryLengthAndPlaceAgreesWithTheDefinition) {
  std::mt19937 random(1);
  std::vector<std::uint8_t> bytes(1200);
  for (auto& byte : bytes) {
    byte = static_cast<std::uint8_t>(random());
  }
  for (std::size_t length = 0; length < 1100; length += length < 300 ? 1 : 7) {
    const std::size_t at = length % 9;
    const auto start16 = static_cast<std::uint16_t>(random());
    const auto start32 = static_cast<std::uint32_t>(random());
    ASSERT_EQ(crc16(&bytes[at], length, start16), slow16(&bytes[at], length, start16)) << length;
    ASSERT_EQ(crc32(&bytes[at], length, start32), slow32(&bytes[at], length, start32)) << length;
  }
}

TEST(Checksums, ALongTextMayBeFedPieceByPiece) {
  const std::vector<std::uint8_t> bytes(1028, 0x5A);
  for (std::size_t cut : {1U, 13U, 255U, 256U, 900U}) {
    EXPECT_EQ(crc32(&bytes[cut], 1028 - cut, crc32(bytes.data(), cut, 0xFFFFFFFFU)),
              crc32(bytes.data(), 1028, 0xFFFFFFFFU));
    EXPECT_EQ(crc16(&bytes[cut], 1028 - cut, crc16(bytes.data(), cut, 0xFFFF)),
              crc16(bytes.data(), 1028, 0xFFFF));
  }
}

} // namespace
