#include "platform/api/checksum.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Bit by bit, as the definitions read.
std::uint16_t plain_crc16(const std::vector<std::uint8_t>& bytes, std::uint16_t value) {
  for (const std::uint8_t byte : bytes) {
    value = static_cast<std::uint16_t>(value ^ byte);
    for (int bit = 0; bit < 8; bit++) {
      value = static_cast<std::uint16_t>((value & 1) != 0 ? (value >> 1) ^ 0x8408 : value >> 1);
    }
  }
  return value;
}

std::uint32_t plain_crc32(const std::vector<std::uint8_t>& bytes, std::uint32_t value) {
  for (const std::uint8_t byte : bytes) {
    value ^= byte;
    for (int bit = 0; bit < 8; bit++) {
      value = (value & 1) != 0 ? (value >> 1) ^ 0xEDB88320U : value >> 1;
    }
  }
  return value;
}

TEST(Checksums, TheCommonCheckTextGivesTheKnownValues) {
  EXPECT_EQ(crc16("123456789", 9, 0xFFFF), 0x6F91);
  EXPECT_EQ(crc32("123456789", 9, 0xFFFFFFFF), 0x340BC6D9U);
}

TEST(Checksums, NoBytesGiveTheInitialValue) {
  EXPECT_EQ(crc16("", 0, 0x1234), 0x1234);
  EXPECT_EQ(crc32("", 0, 0x12345678), 0x12345678U);
}

TEST(Checksums, EveryLengthUpToAFragmentsAgreesWithTheDefinition) {
  std::vector<std::uint8_t> bytes;
  for (unsigned i = 0; i < 1100; i++) {
    EXPECT_EQ(crc16(bytes.data(), bytes.size(), 0xFFFF), plain_crc16(bytes, 0xFFFF)) << i;
    EXPECT_EQ(crc32(bytes.data(), bytes.size(), 0xFFFFFFFF), plain_crc32(bytes, 0xFFFFFFFF)) << i;
    bytes.push_back(static_cast<std::uint8_t>(i * 73 + 200));
  }
}

TEST(Checksums, ATextMayBeFedPieceByPiece) {
  const char text[] = "The quick brown fox jumps over the lazy dog";
  for (std::size_t cut = 0; cut < sizeof text; cut++) {
    const std::uint32_t first = crc32(text, cut, 0xFFFFFFFF);
    EXPECT_EQ(crc32(text + cut, sizeof text - cut, first), crc32(text, sizeof text, 0xFFFFFFFF));
  }
}

} // namespace
