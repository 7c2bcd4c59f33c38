// The working copy by itself, in memory of the test's own. Words of its head: magic at 0, version
// at 4, the file's bytes at 8, the number of slots at 12, the end of the records at 16.

#include "platform/common/working_copy.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using rcmd::WorkingCopy;

namespace {

constexpr std::uint32_t kGuard = 0;                       // what follows the file
constexpr std::size_t kBytes = 32 + 1024 * 4 + 65536 + 4; // the smallest file
constexpr std::size_t kFirstRecord = 32 + 1024 * 4;

class Copy : public testing::Test {
protected:
  Copy() : words_(kBytes / 4 + 4, kGuard) {
    copy_.base = reinterpret_cast<char*>(words_.data());
    copy_.bytes = kBytes;
    copy_.format(1);
  }
  std::uint32_t& word(std::size_t offset) { return words_[offset / 4]; }
  bool put(const std::string& name, const char* value) {
    return copy_.put(name.c_str(), name.size(), value);
  }
  [[nodiscard]] std::string find(const std::string& name) const {
    const char* value = copy_.find(name.c_str());
    return value == nullptr ? "(absent)" : value;
  }
  /// Whether the copy is sound with this word in that place, which is mended afterwards.
  bool sound_with(std::size_t offset, std::uint32_t value) {
    const std::uint32_t before = word(offset);
    word(offset) = value;
    const bool sound = copy_.sound();
    word(offset) = before;
    return sound;
  }

  std::vector<std::uint32_t> words_;
  WorkingCopy copy_;
};

TEST_F(Copy, TheSmallestHoldsAThousandSlotsAnd64Kilobytes) {
  EXPECT_EQ(WorkingCopy::size_for(1, 0), kBytes);
}

TEST_F(Copy, AFreshOneIsSound) {
  EXPECT_TRUE(copy_.sound());
}

TEST_F(Copy, EachWordOfItsHeadCounts) {
  EXPECT_FALSE(sound_with(0, 0x4E565258));
  EXPECT_FALSE(sound_with(4, 2));
  EXPECT_FALSE(sound_with(8, kBytes + 4));
  EXPECT_FALSE(sound_with(12, 512)) << "too few slots";
  EXPECT_FALSE(sound_with(12, 1000)) << "no power of two";
  EXPECT_FALSE(sound_with(12, 32768)) << "more slots than there is room for";
  EXPECT_FALSE(sound_with(16, kFirstRecord - 4)) << "records that end among the slots";
  EXPECT_TRUE(sound_with(16, kBytes - 4)) << "full";
  EXPECT_FALSE(sound_with(16, kBytes)) << "over the last word";
  EXPECT_FALSE(sound_with(kBytes - 4, 0x01000000)) << "the last word is zero";
  EXPECT_TRUE(copy_.sound());
}

TEST_F(Copy, AFileIsMadeOfWholeWords) {
  copy_.bytes = kBytes + 1;
  word(8) = kBytes + 1;
  EXPECT_FALSE(copy_.sound());
}

TEST_F(Copy, ThreeQuartersOfItsSlotsMayBeTaken) {
  for (int i = 0; i < 768; i++) {
    ASSERT_TRUE(put("name" + std::to_string(i), "1")) << i;
  }
  EXPECT_FALSE(put("one more", "1"));
  EXPECT_TRUE(put("name5", "2")) << "a new value needs no slot";
  EXPECT_EQ(find("name5"), "2");
  EXPECT_EQ(find("one more"), "(absent)");
}

TEST_F(Copy, ARecordMayFillItToTheLastWord) {
  const std::size_t room = kBytes - 4 - kFirstRecord;
  std::string value(room - 4 - 4 - 1, 'v'); // hash, "abc=", NUL
  value.push_back('\0');
  value += "behind";
  EXPECT_FALSE(put("abcd", value.c_str())) << "a byte too long";
  EXPECT_TRUE(put("abc", value.c_str()));
  EXPECT_EQ(find("abc").size(), room - 9);
  EXPECT_TRUE(copy_.sound());
  EXPECT_EQ(word(kBytes), kGuard);
}

// What a writer that was killed leaves behind the records.
TEST_F(Copy, ARemovedNameIsRemovedOverOldBytesToo) {
  put("abc", "1");
  put("de", "2");
  std::memset(copy_.base + word(16), 'x', 64);
  EXPECT_TRUE(put("abc", nullptr));
  std::memset(copy_.base + word(16), 'x', 64);
  EXPECT_TRUE(put("de", nullptr));
  EXPECT_EQ(find("abc"), "(absent)");
  EXPECT_EQ(find("de"), "(absent)");
  std::memset(copy_.base + word(16), '\0', 64);
  std::uint32_t position = 0;
  EXPECT_EQ(copy_.next(&position), nullptr);
  EXPECT_TRUE(put("abc", "3"));
  EXPECT_EQ(find("abc"), "3");
  EXPECT_EQ(word(20), 2U) << "in the slot that it had: two are taken";
}

} // namespace
