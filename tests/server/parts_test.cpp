#include "server/faults.h"
#include "server/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace server;
using testing::ElementsAre;

namespace {

TEST(BadLink, AGoodLinkDeliversEverythingOnceAndAtOnce) {
  Faults faults({});
  EXPECT_THAT(faults.delays_ms(true), ElementsAre(0));
  EXPECT_THAT(faults.delays_ms(false), ElementsAre(0));
}

TEST(BadLink, OnlyAnswersAreHeldBack) {
  Faults faults({.delay_ms = 20});
  EXPECT_THAT(faults.delays_ms(true), ElementsAre(20));
  EXPECT_THAT(faults.delays_ms(false), ElementsAre(0));
}

TEST(BadLink, FaultsComeAsOftenAsAsked) {
  Faults faults({.drop = 30, .duplicate = 30, .reorder = 30, .seed = 7});
  int lost = 0;
  int doubled = 0;
  int late = 0;
  for (int i = 0; i < 10000; i++) {
    const auto delays = faults.delays_ms(true);
    lost += delays.empty() ? 1 : 0;
    doubled += delays.size() == 2 ? 1 : 0;
    late += std::any_of(delays.begin(), delays.end(), [](int delay) { return delay > 0; }) ? 1 : 0;
    for (const int delay : delays) {
      EXPECT_TRUE(delay == 0 || (delay >= 20 && delay <= 60)) << delay;
    }
  }
  EXPECT_NEAR(lost, 3000, 200);
  EXPECT_NEAR(doubled, 2100, 200); // of those that are not lost
  EXPECT_GT(late, 2000);
}

TEST(BadLink, ASeedGivesTheSameLinkEveryTime) {
  Faults one({.drop = 50, .seed = 3});
  Faults two({.drop = 50, .seed = 3});
  for (int i = 0; i < 100; i++) {
    EXPECT_EQ(one.delays_ms(true), two.delays_ms(true));
  }
}

TEST(Texts, TablesLineUp) {
  EXPECT_EQ(table({{"A", "LONGER"}, {"wide", ""}, {"x", "y"}}), "A     LONGER\n"
                                                                "----  ------\n"
                                                                "wide\n"
                                                                "x     y\n");
}

TEST(Texts, ADeviceCannotSteerTheTerminal) {
  EXPECT_EQ(printable("a\x1b[31m\r\n\x7f\xc3\xa4"), "a\\x1b[31m\\x0d\\x0a\\x7f\xc3\xa4");
}

TEST(Texts, TimesAndSizesAreForPeople) {
  EXPECT_EQ(utc_text(1000093684), "2001-09-10 03:48:04");
  EXPECT_EQ(utc_text(0), "-");
  EXPECT_EQ(span_text(119), "119 s");
  EXPECT_EQ(span_text(120), "2 min");
  EXPECT_EQ(span_text(7200), "2 h");
  EXPECT_EQ(span_text(200000), "2 d");
  EXPECT_EQ(bytes_text(1023), "1023 B");
  EXPECT_EQ(bytes_text(1536), "1.5 KiB");
  EXPECT_EQ(bytes_text(-2048), "-2.0 KiB");
}

TEST(Texts, SerialsGoIntoUrls) {
  EXPECT_EQ(percent_encoded("A/b c&%"), "A%2Fb%20c%26%25");
}

} // namespace
