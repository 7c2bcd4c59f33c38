// How long the loop lets poll(2) wait, and how long a descriptor rests. What poll is asked is noted
// here; it never blocks, and the clock stands still until a test moves it.

#include "platform/api/event_loop.h"
#include "platform/api/net.h"
#include "platform/common/loop.h"
#include "tests/platform/loop_clock.h"

#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

using loop_test::now_ms;
using rcmd::loop_pass;

namespace {

struct Question {
  nfds_t count;
  int timeout_ms;
  bool operator==(const Question&) const = default;
};

std::vector<Question>* questions = nullptr; // null: poll waits as it is asked to

} // namespace

extern "C" {
int __real_poll(pollfd* entries, nfds_t count, int timeout_ms);

int __wrap_poll(pollfd* entries, nfds_t count, int timeout_ms) {
  if (questions == nullptr) {
    return __real_poll(entries, count, timeout_ms);
  }
  questions->push_back({count, timeout_ms});
  return __real_poll(entries, count, 0);
}
}

namespace {

/// One end of a pair of sockets, watched; the test writes into the other end.
class Pipe {
public:
  explicit Pipe(std::function<int(Pipe&)> action) : action_(std::move(action)) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends_), 0);
    watch();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    unregister_fd_desc(ends_[0]);
    close(ends_[0]);
    close(ends_[1]);
  }

  void watch() {
    EXPECT_EQ(register_fd_desc(
                  ends_[0],
                  [](FdDescriptor* descriptor) {
                    auto* self = static_cast<Pipe*>(descriptor->arg);
                    self->calls++;
                    return self->action_(*self);
                  },
                  this),
              0);
  }
  void put() const { EXPECT_EQ(write(ends_[1], "x", 1), 1); }
  void take() const { // through the platform, which tells the loop
    char byte = 0;
    EXPECT_EQ(net_recvfrom(ends_[0], &byte, 1, 0, nullptr, nullptr), 1);
  }
  void take_unseen() const {
    char byte = 0;
    EXPECT_EQ(read(ends_[0], &byte, 1), 1);
  }
  [[nodiscard]] int fd() const { return ends_[0]; }

  int calls = 0;

private:
  std::function<int(Pipe&)> action_;
  int ends_[2] = {-1, -1};
};

int leave_it(Pipe&) {
  return -1;
}

struct Alarm {
  RcmTimer timer{};
  int fired = 0;

  explicit Alarm(std::intptr_t interval_s) {
    timer.interval = interval_s;
    timer.arg = this;
    timer.callback = [](void* arg) { static_cast<Alarm*>(arg)->fired++; };
    EXPECT_EQ(add_event(&timer), 0);
  }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;
  ~Alarm() { del_event(&timer); }
};

class LoopWaits : public testing::Test {
protected:
  LoopWaits() { questions = &asked; }
  ~LoopWaits() override { questions = nullptr; }

  std::vector<Question> pass(int max_wait_ms) {
    asked.clear();
    loop_pass(max_wait_ms);
    return asked;
  }

  std::vector<Question> asked;
};

using Questions = std::vector<Question>;

TEST_F(LoopWaits, WithNothingToDoTheyHaveNoEnd) {
  EXPECT_EQ(pass(-1), (Questions{{0, -1}}));
}

TEST_F(LoopWaits, LastUntilTheNextTimerToTheMillisecond) {
  const Alarm alarm(5);
  EXPECT_EQ(pass(-1), (Questions{{0, 5000}}));
  now_ms += 4999;
  EXPECT_EQ(pass(-1), (Questions{{0, 1}}));
}

TEST_F(LoopWaits, LastNoLongerThanTheCallerAllows) {
  const Alarm alarm(5);
  EXPECT_EQ(pass(20), (Questions{{0, 20}}));
}

TEST_F(LoopWaits, AreLeftOutInAPassThatFiresATimer) {
  const Alarm alarm(0);
  EXPECT_EQ(pass(1000), (Questions{{0, 0}}));
  EXPECT_EQ(alarm.fired, 1);
}

