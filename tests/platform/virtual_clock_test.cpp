// A virtual router whose clock runs a thousand times as fast as the machine's.

#include "platform/api/system.h"
#include "platform/common/hooks.h"
#include "platform/common/monotonic.h"
#include "tests/platform/device_fixture.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <sys/time.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class QuickClock : public device_test::Device {
protected:
  static void SetUpTestSuite() { setenv("VIRTUAL_ROUTER_TIME_SCALE", "1000", 1); }
};

TEST_F(QuickClock, ASpanOfTheDevicesTimeIsRoundedUpToTheMachines) {
  EXPECT_EQ(rcmd::machine_ms(0), 0);
  EXPECT_EQ(rcmd::machine_ms(1), 1);
  EXPECT_EQ(rcmd::machine_ms(5000), 5);
  EXPECT_EQ(rcmd::machine_ms(5001), 6);
}

TEST_F(QuickClock, AUptimeCountsTheDevicesSecondsSinceItsBoot) {
  const std::int64_t now_ms = rcmd::monotonic_ms();
  write("run/booted_ms", std::to_string(now_ms - 7));
  const std::int32_t uptime_s = system_uptime();
  EXPECT_GE(uptime_s, 7);
  EXPECT_LE(uptime_s, 7 + rcmd::monotonic_ms() - now_ms);
}

TEST_F(QuickClock, ASleepLastsTheDevicesSecondsWhateverSignalsArrive) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  struct sigaction before = {};
  sigaction(SIGALRM, &action, &before);
  itimerval often = {{0, 3'000}, {0, 3'000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const auto start = steady_clock::now();
  sleep_seconds(20);
  const auto taken = steady_clock::now() - start;
  often = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_GE(taken, milliseconds(20));
  EXPECT_LT(taken, milliseconds(5'000));
}

TEST_F(QuickClock, TheTimeOfDayIsTheMachines) {
  const std::time_t before = std::time(nullptr);
  const std::int64_t now = wall_clock();
  EXPECT_GE(now, before);
  EXPECT_LE(now, std::time(nullptr));
}

} // namespace
