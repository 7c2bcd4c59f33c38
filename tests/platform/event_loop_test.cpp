// The loop with a clock that the test moves, and real sockets on loopback.

#include "platform/api/event_loop.h"

#include "platform/api/net.h"
#include "platform/common/loop.h"
#include "tests/platform/loop_clock.h"

#include <arpa/inet.h>
#include <climits>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <time.h>
#include <unistd.h>
#include <vector>

using loop_test::now_ms;
using rcmd::loop_pass;

namespace {

// Timers ----------------------------------------------------------------------------------------

struct Alarm {
  RcmTimer timer{};
  int fired = 0;
  std::function<void()> action;

  Alarm() {
    timer.arg = this;
    timer.callback = [](void* arg) {
      auto* self = static_cast<Alarm*>(arg);
      self->fired++;
      if (self->action) {
        self->action();
      }
    };
  }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;
  ~Alarm() { del_event(&timer); }

  void arm(std::intptr_t seconds) {
    timer.interval = seconds;
    add_event(&timer);
  }
};

int pass() {
  return loop_pass(0);
}

TEST(LoopTimers, ATimerFiresOnceAfterItsInterval) {
  Alarm alarm;
  alarm.arm(5);
  now_ms += 4999;
  pass();
  EXPECT_EQ(alarm.fired, 0);
  now_ms += 1;
  pass();
  EXPECT_EQ(alarm.fired, 1);
  now_ms += 3'600'000;
  pass();
  EXPECT_EQ(alarm.fired, 1);
}

TEST(LoopTimers, ZeroFiresAtTheNextPass) {
  Alarm alarm;
  alarm.arm(0);
  EXPECT_EQ(alarm.fired, 0);
  pass();
  EXPECT_EQ(alarm.fired, 1);
}

TEST(LoopTimers, ANegativeIntervalCountsAsZero) {
  Alarm alarm;
  alarm.arm(-7);
  pass();
  EXPECT_EQ(alarm.fired, 1);
}

TEST(LoopTimers, ARecordThatRearmsItselfWithZeroFiresOnceASecond) {
  Alarm alarm;
  alarm.action = [&] { alarm.arm(0); };
  alarm.arm(0);
  for (int i = 0; i < 50; i++) {
    pass();
  }
  EXPECT_EQ(alarm.fired, 1);
  for (int i = 0; i < 40; i++) {
    now_ms += 250;
    pass();
    pass();
  }
  EXPECT_EQ(alarm.fired, 11);
}

TEST(LoopTimers, TheLongestIntervalIsKeptToTheSecond) {
  Alarm alarm;
  alarm.arm(INT_MAX);
  now_ms += std::int64_t{INT_MAX} * 1000 - 1;
  pass();
  EXPECT_EQ(alarm.fired, 0);
  now_ms += 1;
  pass();
  EXPECT_EQ(alarm.fired, 1);
}

TEST(LoopTimers, CancellingAnUnarmedTimerIsHarmless) {
  Alarm alarm;
  EXPECT_EQ(del_event(&alarm.timer), 0);
  alarm.arm(1);
  EXPECT_EQ(del_event(&alarm.timer), 0);
  EXPECT_EQ(del_event(&alarm.timer), 0);
  now_ms += 1000;
  pass();
  EXPECT_EQ(alarm.fired, 0);
}

TEST(LoopTimers, CancellingOneTimerLeavesThoseAroundItArmed) {
  Alarm first;
  Alarm middle;
  Alarm last;
  first.arm(1);
  middle.arm(2);
  last.arm(3);
  EXPECT_EQ(del_event(&middle.timer), 0);
  now_ms += 3000;
  pass();
  EXPECT_EQ(first.fired, 1);
  EXPECT_EQ(middle.fired, 0);
  EXPECT_EQ(last.fired, 1);
}

TEST(LoopTimers, ArmingAgainReplacesTheDeadline) {
  Alarm alarm;
  alarm.arm(1);
  alarm.arm(10);
  now_ms += 1000;
  pass();
  EXPECT_EQ(alarm.fired, 0);
  now_ms += 9000;
  pass();
  EXPECT_EQ(alarm.fired, 1);
}

TEST(LoopTimers, TheSoonestFiresFirstAndEqualOnesInTheOrderOfArming) {
  std::string order;
  Alarm a;
  Alarm b;
  Alarm c;
  a.action = [&] { order += "a"; };
  b.action = [&] { order += "b"; };
  c.action = [&] { order += "c"; };
  b.arm(2);
  c.arm(2);
  a.arm(1);
  now_ms += 5000;
  pass();
  EXPECT_EQ(order, "abc");
}

TEST(LoopTimers, ACallbackCancelsATimerThatIsDueInTheSamePass) {
  Alarm first;
  Alarm second;
  first.action = [&] { del_event(&second.timer); };
  first.arm(1);
  second.arm(1);
  now_ms += 1000;
  pass();
  EXPECT_EQ(first.fired, 1);
  EXPECT_EQ(second.fired, 0);
}

TEST(LoopTimers, WhatACallbackArmsWithZeroWaitsForTheNextPass) {
  Alarm first;
  Alarm second;
  first.action = [&] { second.arm(0); };
  first.arm(0);
  pass();
  EXPECT_EQ(second.fired, 0);
  pass();
  EXPECT_EQ(second.fired, 1);
}

TEST(LoopTimers, ACallbackPutsOffATimerThatIsDueInTheSamePass) {
  Alarm first;
  Alarm second;
  first.action = [&] { second.arm(3); };
  first.arm(1);
  second.arm(1);
  now_ms += 1000;
  pass();
  EXPECT_EQ(second.fired, 0);
  now_ms += 3000;
  pass();
  EXPECT_EQ(second.fired, 1);
}

TEST(LoopTimers, TwoHundredTimersNeedNoRoomOfTheLoop) {
  std::vector<std::unique_ptr<Alarm>> alarms;
  for (int i = 0; i < 200; i++) {
    alarms.push_back(std::make_unique<Alarm>());
    alarms.back()->arm(200 - i);
  }
  now_ms += 100'000;
  EXPECT_EQ(pass(), 100);
  now_ms += 100'000;
  EXPECT_EQ(pass(), 100);
}

// Descriptors -----------------------------------------------------------------------------------

/// A watched descriptor whose handler is the test's.
struct Door {
  int fd;
  int calls = 0;
  std::function<int(int fd)> action;

