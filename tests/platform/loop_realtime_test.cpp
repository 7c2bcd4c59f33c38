// What the loop costs and how it answers on a real clock: a process of its own runs do_fd.

#include "platform/api/event_loop.h"

#include "platform/api/net.h"
#include "platform/api/wait.h"
#include "tests/platform/device_fixture.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <sys/wait.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

class LoopOnARealClock : public device_test::Device {
protected:
  LoopOnARealClock()
      : desktop_(bound_socket()), management_(bound_socket()), client_(bound_socket()) {}
  ~LoopOnARealClock() override {
    if (loop_ > 0) {
      kill(loop_, SIGKILL);
      waitpid(loop_, nullptr, 0);
    }
    for (const int fd : {desktop_, management_, client_}) {
      close(fd);
    }
  }

  static int bound_socket() {
    const int fd = net_socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
  }

  void send(int to, const std::string& text) const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(to, reinterpret_cast<sockaddr*>(&address), &length);
    sendto(client_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&address),
           length);
  }

  /// The desktop manager's handler, which reads nothing in its datagram mode.
  static int accept_one(FdDescriptor* descriptor) {
    return net_accept(static_cast<int>(descriptor->fd), nullptr, nullptr) < 0 ? -1 : 0;
  }

  /// Answers "valid" and finds everything else malformed.
  static int answer_valid(FdDescriptor* descriptor) {
    char text[16] = "";
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int fd = static_cast<int>(descriptor->fd);
    net_recvfrom(fd, text, sizeof text - 1, 0, reinterpret_cast<sockaddr*>(&peer), &length);
    if (std::strcmp(text, "valid") != 0) {
      return -1;
    }
    net_sendto(fd, "yes", 3, 0, reinterpret_cast<const sockaddr*>(&peer), length);
    return 0;
  }

  /// Runs the loop with a timer whose interval nobody has set.
  void start_loop() {
    loop_ = start_child();
    if (loop_ == 0) {
      static RcmTimer timer;
      timer.arg = &timer;
      timer.callback = [](void* arg) { add_event(static_cast<RcmTimer*>(arg)); };
      add_event(&timer);
      register_fd_desc(desktop_, accept_one, nullptr);
      register_fd_desc(management_, answer_valid, nullptr);
      do_fd();
    }
  }

  /// A loop that never sleeps never wakes either: what it costs shows here.
  [[nodiscard]] std::chrono::nanoseconds processor_time() const {
    clockid_t clock{};
    timespec time{};
    EXPECT_EQ(clock_getcpuclockid(loop_, &clock), 0);
    EXPECT_EQ(clock_gettime(clock, &time), 0);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  }

  [[nodiscard]] int wake_ups() const {
    std::ifstream status("/proc/" + std::to_string(loop_) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("voluntary_ctxt_switches:")) {
        return std::stoi(line.substr(24));
      }
    }
    return -1;
  }

  int desktop_;
  int management_;
  int client_;
  pid_t loop_ = -1;
};

TEST_F(LoopOnARealClock, AnUnreadDatagramAndAnUnsetIntervalCostAFewWakeUpsASecond) {
  start_loop();
  send(desktop_, "a datagram that nobody reads");
  send(management_, "valid");
  ASSERT_GT(waitfor(client_, 10), 0) << "the loop runs";
  const int before = wake_ups();
  const auto time_before = processor_time();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LE(wake_ups() - before, 4) << "in 0.3 s";
  EXPECT_LT(processor_time() - time_before, std::chrono::milliseconds(10)) << "in 0.3 s";
}

TEST_F(LoopOnARealClock, AFloodDelaysNoValidDatagramByMoreThanASecond) {
  start_loop();
  send(desktop_, "a datagram that nobody reads");
  const auto end = Clock::now() + std::chrono::milliseconds(600);
  int answers = 0;
  auto longest = Clock::duration::zero();
  while (Clock::now() < end) {
    const auto asked = Clock::now();
    do { // one that finds the queue full is lost, as on any network, and sent again
      send(management_, "valid");
      for (int i = 0; i < 200; i++) {
        send(management_, i % 2 == 0 ? "malformed" : "");
        send(desktop_, "more of the same");
      }
    } while (waitfor(client_, 0) == 0 && Clock::now() < asked + std::chrono::seconds(20));
    longest = std::max(longest, Clock::now() - asked);
    char text[8];
    while (recv(client_, text, sizeof text, MSG_DONTWAIT) > 0) {
      answers++;
    }
  }
  EXPECT_GT(answers, 0);
  EXPECT_LT(longest, std::chrono::seconds(1));
}

} // namespace
