// How fast a file comes in over loopback, beside a floor: a bare loop that exchanges the same
// packets by the same calls (one send, one wait, one receive, one write per fragment) and takes
// checksums from a byte table. Client and server are two processes on one processor.
//
//   transfer_bench          both, several times in turn; then answers held back 20 ms; then memory
//   transfer_bench one      one download alone, for a profiler or a tracer
//
// Each exits with status 1 when something did not arrive, whatever the figures.

#include "core/context.h"
#include "core/owned.h"
#include "platform/api/checksum.h"
#include "platform/api/files.h"
#include "rcm/packet.h"
#include "transfer/download.h"
#include "transfer/file_request.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kFragments = 7680; // 7.5 MiB
constexpr std::uint32_t kHeldFragments = 2048;
constexpr int kRounds = 9;
constexpr auto kHold = std::chrono::milliseconds(20);
constexpr char kFile[] = "/tmp/bench.download";

[[noreturn]] void die(const char* what) {
  std::perror(what);
  std::exit(1);
}

// Shared by both processes.
struct Counters {
  std::uint64_t requests; ///< for fragments, since the start
};
Counters* counters;

// ---- The server ------------------------------------------------------------------------------

using Packet = std::array<std::uint8_t, rcmd::kHeaderBytes + 4 + rcmd::kFragmentBytes>;

std::vector<Packet> make_packets() {
  std::vector<Packet> packets(kFragments);
  for (std::uint32_t i = 0; i < kFragments; i++) {
    Packet& packet = packets[i];
    for (std::size_t at = 0; at < packet.size(); at++) {
      packet[at] = static_cast<std::uint8_t>(at < rcmd::kHeaderBytes ? 0 : at * 7 + i);
    }
    auto& header = *reinterpret_cast<rcmd::RcmPacketHeader*>(packet.data());
    auto& number = *reinterpret_cast<rcmd::be16*>(packet.data() + rcmd::kHeaderBytes);
    number = static_cast<std::uint16_t>(i);
    header.type = rcmd::kFwData;
    header.flags = rcmd::kReplyFlags;
    header.length = static_cast<std::uint16_t>(packet.size() - rcmd::kHeaderBytes);
    header.crc = crc16(packet.data() + rcmd::kHeaderBytes, header.length, rcmd::kCrcStart);
  }
  return packets;
}

struct Held {
  std::uint16_t fragment;
  sockaddr_in peer;
  Clock::time_point due;
};

void answer(int fd, const std::vector<Packet>& packets, std::uint16_t fragment,
            const sockaddr_in& peer) {
  const Packet& packet = packets[fragment % kFragments];
  sendto(fd, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&peer),
         sizeof peer);
}

void wait_until(int fd, const std::deque<Held>& held) {
  pollfd waited = {fd, POLLIN, 0};
  if (held.empty()) {
    poll(&waited, 1, -1);
    return;
  }
  const auto left = std::max(held.front().due - Clock::now(), Clock::duration(0));
  const timespec time = {0, std::chrono::nanoseconds(left).count()};
  ppoll(&waited, 1, &time, nullptr);
}

[[noreturn]] void serve(int fd, bool holding) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  prctl(PR_SET_TIMERSLACK, 1);
  const std::vector<Packet> packets = make_packets();
  std::deque<Held> held;
  for (;;) {
    if (holding) {
      wait_until(fd, held);
      while (!held.empty() && held.front().due <= Clock::now()) {
        answer(fd, packets, held.front().fragment, held.front().peer);
        held.pop_front();
      }
    }
    std::uint8_t request[64];
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const ssize_t got = recvfrom(fd, request, sizeof request, holding ? MSG_DONTWAIT : 0,
                                 reinterpret_cast<sockaddr*>(&peer), &length);
    if (got != 40) {
      continue;
    }
    counters->requests++;
    const auto fragment = static_cast<std::uint16_t>(request[36] << 8 | request[37]);
    if (holding) {
      held.push_back({fragment, peer, Clock::now() + kHold});
    } else {
      answer(fd, packets, fragment, peer);
    }
  }
}