  explicit Door(int descriptor, std::function<int(int fd)> what = {})
      : fd(descriptor), action(std::move(what)) {
    EXPECT_EQ(watch(), 0);
  }
  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;
  ~Door() {
    unregister_fd_desc(fd);
    close(fd);
  }

  int watch() {
    return register_fd_desc(
        fd,
        [](FdDescriptor* descriptor) {
          auto* self = static_cast<Door*>(descriptor->arg);
          self->calls++;
          return self->action ? self->action(static_cast<int>(descriptor->fd)) : 0;
        },
        this);
  }
};

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

std::uint16_t port_of(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

int bound_socket(int type) {
  const int fd = net_socket(AF_INET, type, 0);
  const sockaddr_in address = loopback(0);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

void send_to(int fd, const std::string& text) {
  static const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port_of(fd));
  EXPECT_EQ(sendto(sender, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                   sizeof address),
            static_cast<ssize_t>(text.size()));
}

std::string take_from(int fd) {
  char buffer[64];
  const ssize_t count = net_recvfrom(fd, buffer, sizeof buffer, MSG_DONTWAIT, nullptr, nullptr);
  return {buffer, static_cast<std::size_t>(count > 0 ? count : 0)};
}

TEST(LoopDescriptors, TheHandlerGetsTheDescriptorInTheFirstWordAndTheArgumentInTheThird) {
  Door door(bound_socket(SOCK_DGRAM));
  unregister_fd_desc(door.fd);
  static std::intptr_t words[3];
  register_fd_desc(
      door.fd,
      [](FdDescriptor* descriptor) {
        std::memcpy(words, descriptor, sizeof words);
        return take_from(static_cast<int>(descriptor->fd)).empty() ? -1 : 0;
      },
      &door);
  send_to(door.fd, "x");
  EXPECT_EQ(pass(), 1);
  EXPECT_EQ(words[0], door.fd);
  EXPECT_EQ(words[2], reinterpret_cast<std::intptr_t>(&door));
}

TEST(LoopDescriptors, EachPassServesEachReadyDescriptorOnce) {
  Door first(bound_socket(SOCK_DGRAM), [](int fd) { return take_from(fd).empty() ? -1 : 0; });
  Door second(bound_socket(SOCK_DGRAM), [](int fd) { return take_from(fd).empty() ? -1 : 0; });
  for (int i = 0; i < 3; i++) {
    send_to(first.fd, "x");
  }
  send_to(second.fd, "x");
  EXPECT_EQ(pass(), 2);
  EXPECT_EQ(first.calls, 1);
  EXPECT_EQ(second.calls, 1);
  EXPECT_EQ(pass(), 1);
  EXPECT_EQ(pass(), 1);
  EXPECT_EQ(pass(), 0);
}

TEST(LoopDescriptors, AHandlerUnregistersAnotherThatIsReadyInTheSamePass) {
  Door first(bound_socket(SOCK_DGRAM), [](int fd) { return take_from(fd).empty() ? -1 : 0; });
  Door second(bound_socket(SOCK_DGRAM));
  first.action = [&](int fd) {
    unregister_fd_desc(second.fd);
    return take_from(fd).empty() ? -1 : 0;
  };
  send_to(first.fd, "x");
  send_to(second.fd, "x");
  pass();
  EXPECT_EQ(second.calls, 0);
}

TEST(LoopDescriptors, AReusedNumberIsNotServedForItsPredecessor) {
  Door first(bound_socket(SOCK_DGRAM), [](int fd) { return take_from(fd).empty() ? -1 : 0; });
  Door second(bound_socket(SOCK_DGRAM));
  send_to(first.fd, "x");
  send_to(second.fd, "x");
  std::unique_ptr<Door> heir;
  first.action = [&](int fd) {
    const int number = second.fd;
    close(number); // closed before it is unregistered, as the desktop manager does
    unregister_fd_desc(number);
    const int fresh = bound_socket(SOCK_DGRAM);
    EXPECT_EQ(fresh, number);
    heir = std::make_unique<Door>(fresh, [](int) -> int {
      ADD_FAILURE() << "nothing came for this one, and a read would block";
      return 0;
    });
    second.fd = -1;
    return take_from(fd).empty() ? -1 : 0;
  };
  pass();
  pass();
  EXPECT_EQ(first.calls, 1);
  EXPECT_EQ(heir->calls, 0);
}

TEST(LoopDescriptors, ANewcomerIsNotServedForTheOneWhoseRowItTook) {
  Door first(bound_socket(SOCK_DGRAM), [](int fd) { return take_from(fd).empty() ? -1 : 0; });
  Door second(bound_socket(SOCK_DGRAM));
  send_to(first.fd, "x");
  send_to(second.fd, "x");
  std::unique_ptr<Door> newcomer;
  first.action = [&](int fd) {
    unregister_fd_desc(second.fd); // and its datagram stays there
    newcomer = std::make_unique<Door>(bound_socket(SOCK_DGRAM));
    return take_from(fd).empty() ? -1 : 0;
  };
  pass();
  pass();
  EXPECT_EQ(second.calls, 0);
  EXPECT_EQ(newcomer->calls, 0);
}

TEST(LoopDescriptors, ADatagramThatAnEarlierHandlerTookIsNotAskedForAgain) {
  Door first(bound_socket(SOCK_DGRAM));
  Door second(bound_socket(SOCK_DGRAM));
  first.action = [&](int fd) {
    take_from(fd);
    take_from(second.fd);
    return 0;
  };
  send_to(first.fd, "x");
  send_to(second.fd, "x");
  pass();
  EXPECT_EQ(second.calls, 0);
}

TEST(LoopDescriptors, ADatagramThatATimerTookIsNotAskedForAgain) {
  Door door(bound_socket(SOCK_DGRAM));
  Alarm alarm;
  alarm.action = [&] { take_from(door.fd); };
  alarm.arm(0);
  send_to(door.fd, "x");
  pass();
  EXPECT_EQ(alarm.fired, 1);
  EXPECT_EQ(door.calls, 0);
}

TEST(LoopDescriptors, TheTableHoldsSixtyFour) {
  std::vector<std::unique_ptr<Door>> doors;
  for (int i = 0; i < 64; i++) {
    doors.push_back(std::make_unique<Door>(bound_socket(SOCK_DGRAM)));
  }
  const int extra = bound_socket(SOCK_DGRAM);
  EXPECT_EQ(register_fd_desc(
                extra, [](FdDescriptor*) { return 0; }, nullptr),
            -1);
  doors.pop_back();
  EXPECT_EQ(register_fd_desc(
                extra, [](FdDescriptor*) { return 0; }, nullptr),
            0);
  EXPECT_EQ(unregister_fd_desc(extra), 0);
  EXPECT_EQ(unregister_fd_desc(extra), -1);
  close(extra);
}

// Unconsumed events -----------------------------------------------------------------------------

TEST(LoopRests, AnUnreadDatagramCostsAFewCallsWhileAllElseIsServed) {
  Door desktop(bound_socket(SOCK_DGRAM),
               [](int fd) { return net_accept(fd, nullptr, nullptr) < 0 ? -1 : 0; });
  Door management(bound_socket(SOCK_DGRAM), [](int fd) { return take_from(fd).empty() ? -1 : 0; });
  Alarm alarm;
  alarm.action = [&] { alarm.arm(1); };
  alarm.arm(1);
  send_to(desktop.fd, "a datagram that nobody reads");
  for (int i = 0; i < 1000; i++) { // ten seconds
    now_ms += 10;
    if (i % 10 == 0) {
      send_to(management.fd, "x");
    }
    pass();
    EXPECT_EQ(management.calls, i / 10 + 1) << "served in the pass in which it came";
  }
  EXPECT_EQ(alarm.fired, 10);
  EXPECT_LE(desktop.calls, 6);
  EXPECT_GE(desktop.calls, 3);
}

TEST(LoopRests, AnUnreadDatagramDoesNotWakeTheProcessor) {
  Door desktop(bound_socket(SOCK_DGRAM),
               [](int fd) { return net_accept(fd, nullptr, nullptr) < 0 ? -1 : 0; });
  send_to(desktop.fd, "x");
  EXPECT_EQ(loop_pass(1000), 1);
  timespec before{};
  timespec after{};
  clock_gettime(CLOCK_MONOTONIC, &before);
  EXPECT_EQ(loop_pass(20), 0);
  clock_gettime(CLOCK_MONOTONIC, &after);
  const long waited_ms =
      (after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1'000'000;
  EXPECT_GE(waited_ms, 19);
}

TEST(LoopRests, AQuickenedClockShortensTimersAndNoRest) {
  loop_test::speed = 60;
  Door desktop(bound_socket(SOCK_DGRAM), [](int) { return -1; });
  Alarm alarm;
  alarm.arm(30);
  send_to(desktop.fd, "x");
  pass();
  now_ms += 499;
  pass();
  EXPECT_EQ(desktop.calls, 1);
  EXPECT_EQ(alarm.fired, 0);
  now_ms += 1;
  pass();
  EXPECT_EQ(desktop.calls, 2);
  EXPECT_EQ(alarm.fired, 1);
  loop_test::speed = 1;
}

TEST(LoopRests, AFloodOfMalformedDatagramsDelaysNothing) {
  std::string valid;
  Door management(bound_socket(SOCK_DGRAM), [&](int fd) {
    const std::string text = take_from(fd);
    if (text == "valid") {
      valid = text;
      return 0;
    }
    return -1;
  });
  Door other(bound_socket(SOCK_DGRAM), [](int fd) { return take_from(fd).empty() ? -1 : 0; });
  for (int i = 0; i < 100; i++) {
    send_to(management.fd, i % 2 == 0 ? "malformed" : ""); // an empty one is consumed as well
  }
  send_to(management.fd, "valid");
  const std::int64_t start = now_ms;
  for (int passes = 1; valid.empty(); passes++) {
    ASSERT_LE(passes, 101);
    send_to(other.fd, "x");
    Alarm once;
    once.arm(0);
    pass();
    EXPECT_EQ(other.calls, passes);
    EXPECT_EQ(once.fired, 1);
  }
  EXPECT_EQ(now_ms, start) << "no rest was needed";
}

TEST(LoopRests, ASuccessEndsTheRests) {
  bool take = false;
  Door door(bound_socket(SOCK_DGRAM), [&](int fd) {
    if (take) {
      take_from(fd);
    }
    return take ? 0 : -1;
  });
  send_to(door.fd, "x");
  for (int i = 0; i < 200; i++) {
    now_ms += 100;
    pass();
  }
  take = true;
  now_ms += 8000;
  pass();
  const int calls = door.calls;
  take = false;
  send_to(door.fd, "x");
  pass();
  EXPECT_EQ(door.calls, calls + 1) << "at once";
  now_ms += 500;
  pass();
  EXPECT_EQ(door.calls, calls + 2) << "after the shortest rest";
}

TEST(LoopRests, AConnectionThatCannotBeAcceptedRests) {
  Door listener(bound_socket(SOCK_STREAM), [](int) { return -1; });
  listen(listener.fd, 5);
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port_of(listener.fd));
  ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  for (int i = 0; i < 20; i++) {
    pass();
  }
  EXPECT_EQ(listener.calls, 1);
  int connection = -1;
  listener.action = [&](int fd) {
    connection = net_accept(fd, nullptr, nullptr);
    return connection < 0 ? -1 : 0;
  };
  now_ms += 500;
  pass();
  EXPECT_GE(connection, 0);
  close(connection);
  close(client);
}

TEST(LoopRests, AStreamThatEndedAndIsKeptOpenDoesNotSpin) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  Door door(ends[0], [](int fd) {
    char byte = 0;
    return net_read(fd, &byte, 1) > 0 ? 0 : -1;
  });
  close(ends[1]);
  for (int i = 0; i < 20; i++) {
    pass();
  }
  EXPECT_EQ(door.calls, 1);
}

TEST(LoopRests, AClosedDescriptorThatIsStillRegisteredDoesNotSpin) {
  const int fd = bound_socket(SOCK_DGRAM);
  int calls = 0;
  register_fd_desc(
      fd, [](FdDescriptor* d) { return ++*static_cast<int*>(d->arg), 0; }, &calls);
  close(fd);
  loop_pass(0);
  timespec before{};
  timespec after{};
  clock_gettime(CLOCK_MONOTONIC, &before);
  loop_pass(20);
  clock_gettime(CLOCK_MONOTONIC, &after);
  EXPECT_GE((after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1'000'000,
            19);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(unregister_fd_desc(fd), 0);
}

TEST(LoopRests, AnErrorThatNobodyFetchesDoesNotSpin) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Door writer(ends[1]); // returns 0 and reads nothing
  close(ends[0]);       // the writing end now reports an error, and never anything to read
  for (int i = 0; i < 20; i++) {
    pass();
  }
  EXPECT_EQ(writer.calls, 1);
}

TEST(LoopRests, RegisteringANumberAgainTakesThePlaceOfItsPredecessor) {
  Door door(bound_socket(SOCK_DGRAM), [](int) { return -1; });
  send_to(door.fd, "x");
  pass();
  pass();
  EXPECT_EQ(door.calls, 1);
  EXPECT_EQ(door.watch(), 0);
  pass();
  EXPECT_EQ(door.calls, 2) << "a new registration does not rest";
  EXPECT_EQ(unregister_fd_desc(door.fd), 0);
  EXPECT_EQ(unregister_fd_desc(door.fd), -1) << "it stood in the table once";
}

} // namespace