TEST_F(LoopWaits, LastUntilTheEndOfARest) {
  Pipe pipe(leave_it);
  pipe.put();
  EXPECT_EQ(pass(-1), (Questions{{1, -1}}));
  EXPECT_EQ(pass(-1), (Questions{{0, 500}}));
  now_ms += 200;
  EXPECT_EQ(pass(-1), (Questions{{0, 300}}));
}

TEST_F(LoopWaits, TheFirstOfAPassIsServedUnaskedAndEachFurtherOneAskedForAlone) {
  Pipe first([](Pipe& pipe) { return pipe.take(), 0; });
  Pipe second([](Pipe& pipe) { return pipe.take(), 0; });
  first.put();
  EXPECT_EQ(pass(0), (Questions{{2, 0}}));
  first.put();
  second.put();
  EXPECT_EQ(pass(0), (Questions{{2, 0}, {1, 0}}));
  EXPECT_EQ(first.calls, 2);
  EXPECT_EQ(second.calls, 1);
}

// Rests ------------------------------------------------------------------------------------------

TEST_F(LoopWaits, RestsDoubleFromHalfASecondToEightSeconds) {
  Pipe pipe(leave_it);
  pipe.put();
  std::vector<int> called_at;
  for (int ms = 0; ms <= 24000; ms++) {
    const int before = pipe.calls;
    pass(0);
    if (pipe.calls != before) {
      called_at.push_back(ms);
    }
    now_ms++;
  }
  EXPECT_EQ(called_at, (std::vector<int>{0, 500, 1500, 3500, 7500, 15500, 23500}));
}

TEST_F(LoopWaits, BehindASuccessTheShortestRestIsHalfASecondAgain) {
  bool take = true;
  Pipe pipe([&](Pipe& self) { return take ? (self.take(), 0) : -1; });
  pipe.put();
  pass(0);
  take = false;
  pipe.put();
  pass(0);
  EXPECT_EQ(pass(-1), (Questions{{0, 500}}));
}

TEST_F(LoopWaits, WhatWasTakenInAnEarlierCallDoesNotSpareARest) {
  int calls = 0;
  Pipe pipe([&](Pipe& self) {
    if (calls++ == 0) {
      self.take();
    }
    return -1;
  });
  pipe.put();
  pipe.put();
  pass(0);
  EXPECT_EQ(calls, 1);
  pass(0);
  EXPECT_EQ(calls, 2);
  pass(0);
  EXPECT_EQ(calls, 2) << "it rests";
}

TEST_F(LoopWaits, AHandlerIsTrustedWhenItSaysThatItServedSomething) {
  Pipe pipe([](Pipe& self) { return self.take_unseen(), 0; });
  pipe.put();
  pipe.put();
  pass(0);
  pass(0);
  EXPECT_EQ(pipe.calls, 2);
}

TEST_F(LoopWaits, ADescriptorThatItsHandlerRegisteredAgainDoesNotRestForIt) {
  Pipe pipe([](Pipe& self) {
    unregister_fd_desc(self.fd());
    self.watch();
    return -1;
  });
  pipe.put();
  pass(0);
  pass(0);
  EXPECT_EQ(pipe.calls, 2);
}

// Bounds -----------------------------------------------------------------------------------------

TEST_F(LoopWaits, AnIntervalOfOneSecondIsOneSecond) {
  Alarm alarm(1);
  now_ms += 999;
  pass(0);
  EXPECT_EQ(alarm.fired, 0);
  now_ms += 1;
  pass(0);
  EXPECT_EQ(alarm.fired, 1);
  EXPECT_EQ(del_event(&alarm.timer), 0);
}

TEST_F(LoopWaits, ATimerBetweenTwoOthersIsCancelledAlone) {
  const Alarm first(1);
  Alarm second(2);
  const Alarm third(3);
  del_event(&second.timer);
  now_ms += 3000;
  pass(0);
  EXPECT_EQ(first.fired, 1);
  EXPECT_EQ(second.fired, 0);
  EXPECT_EQ(third.fired, 1);
}

