#include "core/text.h"

#include "core/context.h"
#include "core/say.h"
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

TEST_F(Texts, DiagnosticsAreSilentUnlessDebugIsOn) {
  debug = 0;
  diag("quiet\n");
  debug = 1;
  diag("seq=%d\n", 5);
  debug = 0;
  EXPECT_EQ(fake::world().diagnostics(), "seq=5\n");
}

TEST_F(Texts, TheConsoleIsWrittenWhateverDebugSaysAndTellsWhetherItCould) {
  EXPECT_TRUE(console("len = %d \n", 12));
  fake::world().console_broken = true;
  EXPECT_FALSE(console("lost"));
  EXPECT_EQ(fake::world().console(), "len = 12 \n");
}

} // namespace
