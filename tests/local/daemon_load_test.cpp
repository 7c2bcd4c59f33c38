// The daemon itself on a virtual router, with all its servers open and enrolled with a server that
// the test plays: what it costs while nothing is to be done, and how long an order of the server
// takes while each of the three ports is flooded.

#include "platform/api/checksum.h"
#include "platform/api/wait.h"
#include "platform/virtual/device.h"
#include "tests/local/real_router.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using real::Bytes;
using real::Client;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kTypeAt = 28; ///< two bytes each: type, flags, checksum, length
constexpr std::size_t kFlagsAt = 30;

void put16(Bytes& bytes, std::size_t at, unsigned value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value & 0xFF);
}

unsigned get16(const Bytes& bytes, std::size_t at) {
  return static_cast<unsigned>(bytes[at] << 8 | bytes[at + 1]);
}

/// The empty ring of the router's syslog daemon, under the key that the router in `folder` has.
class EmptyRing {
public:
  explicit EmptyRing(const std::string& folder) {
    const key_t key = rcmd::device_ipc_key(folder.c_str(), 0x414E4547);
    memory_ = shmget(key, 4096, IPC_CREAT | 0600); // the kernel fills it with zeros
    semaphores_ = semget(key, 2, IPC_CREAT | 0600);
    const std::int32_t size = 4096 - 12;
    void* at = shmat(memory_, nullptr, 0);
    EXPECT_GE(semaphores_, 0);
    EXPECT_NE(at, reinterpret_cast<void*>(-1));
    if (at != reinterpret_cast<void*>(-1)) {
      *static_cast<std::int32_t*>(at) = size;
      shmdt(at);
    }
  }
  EmptyRing(const EmptyRing&) = delete;
  EmptyRing& operator=(const EmptyRing&) = delete;
  ~EmptyRing() {
    shmctl(memory_, IPC_RMID, nullptr);
    semctl(semaphores_, 0, IPC_RMID);
  }
  /// The process that last read the ring.
  [[nodiscard]] pid_t last_reader() const { return semctl(semaphores_, 0, GETPID); }

private:
  int memory_;
  int semaphores_;
};

class DaemonUnderLoad : public real::RouterFixture {
protected:
  DaemonUnderLoad() : server_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    setting("lan0_ifname", "br0");
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(1162);
    inet_pton(AF_INET, address().c_str(), &own.sin_addr);
    EXPECT_EQ(::bind(server_, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    start_daemon();
    enrol();
  }
  ~DaemonUnderLoad() override {
    kill(daemon_, SIGKILL);
    waitpid(daemon_, nullptr, 0);
    close(server_);
  }

  /// An order that the daemon acknowledges and does not know.
  [[nodiscard]] static Bytes order(std::uint8_t number) {
    Bytes bytes(36, 0);
    bytes[27] = number;
    put16(bytes, kTypeAt, 0x0300);
    put16(bytes, 32, 0xFFFF);
    return bytes;
  }

  /// Gives orders for a while, `flood` running meanwhile. One that finds its queue full is lost, as
  /// on any network, and given again. @return the longest time that one of them took
  Clock::duration slowest_order(const std::function<void()>& flood) {
    const Client client = datagrams_to(1161);
    const auto end = Clock::now() + milliseconds(400);
    auto longest = Clock::duration::zero();
    int answers = 0;
    for (std::uint8_t number = 1; Clock::now() < end; number++) {
      const auto asked = Clock::now();
      do {
        client.send(order(number));
        flood();
      } while (!answered(client, number) && Clock::now() < asked + std::chrono::seconds(20));
      longest = std::max(longest, Clock::now() - asked);
      answers++;
    }
    EXPECT_GT(answers, 1);
    return longest;
  }

  /// How often the daemon has gone to sleep; it wakes as often.
  [[nodiscard]] int wake_ups() const {
    std::ifstream status("/proc/" + std::to_string(daemon_) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("voluntary_ctxt_switches:")) {
        return std::stoi(line.substr(24));
      }
    }
    return -1;
  }
  /// The processor time that the daemon has had.
  [[nodiscard]] std::chrono::nanoseconds processor_time() const {
    clockid_t clock{};
    timespec time{};
    EXPECT_EQ(clock_getcpuclockid(daemon_, &clock), 0);
    EXPECT_EQ(clock_gettime(clock, &time), 0);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  }

  static int calls_of_the_desktop_manager() {
    return count(console(), "call deskmgr_handler ... \n");
  }
  /// Waits for what the daemon does in a moment. @return false after ten seconds
  static bool comes_true(const std::function<bool()>& condition) {
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (!condition()) {
      if (Clock::now() > end) {
        return false;
      }
      std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
  }

private:
  void start_daemon() {
    const pid_t parent = getpid();
    daemon_ = fork();
    if (daemon_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() == parent) {
        execl(PROGRAM_DIR "/rcmd-virtual", "rcmd-virtual", "-m", "lab", "-s", address().c_str(),
              nullptr);
      }
      _exit(127);
    }
  }

