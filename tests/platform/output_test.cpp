// Writing to the end, over a write(2) that takes what a test lets it take.

#include "platform/common/output.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kFd = 12345;

std::vector<ssize_t> results; // of the next writes to kFd; the last one is for all further ones
std::string written;

} // namespace

extern "C" {
ssize_t __real_write(int fd, const void* data, size_t length);
ssize_t __wrap_write(int fd, const void* data, size_t length) {
  if (fd != kFd) {
    return __real_write(fd, data, length);
  }
  const ssize_t result = std::min(results.front(), static_cast<ssize_t>(length));
  if (results.size() > 1) {
    results.erase(results.begin());
  }
  if (result > 0) {
    written.append(static_cast<const char*>(data), static_cast<size_t>(result));
  }
  errno = EINTR;
  return result;
}
}

namespace {

bool writes(std::vector<ssize_t> given) {
  results = std::move(given);
  written.clear();
  return rcmd::write_all(kFd, "abcdefg", 7);
}

TEST(WritingAll, GoesOnBehindWhatWasTaken) {
  EXPECT_TRUE(writes({3}));
  EXPECT_EQ(written, "abcdefg");
  EXPECT_TRUE(writes({1}));
  EXPECT_EQ(written, "abcdefg");
}

TEST(WritingAll, IsTriedAgainAfterASignal) {
  EXPECT_TRUE(writes({2, -1, -1, 7}));
  EXPECT_EQ(written, "abcdefg");
}

TEST(WritingAll, EndsWhereNothingIsTaken) {
  EXPECT_FALSE(writes({2, 0, 7}));
  EXPECT_EQ(written, "ab");
}

} // namespace
