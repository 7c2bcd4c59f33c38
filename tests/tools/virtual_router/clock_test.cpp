#include "platform/api/event_loop.h"
#include "platform/api/system.h"
#include "platform/api/wait.h"
#include "platform/common/loop.h"
#include "platform/common/monotonic.h"
#include "tools/virtual-router/device_folder.h"
#include "tools/virtual-router/text_file.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

using namespace virtual_router;

namespace {

/// A device whose clock runs 1000 times as fast, booted 50 of the machine's milliseconds ago.
class QuickClock : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    folder = new DeviceFolder("");
    setenv("VIRTUAL_ROUTER_DIR", folder->root().c_str(), 1);
    setenv("VIRTUAL_ROUTER_TIME_SCALE", "1000", 1);
    replace_file(folder->path("/run/booted_ms"), std::to_string(rcmd::monotonic_ms() - 50));
  }
  static void TearDownTestSuite() { delete folder; }
  static DeviceFolder* folder;
};

DeviceFolder* QuickClock::folder = nullptr;

TEST_F(QuickClock, UptimeCountsQuicklyFromTheDevicesBoot) {
  const int before = system_uptime();
  EXPECT_GE(before, 50);
  EXPECT_LT(before, 10'000);
  usleep(5000);
  EXPECT_GE(system_uptime(), before + 5);
}

TEST_F(QuickClock, PausesAreShort) {
  const auto start = rcmd::monotonic_ms();
  sleep_seconds(10);
  EXPECT_GE(rcmd::monotonic_ms() - start, 9);
  EXPECT_LT(rcmd::monotonic_ms() - start, 5000);
}

TEST_F(QuickClock, TimersFireEarlyAndNotTooEarly) {
  static bool fired = false;
  RcmTimer timer = {};
  timer.interval = 20;
  timer.callback = [](void*) { fired = true; };
  const auto start = rcmd::monotonic_ms();
  add_event(&timer);
  for (int pass = 0; pass < 1000 && !fired; ++pass)
    rcmd::loop_pass(100);
  EXPECT_TRUE(fired);
  EXPECT_GE(rcmd::monotonic_ms() - start, 19);
  EXPECT_LT(rcmd::monotonic_ms() - start, 5000);
}

TEST_F(QuickClock, WaitingForAnAnswerTakesItsRealTime) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread peer([&] {
    usleep(20'000); // twenty of the device's seconds
    EXPECT_EQ(write(ends[1], "x", 1), 1);
  });
  EXPECT_EQ(waitfor(ends[0], 5), 1);
  peer.join();
  close(ends[0]);
  close(ends[1]);
}

} // namespace