  /// Answers what the daemon asks for until its last report, the status, is acknowledged; the log
  /// interval is nowhere set, so that the reading of the ring shows the end of it.
  void enrol() const {
    ASSERT_TRUE(comes_true([&] {
      sockaddr_in device{};
      socklen_t length = sizeof device;
      Bytes packet(8192);
      const ssize_t count = recvfrom(server_, packet.data(), packet.size(), MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&device), &length);
      if (count >= 36) {
        const Bytes answer = answer_to(packet);
        sendto(server_, answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&device),
               length);
      }
      return ring_.last_reader() == daemon_;
    })) << "the daemon has not enrolled";
  }

  static Bytes answer_to(const Bytes& packet) {
    std::string payload;
    if (get16(packet, kTypeAt) == 11) {
      payload = "20240101000030"; // the first traffic sample is half a minute away
    } else if (get16(packet, kTypeAt) == 14) {
      payload = "keepalive_interval=60&keepalive_maxretries=10";
    }
    Bytes bytes(packet.begin(), packet.begin() + 36);
    put16(bytes, kFlagsAt, 1);
    put16(bytes, 32, crc16(payload.data(), payload.size(), 0xFFFF));
    put16(bytes, 34, static_cast<unsigned>(payload.size()));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
  }

  /// Takes what has come. @return whether the order's acknowledgement was there
  static bool answered(const Client& client, std::uint8_t number) {
    bool found = false;
    for (Bytes bytes = client.received(); !bytes.empty(); bytes = client.received()) {
      found = found || (bytes.size() == 36 && bytes[27] == number && get16(bytes, kFlagsAt) == 1);
    }
    return found;
  }

  EmptyRing ring_{folder()};
  int server_;
  pid_t daemon_ = -1;
};

constexpr auto kOneSecond = std::chrono::seconds(1);

TEST_F(DaemonUnderLoad, AnUnreadDatagramAndAnUnsetLogIntervalCostAFewWakeUpsASecond) {
  const Client desktop = datagrams_to(5000);
  ASSERT_TRUE(desktop.send({0, 0, 0, 0, 0, 3, 0, 1, 0, 0, 0, 12}));
  ASSERT_TRUE(comes_true([] { return calls_of_the_desktop_manager() > 0; }));
  const int wake_ups_before = wake_ups();
  const int calls_before = calls_of_the_desktop_manager();
  const auto time_before = processor_time();
  std::this_thread::sleep_for(kOneSecond);
  EXPECT_LE(wake_ups() - wake_ups_before, 6);
  EXPECT_LE(calls_of_the_desktop_manager() - calls_before, 2);
  EXPECT_LT(processor_time() - time_before, milliseconds(20)) << "a loop that never sleeps";
  EXPECT_GE(wake_ups() - wake_ups_before, 1) << "the log sender is due once a second";
}

TEST_F(DaemonUnderLoad, AFloodOfTheManagementPortDelaysNoOrderByASecond) {
  const Client flooding = datagrams_to(1161);
  Bytes wrong_checksum = order(0);
  put16(wrong_checksum, 32, 0x1234);
  const auto slowest = slowest_order([&] {
    for (int i = 0; i < 60; i++) {
      flooding.send(wrong_checksum);
      flooding.send({'x'});
      flooding.send({});
    }
  });
  EXPECT_LT(slowest, kOneSecond);
}

TEST_F(DaemonUnderLoad, AFloodOfTheDesktopManagersPortDelaysNoOrderByASecond) {
  const Client flooding = datagrams_to(5000);
  const auto slowest = slowest_order([&] {
    for (int i = 0; i < 200; i++) {
      flooding.send(Bytes(static_cast<std::size_t>(i), 0xEE));
    }
  });
  EXPECT_LT(slowest, kOneSecond);
  EXPECT_GT(calls_of_the_desktop_manager(), 0);
}

TEST_F(DaemonUnderLoad, AFloodOfUnknownScanMessagesDelaysNoOrderByASecond) {
  const Client flooding = datagrams_to(2719);
  Bytes unknown_type(696, 0);
  unknown_type[0] = 0xBA;
  unknown_type[1] = 9;
  const auto slowest = slowest_order([&] {
    for (int i = 0; i < 200; i++) {
      flooding.send(unknown_type);
    }
  });
  EXPECT_LT(slowest, kOneSecond);
  EXPECT_EQ(console(), "") << "the service goes on";
}

TEST_F(DaemonUnderLoad, AFloodThatEndsTheScanToolsDelaysNoOrderByASecond) {
  const Client flooding = datagrams_to(2719);
  const auto slowest = slowest_order([&] {
    for (int i = 0; i < 200; i++) {
      flooding.send({'x'});
    }
  });
  EXPECT_LT(slowest, kOneSecond);
  EXPECT_EQ(console(), "too short packet .. \n");
}

} // namespace