struct Server {
  explicit Server(bool holding) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      die("server");
    }
    pid = fork();
    if (pid == 0) {
      serve(fd, holding);
    }
    close(fd);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }

  sockaddr_in address{};
  pid_t pid = 0;
};

// ---- The two clients -------------------------------------------------------------------------

struct Client {
  explicit Client(const sockaddr_in& server) {
    context.sock = socket(AF_INET, SOCK_DGRAM, 0);
    context.server_addr = server;
    context.rx_buf = rx.data();
    context.tx_buf = tx.data();
    std::memcpy(context.serial, "SN0123456789", 12);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() { close(context.sock); }

  std::array<std::uint8_t, rcmd::kBufferBytes + rcmd::kRxGuardBytes> rx{};
  std::array<std::uint8_t, rcmd::kBufferBytes> tx{};
  rcmd::RcmContext context{};
};

bool download(Client& client, std::uint32_t fragments, int fd) {
  const rcmd::Download rules = {rcmd::do_request_fw_fragment, 0, fragments, nullptr, ""};
  return rcmd::download_fragments(client.context, rules, fd) == 0;
}

constexpr auto kByteTable = [] {
  std::array<std::uint16_t, 256> table{};
  for (unsigned i = 0; i < 256; i++) {
    unsigned value = i;
    for (int bit = 0; bit < 8; bit++) {
      value = (value & 1U) != 0 ? (value >> 1) ^ 0x8408U : value >> 1;
    }
    table[i] = static_cast<std::uint16_t>(value);
  }
  return table;
}();

std::uint16_t plain_crc16(const std::uint8_t* at, std::size_t length) {
  std::uint16_t value = 0xFFFF;
  for (std::size_t i = 0; i < length; i++) {
    value = static_cast<std::uint16_t>((value >> 8) ^ kByteTable[(value ^ at[i]) & 0xFFU]);
  }
  return value;
}

void floor_request(Client& client, std::uint32_t fragment) {
  std::uint8_t* packet = client.tx.data();
  packet[29] = rcmd::kFwData;
  packet[31] = rcmd::kTransferFlags;
  packet[36] = static_cast<std::uint8_t>(fragment >> 8);
  packet[37] = static_cast<std::uint8_t>(fragment);
  const std::uint16_t crc = plain_crc16(packet + 36, 4);
  packet[32] = static_cast<std::uint8_t>(crc >> 8);
  packet[33] = static_cast<std::uint8_t>(crc);
  packet[35] = 4;
  const sockaddr_in& to = client.context.server_addr;
  sendto(client.context.sock, packet, 40, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

bool floor_download(Client& client, std::uint32_t fragments, int fd) {
  std::uint32_t next = 0;
  for (; next < 32; next++) {
    floor_request(client, next);
  }
  const std::uint8_t* packet = client.rx.data();
  for (std::uint32_t taken = 0; taken < fragments; taken++) {
    pollfd waited = {client.context.sock, POLLIN, 0};
    if (poll(&waited, 1, 5000) != 1) {
      return false;
    }
    const ssize_t got =
        recvfrom(client.context.sock, client.rx.data(), rcmd::kBufferBytes, 0, nullptr, nullptr);
    const std::size_t length = static_cast<std::size_t>(packet[34] << 8 | packet[35]);
    if (got < 36 || plain_crc16(packet + 36, length) != (packet[32] << 8 | packet[33])) {
      return false;
    }
    const off_t place = (packet[36] << 8 | packet[37]) * off_t{1024};
    if (pwrite(fd, packet + 40, length - 4, place) != static_cast<ssize_t>(length - 4)) {
      return false;
    }
    if (next < fragments) {
      floor_request(client, next++);
    }
  }
  return true;
}

// ---- Measuring -------------------------------------------------------------------------------

struct Figures {
  double cpu_s;
  double elapsed_s;
  double requests_per_fragment;
};

double cpu_seconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

using Run = bool (*)(Client& client, std::uint32_t fragments, int fd);

Figures measure(Run run, const Server& server, std::uint32_t fragments) {
  Client client(server.address);
  const rcmd::UniqueFd file(rcmd::create_download_file(kFile));
  if (!file) {
    die(kFile);
  }
  const std::uint64_t requests = counters->requests;
  const double cpu = cpu_seconds();
  const auto begin = Clock::now();
  if (!run(client, fragments, file.get())) {
    std::fprintf(stderr, "a fragment did not arrive\n");
    std::exit(1);
  }
  const std::chrono::duration<double> elapsed = Clock::now() - begin;
  return {cpu_seconds() - cpu, elapsed.count(),
          static_cast<double>(counters->requests - requests) / fragments};
}

// In KiB, from /proc/self/status.
long memory_kib(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with(field)) {
      return std::strtol(line.c_str() + field.size(), nullptr, 10);
    }
  }
  return 0;
}

template <typename Field> double median(std::vector<Figures> all, Field field) {
  std::sort(all.begin(), all.end(),
            [&](const Figures& a, const Figures& b) { return field(a) < field(b); });
  return field(all[all.size() / 2]);
}

void compare() {
  const Server server(false);
  measure(floor_download, server, kFragments); // the server makes its packets, the file its pages
  std::vector<Figures> floors;
  std::vector<Figures> ours;
  for (int round = 0; round < kRounds; round++) {
    floors.push_back(measure(floor_download, server, kFragments));
    ours.push_back(measure(download, server, kFragments));
    std::printf("round %d   floor %6.1f ms of processor, %6.1f ms   download %6.1f, %6.1f\n", round,
                floors.back().cpu_s * 1e3, floors.back().elapsed_s * 1e3, ours.back().cpu_s * 1e3,
                ours.back().elapsed_s * 1e3);
  }
  const auto cpu = [](const Figures& figures) { return figures.cpu_s; };
  const auto elapsed = [](const Figures& figures) { return figures.elapsed_s; };
  const auto requests = [](const Figures& figures) { return figures.requests_per_fragment; };
  std::printf("processor time beside the floor     %5.2f  (medians; aim: at most 0.85)\n",
              median(ours, cpu) / median(floors, cpu));
  std::printf("throughput beside the floor         %5.2f  (aim: at least 1.15)\n",
              median(floors, elapsed) / median(ours, elapsed));
  std::printf("throughput                          %5.1f MiB/s\n",
              kFragments / 1024.0 / median(ours, elapsed));
  std::printf("requests per fragment               %5.3f  (aim: 1)\n", median(ours, requests));
}

void hold_back() {
  const Server server(true);
  measure(download, server, 64);
  const Figures figures = measure(download, server, kHeldFragments);
  const double rate = kHeldFragments / figures.elapsed_s;
  const double window = 32 / std::chrono::duration<double>(kHold).count();
  std::printf("answers held back 20 ms: of 32 fragments per round trip %5.3f  (aim: 0.96)\n",
              rate / window);
}

void peak_memory() {
  const Server server(false);
  measure(download, server, 64);
  const long idle = memory_kib("VmRSS:");
  std::ofstream("/proc/self/clear_refs") << "5"; // the peak begins afresh
  measure(download, server, kFragments);
  std::printf("peak resident memory above idle     %ld KiB  (aim: at most 64)\n",
              memory_kib("VmHWM:") - idle);
}

} // namespace

int main(int argc, char** argv) {
  char folder[] = "/dev/shm/transfer-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) {
    die(folder);
  }
  std::filesystem::create_directory(folder + std::string("/tmp"));
  setenv("VIRTUAL_ROUTER_DIR", folder, 1);
  counters = static_cast<Counters*>(
      mmap(nullptr, sizeof(Counters), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  cpu_set_t processor;
  CPU_ZERO(&processor);
  CPU_SET(sched_getcpu(), &processor);
  sched_setaffinity(0, sizeof processor, &processor);
  if (argc > 1 && std::strcmp(argv[1], "one") == 0) {
    const Server server(false);
    measure(download, server, kFragments);
  } else {
    compare();
    hold_back();
    peak_memory();
  }
  std::filesystem::remove_all(folder);
  return 0;
}
