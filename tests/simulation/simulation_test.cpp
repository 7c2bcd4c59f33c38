#include "tests/simulation/simulation.h"

#include "core/context.h"
#include "core/say.h"
#include "core/timers.h"
#include "local/backup_nvram.h"
#include "reporters/netif.h"
#include "reporters/traffic.h"
#include "tests/simulation/daemon_state.h"

#include <gtest/gtest.h>

namespace sim {

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int kSeedsPerTest = 8;
#else
constexpr int kSeedsPerTest = 80;
#endif

class Worlds : public ::testing::TestWithParam<int> {};

TEST_P(Worlds, EveryPromiseIsKept) {
  for (int i = 0; i < kSeedsPerTest; i++) {
    const auto seed = static_cast<std::uint64_t>(GetParam() * kSeedsPerTest + i + 1);
    const Outcome outcome = simulate(seed, false);
    EXPECT_EQ(outcome.violation, "")
        << "reproduce with: simulation --seed " << seed << " --verbose";
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Worlds, ::testing::Range(0, 4));

TEST(Simulation, TheSameSeedGivesTheSameWorld) {
  const Outcome once = simulate(7, false);
  const Outcome again = simulate(7, false);
  EXPECT_EQ(once.device_days, again.device_days);
  EXPECT_EQ(once.counts, again.counts);
}

TEST(DaemonState, VariablesOfEveryRoomAreReset) {
  restore_daemon_state();
  for (const void* variable :
       {static_cast<const void*>(&rcmd::rcm_keepalive), static_cast<const void*>(&rcmd::debug),
        static_cast<const void*>(&rcmd::gps_send_interval),
        static_cast<const void*>(&rcmd::interface_list),
        static_cast<const void*>(&rcmd::nvram_backup_size),
        static_cast<const void*>(&rcmd::traffic_log())}) {
    EXPECT_TRUE(is_daemon_state(variable));
  }
  rcmd::debug = 5;
  rcmd::rcm_keepalive.interval = 7;
  restore_daemon_state();
  EXPECT_EQ(rcmd::debug, 0);
  EXPECT_EQ(rcmd::rcm_keepalive.interval, 0);
}

} // namespace

} // namespace sim
