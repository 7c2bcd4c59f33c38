// The desktop manager in datagram mode, as start-up opens it: what it costs the rest of the daemon
// that its handler leaves every datagram unread.

#include "local/deskmgr.h"

#include "platform/api/event_loop.h"
#include "platform/api/net.h"
#include "tests/local/real_router.h"

#include <chrono>
#include <ctime>

using real::Bytes;
using real::Client;

namespace {

using Clock = std::chrono::steady_clock;

int milliseconds_since(Clock::time_point start) {
  return static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

/// A stand-in for the management socket: takes every datagram, and says -1 of all but "valid".
struct Management {
  int taken = 0;
  int valid = 0;
};

int take_management(FdDescriptor* descriptor) {
  auto* management = static_cast<Management*>(descriptor->arg);
  char bytes[64];
  const ssize_t count =
      net_recvfrom(static_cast<int>(descriptor->fd), bytes, sizeof bytes, 0, nullptr, nullptr);
  management->taken++;
  if (count != 5) {
    return -1;
  }
  management->valid++;
  return 0;
}

class DeskmgrDatagram : public real::RouterFixture {
protected:
  DeskmgrDatagram() {
    opened(rcmd::deskmgr_open(1));
    const int fd = opened(net_socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(1161);
    EXPECT_EQ(net_bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
    register_fd_desc(fd, take_management, &management);
  }
  ~DeskmgrDatagram() override { del_event(&timer); }

  static int calls() { return count(console(), "call deskmgr_handler ... \n"); }

  Management management;
  int fired = 0;
  RcmTimer timer{};
  Client desktop = datagrams_to(5000);
  Client server = datagrams_to(1161);
};

const Bytes kRequest = {0, 0, 0, 0, 0, 3, 0, 1, 0, 0, 0, 12};
const Bytes kValid = {'v', 'a', 'l', 'i', 'd'};
const Bytes kMalformed = {'x'};

TEST_F(DeskmgrDatagram, AnUnreadDatagramCostsAFewCallsAndNoProcessor) {
  ASSERT_TRUE(desktop.send(kRequest));
  const std::clock_t before = std::clock();
  serve_for(700);
  EXPECT_GE(calls(), 1);
  EXPECT_LE(calls(), 3);
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 2);
  EXPECT_TRUE(desktop.received().empty());
}

TEST_F(DeskmgrDatagram, AFloodOfThemCostsNoMoreThanOne) {
  for (int i = 0; i < 500; i++) {
    desktop.send(kRequest); // those that find the socket full are lost, as they may be
  }
  serve_for(300);
  EXPECT_GE(calls(), 1);
  EXPECT_LE(calls(), 2);
}

TEST_F(DeskmgrDatagram, TimersAreServedMeanwhile) {
  ASSERT_TRUE(desktop.send(kRequest));
  ASSERT_TRUE(serve_until([] { return calls() > 0; }));
  timer.arg = &fired;
  timer.callback = [](void* arg) { ++*static_cast<int*>(arg); };
  const auto start = Clock::now();
  for (int round = 1; round <= 20; round++) {
    timer.interval = 0;
    add_event(&timer);
    ASSERT_TRUE(serve_until([&] { return fired == round; }));
  }
  EXPECT_LT(milliseconds_since(start), 1000);
}

TEST_F(DeskmgrDatagram, TheManagementSocketIsServedMeanwhile) {
  ASSERT_TRUE(desktop.send(kRequest));
  ASSERT_TRUE(serve_until([] { return calls() > 0; }));
  const auto start = Clock::now();
  for (int round = 1; round <= 20; round++) {
    ASSERT_TRUE(server.send(kValid));
    ASSERT_TRUE(serve_until([&] { return management.valid == round; }));
  }
  EXPECT_LT(milliseconds_since(start), 1000);
}

TEST_F(DeskmgrDatagram, AFloodOfMalformedDatagramsDoesNotDelayAValidOneByASecond) {
  ASSERT_TRUE(desktop.send(kRequest));
  ASSERT_TRUE(serve_until([] { return calls() > 0; }));
  for (int i = 0; i < 100; i++) {
    ASSERT_TRUE(server.send(kMalformed));
  }
  ASSERT_TRUE(server.send(kValid));
  const auto start = Clock::now();
  EXPECT_TRUE(serve_until([&] { return management.valid == 1; }));
  EXPECT_LT(milliseconds_since(start), 1000);
  EXPECT_EQ(management.taken, 101);
}

} // namespace
