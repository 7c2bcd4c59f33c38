#include "core/context.h"

#include "core/say.h"

#include <gtest/gtest.h>

namespace {

// Taken before any test or fixture sets them.
const int gps_send_interval_at_load = rcmd::gps_send_interval;
const int debug_at_load = rcmd::debug;

TEST(Settings, ThePositionIntervalIsAMinuteUntilStartUpReadsIt) {
  EXPECT_EQ(gps_send_interval_at_load, 60);
}

TEST(Settings, DiagnosticsAreOffUntilTheOptionAsksForThem) {
  EXPECT_EQ(debug_at_load, 0);
}

} // namespace
