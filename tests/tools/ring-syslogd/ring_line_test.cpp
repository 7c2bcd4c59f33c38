#include "tools/ring-syslogd/ring_line.h"

#include <gtest/gtest.h>
#include <string>

using namespace rcmd;

namespace {

std::string line_of(const std::string& message, std::int64_t uptime_s = 93'784,
                    const char* host = "router") {
  char line[kMaxLineChars + 1];
  const std::size_t length = make_ring_line(line, {uptime_s, host}, message.data(), message.size());
  return {line, length};
}

TEST(RingLine, PriorityAndStampBecomeTokens) {
  EXPECT_EQ(line_of("<30>Sep 10 03:48:04 pppd[123]: link up"),
            "0 1 days 02:03:04 router daemon.info pppd[123]: link up\n");
  EXPECT_EQ(line_of("<191>Jan  1 00:00:00 x: y"), "0 1 days 02:03:04 router local7.debug x: y\n");
  EXPECT_EQ(line_of("<0>k"), "0 1 days 02:03:04 router kern.emerg k\n");
}

TEST(RingLine, WithoutAPriorityItIsUserNotice) {
  for (const char* text : {"<>x", "<192>x", "<1234>x", "<1x>x", "<12", "<", "x"}) {
    EXPECT_EQ(line_of(text), "0 1 days 02:03:04 router user.notice " + std::string(text) + "\n");
  }
}

TEST(RingLine, WhatIsNoStampStays) {
  EXPECT_EQ(line_of("<30>Sep 10 03:48 x: y"),
            "0 1 days 02:03:04 router daemon.info Sep 10 03:48 x: y\n");
}

TEST(RingLine, TheStampMayBeAllThereIs) {
  EXPECT_EQ(line_of("<30>Sep 10 03:48:04 "), "");
  EXPECT_EQ(line_of("<30>Sep 10 03:48:04"),
            "0 1 days 02:03:04 router daemon.info Sep 10 03:48:04\n");
}

TEST(RingLine, NothingIsNoLine) {
  EXPECT_EQ(line_of(""), "");
  EXPECT_EQ(line_of("<30>"), "");
  EXPECT_EQ(line_of("<30> \n\r\n"), "");
  EXPECT_EQ(line_of(std::string("\0\0", 2)), "");
}

TEST(RingLine, ControlCharactersWithinBecomeBlanksAndThoseAtTheEndsGo) {
  EXPECT_EQ(line_of(std::string("<30>a\nb\0c\x7F"
                                "d\xC3\xA4 \n\0",
                                15)),
            "0 1 days 02:03:04 router daemon.info a b c d\xC3\xA4\n");
}

TEST(RingLine, TheTimeIsTheUptime) {
  EXPECT_EQ(line_of("x", 0), "0 0 days 00:00:00 router user.notice x\n");
  EXPECT_EQ(line_of("x", 86'399), "0 0 days 23:59:59 router user.notice x\n");
  EXPECT_EQ(line_of("x", 86'400LL * 400), "0 400 days 00:00:00 router user.notice x\n");
  EXPECT_EQ(line_of("x", -5), "0 0 days 00:00:00 router user.notice x\n");
}

TEST(RingLine, ALongTextIsCutTo1023CharactersWithItsNewline) {
  const std::string line = line_of("<30>" + std::string(3000, 'x'));
  EXPECT_EQ(line.size(), 1023U);
  EXPECT_TRUE(line.ends_with("xxx\n"));
  EXPECT_EQ(line_of("x", 0, std::string(300, 'h').c_str()),
            "0 0 days 00:00:00 " + std::string(64, 'h') + " user.notice x\n");
}

} // namespace
