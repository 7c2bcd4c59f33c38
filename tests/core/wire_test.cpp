#include "core/wire.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace rcmd;

namespace {

// Bytes in place of a value, so that one wrong order cannot cancel another.
template <typename Integer> Integer from_bytes(const char* bytes) {
  Integer integer{};
  std::memcpy(integer.bytes, bytes, sizeof integer.bytes);
  return integer;
}

template <typename Integer> bool is(const Integer& integer, const char* bytes) {
  return std::memcmp(integer.bytes, bytes, sizeof integer.bytes) == 0;
}

TEST(WireIntegers, AreReadInTheirOwnOrder) {
  EXPECT_EQ(from_bytes<be16>("\xF1\xE2"), 0xF1E2);
  EXPECT_EQ(from_bytes<be32>("\xF1\xE2\xD3\xC4"), 0xF1E2D3C4U);
  EXPECT_EQ(from_bytes<le16>("\xF1\xE2"), 0xE2F1);
  EXPECT_EQ(from_bytes<le32>("\xF1\xE2\xD3\xC4"), 0xC4D3E2F1U);
}

TEST(WireIntegers, AreWrittenInTheirOwnOrder) {
  be16 big16{};
  be32 big32{};
  le16 little16{};
  le32 little32{};
  big16 = 0xF1E2;
  big32 = 0xF1E2D3C4U;
  little16 = 0xF1E2;
  little32 = 0xF1E2D3C4U;
  EXPECT_TRUE(is(big16, "\xF1\xE2"));
  EXPECT_TRUE(is(big32, "\xF1\xE2\xD3\xC4"));
  EXPECT_TRUE(is(little16, "\xE2\xF1"));
  EXPECT_TRUE(is(little32, "\xC4\xD3\xE2\xF1"));
}

TEST(WireIntegers, AreWrittenWithoutTouchingWhatFollowsThem) {
  struct {
    be16 big16;
    std::uint8_t behind_big16;
    be32 big32;
    std::uint8_t behind_big32;
    le16 little16;
    std::uint8_t behind_little16;
    le32 little32;
    std::uint8_t behind_little32;
  } record{{}, 0x5A, {}, 0x5A, {}, 0x5A, {}, 0x5A};
  record.big16 = 0xF1E2;
  record.big32 = 0xF1E2D3C4U;
  record.little16 = 0xF1E2;
  record.little32 = 0xF1E2D3C4U;
  EXPECT_EQ(record.behind_big16, 0x5A);
  EXPECT_EQ(record.behind_big32, 0x5A);
  EXPECT_EQ(record.behind_little16, 0x5A);
  EXPECT_EQ(record.behind_little32, 0x5A);
}

} // namespace
