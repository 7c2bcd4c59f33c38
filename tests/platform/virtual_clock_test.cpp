// A virtual router whose clock runs a thousand times as fast as the machine's.

#include "platform/api/system.h"
#include "tests/platform/device_fixture.h"

#include <chrono>
#include <csignal>
#include <sys/time.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class QuickClock : public device_test::Device {
protected:
  static void SetUpTestSuite() { setenv("VIRTUAL_ROUTER_TIME_SCALE", "1000", 1); }
};

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

} // namespace
