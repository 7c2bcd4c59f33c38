// What is asked of the C library, exactly: waits, pauses between two looks at a tool, and lookups.

#include "platform/api/convert.h"
#include "platform/api/files.h"
#include "platform/api/process.h"
#include "platform/api/system.h"
#include "platform/api/wait.h"
#include "tests/platform/device_fixture.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <malloc.h>
#include <netdb.h>
#include <poll.h>
#include <vector>

namespace {

bool watching = false; // else the calls below are the C library's

struct Poll {
  nfds_t count;
  int timeout_ms;
};
std::vector<Poll> polls;       // none of them waits
std::vector<int> poll_results; // of the next ones; then 1
std::vector<timespec> pauses;
std::vector<int> pause_results; // of the next pauses, which are none; then they last their time
std::vector<addrinfo> lookups;  // every one succeeds and finds nothing
int freed = 0;

} // namespace

extern "C" {
int __real_poll(pollfd* entries, nfds_t count, int timeout_ms);
int __wrap_poll(pollfd* entries, nfds_t count, int timeout_ms) {
  if (!watching) {
    return __real_poll(entries, count, timeout_ms);
  }
  polls.push_back({count, timeout_ms});
  int result = 1;
  if (!poll_results.empty()) {
    result = poll_results.front();
    poll_results.erase(poll_results.begin());
  }
  entries[0].revents = result > 0 ? POLLIN : 0;
  return result;
}

int __real_nanosleep(const timespec* request, timespec* left);
int __wrap_nanosleep(const timespec* request, timespec* left) {
  if (watching) {
    pauses.push_back(*request);
    if (!pause_results.empty()) {
      const int result = pause_results.front();
      pause_results.erase(pause_results.begin());
      errno = result < 0 ? EINTR : errno;
      *left = {7, 8}; // what is left of an interrupted one
      return result;
    }
  }
  return __real_nanosleep(request, left);
}

int __real_getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                       addrinfo** found);
int __wrap_getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                       addrinfo** found) {
  if (!watching) {
    return __real_getaddrinfo(name, service, hints, found);
  }
  lookups.push_back(*hints);
  *found = nullptr;
  return 0;
}

void __real_freeaddrinfo(addrinfo* found);
void __wrap_freeaddrinfo(addrinfo* found) {
  freed++;
  __real_freeaddrinfo(found);
}
}

namespace {

class SystemCalls : public device_test::Device {
protected:
  SystemCalls() {
    watching = true;
    polls.clear();
    poll_results.clear();
    pauses.clear();
    pause_results.clear();
    lookups.clear();
    freed = 0;
  }
  ~SystemCalls() override { watching = false; }

  static int eval(const std::string& tool, const char* output, int timeout_s, int* pid = nullptr) {
    std::string name = tool;
    char* const arguments[] = {name.data(), nullptr};
    return _eval(arguments, output, timeout_s, pid);
  }
};

TEST_F(SystemCalls, AWaitLastsItsSeconds) {
  EXPECT_EQ(waitfor(0, 5), 1);
  ASSERT_EQ(polls.size(), 1U);
  EXPECT_EQ(polls[0].count, 1U);
  EXPECT_LE(polls[0].timeout_ms, 5000);
  EXPECT_GE(polls[0].timeout_ms, 4990);
}

TEST_F(SystemCalls, AWaitOfNoSecondsIsNone) {
  EXPECT_EQ(waitfor(0, 0), 1);
  EXPECT_EQ(waitfor(0, -3), 1);
  ASSERT_EQ(polls.size(), 2U);
  EXPECT_EQ(polls[0].timeout_ms, 0);
  EXPECT_EQ(polls[1].timeout_ms, 0);
}

TEST_F(SystemCalls, AVeryLongWaitIsCutIntoPieces) {
  EXPECT_EQ(waitfor(0, 3'000'000), 1);
  ASSERT_EQ(polls.size(), 1U);
  EXPECT_EQ(polls[0].timeout_ms, INT_MAX);
}

TEST_F(SystemCalls, AVeryLongWaitGoesOnBehindItsFirstPiece) {
  poll_results = {0, 0, 1};
  errno = 0;
  EXPECT_EQ(waitfor(0, 6'000'000), 1);
  EXPECT_EQ(polls.size(), 3U);
}

TEST_F(SystemCalls, AWaitForWhatIsNotOpenTellsSo) {
  watching = false;
  errno = 0;
  EXPECT_EQ(waitfor(12345, 5), -1);
  EXPECT_EQ(errno, EBADF);
}

// The device's clock runs sixty times as fast in this program.
TEST_F(SystemCalls, APauseOfTheDeviceIsASixtiethOfItsSeconds) {
  pause_results = {0};
  sleep_seconds(6);
  pause_results = {0};
  sleep_seconds(93);
  ASSERT_EQ(pauses.size(), 2U);
  EXPECT_EQ(pauses[0].tv_sec, 0);
  EXPECT_EQ(pauses[0].tv_nsec, 100'000'000);
  EXPECT_EQ(pauses[1].tv_sec, 1);
  EXPECT_EQ(pauses[1].tv_nsec, 550'000'000);
}

TEST_F(SystemCalls, AnInterruptedPauseGoesOnForWhatIsLeft) {
  pause_results = {-1, 0};
  sleep_seconds(6);
  ASSERT_EQ(pauses.size(), 2U);
  EXPECT_EQ(pauses[1].tv_sec, 7);
  EXPECT_EQ(pauses[1].tv_nsec, 8);
}

TEST_F(SystemCalls, AnInterruptionOfLongAgoDoesNotProlongAPause) {
  pause_results = {0, 0};
  errno = EINTR;
  sleep_seconds(6);
  EXPECT_EQ(pauses.size(), 1U);
}

TEST_F(SystemCalls, AToolWithATimeLimitIsLookedAtEveryTenMilliseconds) {
  make_tool("slow", "exec /bin/sleep 0.05");
  EXPECT_EQ(eval("slow", nullptr, 5), 0);
  ASSERT_FALSE(pauses.empty());
  for (const timespec& pause : pauses) {
    EXPECT_EQ(pause.tv_sec, 0);
    EXPECT_EQ(pause.tv_nsec, 10'000'000);
  }
}

TEST_F(SystemCalls, NobodysNumberIsNotWaitedForWhileAToolRuns) {
  make_tool("quick", "exit 3");
  int pid = 0;
  ASSERT_EQ(eval("quick", nullptr, 0, &pid), 0);
  EXPECT_EQ(wait_process(0), -1);
  EXPECT_EQ(wait_process(pid), 3);
}

TEST_F(SystemCalls, RunningToolsOverAndOverDoesNotGrowTheHeap) {
  make_tool("quick", "exit 0");
  eval("quick", ">/tmp/output", 0);
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 50; i++) { // a list of file actions has hundreds of bytes
    EXPECT_EQ(eval("quick", ">/tmp/output", 0), 0);
  }
  EXPECT_LT(mallinfo2().uordblks, before + 8000);
}

