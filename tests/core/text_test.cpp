#include "core/text.h"

#include "tests/fake_platform/fixture.h"

#include <climits>
#include <cstring>

using namespace rcmd;

namespace {

class Texts : public fake::Fixture {};

TEST_F(Texts, APieceThatDoesNotFitIsLeftOutWhole) {
  char buffer[8];
  std::memset(buffer, 'x', sizeof buffer);
  TextWriter writer{buffer, 7, 0};
  EXPECT_TRUE(writer.append("%s", "abc"));
  EXPECT_FALSE(writer.append("%s", "defg"));
  EXPECT_EQ(writer.used, 3U);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_TRUE(writer.append("%s", "def"));
  EXPECT_STREQ(buffer, "abcdef");
  EXPECT_EQ(buffer[7], 'x');
}

TEST_F(Texts, AFieldIsZeroBehindAShortTextAndUnterminatedWhenFull) {
  char field[5] = {'1', '2', '3', '4', '5'};
  copy_field(field, 4, "ab");
  EXPECT_EQ(std::memcmp(field,
                        "ab\0\0"
                        "5",
                        5),
            0);
  copy_field(field, 4, "abcdef");
  EXPECT_EQ(std::memcmp(field, "abcd5", 5), 0);
}

TEST_F(Texts, ADecimalThatDoesNotFitIsTheNearestThatDoes) {
  EXPECT_EQ(decimal(" -12abc"), -12);
  EXPECT_EQ(decimal("abc"), 0);
  EXPECT_EQ(decimal("99999999999999999999"), INT_MAX);
  EXPECT_EQ(decimal("-99999999999999999999"), INT_MIN);
}

TEST_F(Texts, AnAbsentKeyReadsAsTheEmptyText) {
  fake::world().nvram["set"] = "value";
  EXPECT_STREQ(nvram_text("set"), "value");
  EXPECT_STREQ(nvram_text("unset"), "");
}

TEST_F(Texts, AFieldEndsAtTheTextsTerminator) {
  char field[4] = {'1', '2', '3', '4'};
  copy_field(field, 4, "a\0bc");
  EXPECT_EQ(std::memcmp(field, "a\0\0\0", 4), 0);
}

TEST_F(Texts, APieceThatFitsWithItsTerminatorIsTaken) {
  char buffer[5] = {'x', 'x', 'x', 'x', 'x'};
  TextWriter writer{buffer, 4, 0};
  EXPECT_TRUE(writer.append("%d%c", 12, '3'));
  EXPECT_EQ(writer.used, 3U);
  EXPECT_EQ(std::memcmp(buffer, "123\0x", 5), 0);
  EXPECT_TRUE(writer.append("%s", ""));
  EXPECT_FALSE(writer.append("%s", "4"));
  EXPECT_STREQ(buffer, "123");
}

TEST_F(Texts, NothingIsWrittenWhereThereIsNoRoom) {
  char buffer[2] = {'x', 'x'};
  TextWriter writer{buffer, 0, 0};
  EXPECT_FALSE(writer.append("%s", ""));
  EXPECT_EQ(std::memcmp(buffer, "xx", 2), 0);
}

TEST_F(Texts, ADecimalIsAnExactIntUpToItsBounds) {
  EXPECT_EQ(decimal("2147483647"), INT_MAX);
  EXPECT_EQ(decimal("2147483648"), INT_MAX);
  EXPECT_EQ(decimal("2147483646"), INT_MAX - 1);
  EXPECT_EQ(decimal("-2147483648"), INT_MIN);
  EXPECT_EQ(decimal("-2147483649"), INT_MIN);
  EXPECT_EQ(decimal("-2147483647"), INT_MIN + 1);
}

TEST_F(Texts, ADecimalHasNoOtherBase) {
  EXPECT_EQ(decimal("010"), 10);
  EXPECT_EQ(decimal("0x10"), 0);
}

} // namespace
