#include "core/timers.h"

#include "tests/fake_platform/fixture.h"

using namespace rcmd;
using fake::world;

namespace {

class Timers : public fake::Fixture {
protected:
  Timers() {
    timer.interval = 7;
    world().on_timer = [this](const std::string& call, const RcmTimer& given) {
      EXPECT_EQ(&given, &timer);
      calls.push_back(call + " " + std::to_string(given.interval));
      return 42;
    };
  }

  RcmTimer timer{};
  std::vector<std::string> calls;
};

TEST_F(Timers, ReArmingCancelsStoresTheIntervalAndArmsInThisOrder) {
  rearm(timer, 30);
  EXPECT_EQ(calls, (std::vector<std::string>{"del 7", "add 30"}));
  EXPECT_TRUE(world().armed(&timer));
}

TEST_F(Timers, ReArmingGivesTheResultOfTheArming) {
  EXPECT_EQ(rearm(timer, 30), 42);
}

TEST_F(Timers, CancellingDisarmsAndLeavesTheInterval) {
  rearm(timer, 30);
  cancel(timer);
  EXPECT_FALSE(world().armed(&timer));
  EXPECT_EQ(timer.interval, 30);
}

} // namespace