TEST_F(SystemCalls, ALookupAsksForDatagramsOverIpv4) {
  in_addr address{};
  EXPECT_STREQ(atoaddr("router.example", 0, &address), "name lookup failed") << "nothing found";
  ASSERT_EQ(lookups.size(), 1U);
  EXPECT_EQ(lookups[0].ai_family, AF_INET);
  EXPECT_EQ(lookups[0].ai_socktype, SOCK_DGRAM);
}

TEST_F(SystemCalls, WhatALookupFoundIsGivenBack) {
  watching = false;
  in_addr address{};
  EXPECT_EQ(atoaddr("localhost", 0, &address), nullptr);
  EXPECT_EQ(freed, 1);
}

// Reading a stream
// ---------------------------------------------------------------------------------

/// What the next reads of the stream give: bytes, an error number, or its end.
struct Piece {
  std::string bytes;
  int error = 0;
};
std::vector<Piece> pieces;

ssize_t give(void*, char* place, std::size_t room) {
  if (pieces.empty()) {
    return 0;
  }
  const Piece piece = pieces.front();
  pieces.erase(pieces.begin());
  if (piece.error != 0) {
    errno = piece.error;
    return -1;
  }
  EXPECT_LE(piece.bytes.size(), room);
  std::memcpy(place, piece.bytes.data(), piece.bytes.size());
  return static_cast<ssize_t>(piece.bytes.size());
}

/// Reads records of two bytes. @return the bytes of those that came whole
std::string read_records(std::vector<Piece> given, std::size_t count) {
  pieces = std::move(given);
  std::FILE* stream = fopencookie(nullptr, "r", {give, nullptr, nullptr, nullptr});
  std::string place(2 * count + 2, '.');
  const std::size_t read = safe_fread(place.data(), 2, count, stream);
  std::fclose(stream);
  EXPECT_EQ(place.substr(2 * count), "..");
  return place.substr(0, 2 * read);
}

TEST(Streams, AreReadOnAfterASignal) {
  EXPECT_EQ(read_records({{"ab"}, {"", EINTR}, {"cd"}, {"", EINTR}, {"ef"}}, 3), "abcdef");
}

TEST(Streams, GiveNoMoreThanIsAskedFor) {
  EXPECT_EQ(read_records({{"ab"}, {"cd"}}, 1), "ab");
}

TEST(Streams, EndAtTheirEnd) {
  EXPECT_EQ(read_records({{"ab"}}, 3), "ab");
  EXPECT_EQ(read_records({{"ab"}, {"", EINTR}}, 3), "ab");
}

TEST(Streams, EndAtAnyOtherError) {
  EXPECT_EQ(read_records({{"ab"}, {"", EIO}, {"cd"}}, 3), "ab");
}

} // namespace
