#include "transfer/tool.h"

#include "tests/fake_platform/fixture.h"

using fake::world;

namespace {

constexpr const char* kTool[] = {"killall", "pppd", nullptr};

class Tools : public fake::Fixture {};

TEST_F(Tools, AreRunToTheConsoleWithoutATimeLimitAndGiveTheirStatus) {
  world().on_tool = [](const fake::ToolRun&) { return 3; };
  EXPECT_EQ(rcmd::run_to_console(kTool), 3);
  ASSERT_EQ(world().tools.size(), 1U);
  EXPECT_EQ(world().tools[0].line(), "killall pppd");
  EXPECT_EQ(world().tools[0].output, ">/dev/console");
  EXPECT_EQ(world().tools[0].timeout_s, 0);
}

} // namespace
