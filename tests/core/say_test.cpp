#include "core/say.h"

#include "tests/fake_platform/fixture.h"

using namespace rcmd;

namespace {

class Saying : public fake::Fixture {
protected:
  ~Saying() override { debug = 0; }
};

TEST_F(Saying, DiagnosticsAreSilentUnlessDebugIsGreaterThanZero) {
  for (const int level : {-1, 0, 1, 2}) {
    debug = level;
    diag("level %d\n", level);
  }
  EXPECT_EQ(fake::world().diagnostics(), "level 1\nlevel 2\n");
}

TEST_F(Saying, SilentDiagnosticsWriteNothingNotEvenAnEmptyPiece) {
  debug = 0;
  diag("quiet\n");
  EXPECT_TRUE(fake::world().events.empty());
}

TEST_F(Saying, TheConsoleIsWrittenWhateverDebugSaysAndTellsWhetherItCould) {
  debug = 0;
  EXPECT_TRUE(console("len = %d \n", 12));
  fake::world().console_broken = true;
  EXPECT_FALSE(console("lost"));
  EXPECT_EQ(fake::world().console(), "len = 12 \n");
}

TEST_F(Saying, ATextIsCutBehind9215Characters) {
  debug = 1;
  const std::string whole(9215, 'w');
  diag("%s", whole.c_str());
  EXPECT_EQ(fake::world().diagnostics(), whole);
  fake::world().events.clear();
  diag("%s", (whole + "x").c_str());
  EXPECT_EQ(fake::world().diagnostics(), whole);
  console("%s", (whole + "xyz").c_str());
  EXPECT_EQ(fake::world().console(), whole);
}

TEST_F(Saying, ATextThatCannotBeWrittenDownIsEmpty) {
  debug = 1;
  diag("before");
  diag("%ls", L"\x263A"); // no character of the plain locale
  EXPECT_EQ(fake::world().diagnostics(), "before");
  EXPECT_TRUE(console("%ls", L"\x263A"));
  EXPECT_EQ(fake::world().console(), "");
}

} // namespace