TEST_F(LoopWaits, DescriptorZeroMayBeWatched) {
  EXPECT_EQ(register_fd_desc(
                0, [](FdDescriptor*) { return 0; }, nullptr),
            0);
  EXPECT_EQ(unregister_fd_desc(0), 0);
}

// Connections ------------------------------------------------------------------------------------

/// A listening socket at which so many peers wait; the platform accepts them.
class Server {
public:
  explicit Server(int peers) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un any{AF_UNIX, {}}; // a name of the kernel's choice
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&any), sizeof(sa_family_t)), 0);
    EXPECT_EQ(listen(fd_, peers), 0);
    sockaddr_un name{};
    socklen_t length = sizeof name;
    EXPECT_EQ(getsockname(fd_, reinterpret_cast<sockaddr*>(&name), &length), 0);
    for (int i = 0; i < peers; i++) {
      peers_.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
      EXPECT_EQ(connect(peers_.back(), reinterpret_cast<const sockaddr*>(&name), length), 0);
    }
    EXPECT_EQ(register_fd_desc(
                  fd_,
                  [](FdDescriptor* descriptor) {
                    auto* self = static_cast<Server*>(descriptor->arg);
                    self->accepted = net_accept(static_cast<int>(descriptor->fd), nullptr, nullptr);
                    self->calls++;
                    EXPECT_EQ(net_close(self->accepted), 0);
                    return -1; // accepted, and of no use
                  },
                  this),
              0);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() {
    unregister_fd_desc(fd_);
    close(fd_);
    for (const int peer : peers_) {
      close(peer);
    }
  }

  int calls = 0;
  int accepted = -1;

private:
  int fd_;
  std::vector<int> peers_;
};

TEST_F(LoopWaits, AConnectionThatWasAcceptedSparesItsServerTheRest) {
  Server server(2);
  pass(0);
  pass(0);
  EXPECT_EQ(server.calls, 2);
}

TEST_F(LoopWaits, AConnectionMayHaveTheNumberZero) {
  Server server(2);
  const int saved = fcntl(0, F_DUPFD_CLOEXEC, 100);
  close(0);
  pass(0);
  EXPECT_EQ(server.accepted, 0);
  pass(0);
  EXPECT_EQ(server.calls, 2);
  dup2(saved, 0);
  close(saved);
}

// The rest of the sockets' services
// ----------------------------------------------------------------

TEST(Sockets, ASendIsOrdinaryDataAndTellsItsLength) {
  Pipe pipe(leave_it);
  EXPECT_EQ(net_send(pipe.fd(), "abc", 3, 0), 3);
}

TEST(Sockets, ClosingTellsWhetherThereWasSomethingToClose) {
  const int fd = net_socket(AF_UNIX, SOCK_DGRAM, 0);
  EXPECT_EQ(net_close(fd), 0);
  EXPECT_EQ(net_close(fd), -1);
}

TEST(Sockets, ADatagramsLengthIsTheResultOfItsSending) {
  Pipe pipe(leave_it);
  EXPECT_EQ(net_sendto(pipe.fd(), "abc", 3, 0, nullptr, 0), 3);
}

TEST(Sockets, ASendToAPeerThatHasGoneFailsAndEndsNoProcess) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  close(ends[1]);
  EXPECT_EQ(net_sendto(ends[0], "abc", 3, 0, nullptr, 0), -1);
  close(ends[0]);
}

TEST(Sockets, OptionsAndListeningTellWhetherTheyWorked) {
  const int fd = net_socket(AF_INET, SOCK_STREAM, 0);
  const int on = 1;
  EXPECT_EQ(net_setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
  EXPECT_EQ(net_listen(fd, 5), 0);
  net_close(fd);
  EXPECT_EQ(net_setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), -1);
  EXPECT_EQ(net_listen(fd, 5), -1);
}

} // namespace
