// A writer process at full speed against the log reader, over the kernel's own objects.

#include "reporters/syslog_ring.h"
#include "tests/tools/ring-syslogd/real_ring.h"
#include "tools/ring-syslogd/ring_memory.h"
#include "tools/ring-syslogd/ring_segment.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <new>
#include <sstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

using namespace rcmd;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr std::size_t kRingBytes = 8192;
constexpr milliseconds kLongest(2500);

// Shared between the two processes.
struct Tally {
  std::atomic<unsigned> written;
  std::atomic<std::size_t> lost;
  std::atomic<bool> failed;
  std::atomic<bool> done;
};

std::string body_of(unsigned n) {
  return std::string(n * 7 % 150, static_cast<char>('a' + n % 26)) + "|";
}

std::string line_of(unsigned n) {
  return "0 0 days 00:00:00 h s " + std::to_string(n) + " " + body_of(n) + "\n";
}

[[noreturn]] void write_until(steady_clock::time_point end, std::int32_t key, Tally& tally) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  RingSegment ring;
  if (ring.open(key, kRingBytes) != nullptr) {
    tally.failed = true;
  }
  std::size_t lost = 0;
  while (!tally.failed && steady_clock::now() < end) {
    const std::string line = line_of(tally.written);
    if (!ring.append(line.data(), line.size(), 5000, lost)) {
      tally.failed = true;
    }
    tally.written++;
    tally.lost = lost;
  }
  tally.done = true;
  _exit(0);
}

class Concurrency : public fake::RealRing {
protected:
  Concurrency() {
    void* pages =
        mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    tally = new (pages) Tally{};
  }
  ~Concurrency() override { munmap(tally, sizeof(Tally)); }

  int start_writer(milliseconds span) {
    tally->done = false;
    const unsigned before = tally->written;
    const int pid = fork();
    if (pid == 0) {
      write_until(steady_clock::now() + span, key, *tally);
    }
    while (tally->written == before && !tally->failed) {
      usleep(200);
    }
    return pid;
  }
  static int wait_for(int pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
  }

  // Reads once and takes the lines apart. @return how many there were
  unsigned check_lines() {
    EXPECT_GE(read_log(), 0);
    std::istringstream lines(output);
    unsigned count = 0;
    for (std::string line; std::getline(lines, line); count++) {
      const unsigned n = static_cast<unsigned>(std::stoul(line.substr(21)));
      EXPECT_EQ(line, "2001-09-09 01:45:00s " + std::to_string(n) + " " + body_of(n));
      EXPECT_GE(n, next) << "reported twice, or out of order";
      next = n + 1;
    }
    reported += count;
    return count;
  }

  Tally* tally;
  unsigned next = 0;
  std::size_t reported = 0;
};

TEST_F(Concurrency, NoLineIsTornOrReportedTwiceAndNoneIsLostButTheOverwritten) {
  const int pid = start_writer(kLongest);
  while (!tally->done && !HasFailure()) {
    check_lines();
  }
  EXPECT_EQ(wait_for(pid), 0);
  while (!HasFailure() && check_lines() > 0) {
  }
  EXPECT_FALSE(tally->failed);
  EXPECT_GT(tally->lost, 0U) << "the writer never came round";
  EXPECT_GT(reported, 1000U);
  EXPECT_EQ(reported + tally->lost, tally->written);
  EXPECT_EQ(semaphore(kReadersSemaphore), 0);
  EXPECT_EQ(semaphore(kWriterSemaphore), 0);
  RecordProperty("written", static_cast<int>(tally->written));
  RecordProperty("reported", static_cast<int>(reported));
}

TEST_F(Concurrency, AWriterKilledAtAnyInstantLeavesASoundRingAndFreeSemaphores) {
  for (int round = 0; round < 30; round++) {
    const int pid = start_writer(kLongest);
    usleep(static_cast<unsigned>(1000 + round * 137));
    kill(pid, SIGKILL);
    wait_for(pid);
    ASSERT_EQ(semaphore(kReadersSemaphore), 0);
    ASSERT_EQ(semaphore(kWriterSemaphore), 0);
    void* segment = shmat(shmget(key, 0, 0), nullptr, 0);
    EXPECT_TRUE(ring_is_sound(walk_ring(segment, kRingBytes))) << round;
    shmdt(segment);
    while (check_lines() > 0) {
    }
    next = 0; // the next writer may repeat the line that was under way
  }
}

TEST_F(Concurrency, AReaderThatStaysCountedStopsTheWriterButNotForLong) {
  RingSegment writer;
  ASSERT_EQ(writer.open(key, kRingBytes), nullptr);
  std::size_t lost = 0;
  ASSERT_TRUE(writer.append("0 0 d noon h s m\n", 17, 0, lost));
  EXPECT_EQ(read_log(), -1);
  EXPECT_EQ(semaphore(kReadersSemaphore), 1);
  EXPECT_FALSE(writer.append("0 0 d 00:00:00 h s m\n", 21, 20, lost));
  EXPECT_EQ(semaphore(kWriterSemaphore), 0);
  sembuf up = {kReadersSemaphore, -1, IPC_NOWAIT | SEM_UNDO};
  ASSERT_EQ(semop(semget(key, 0, 0), &up, 1), 0);
  EXPECT_TRUE(writer.append("0 0 d 00:00:00 h s m\n", 21, 0, lost));
  writer.remove();
  EXPECT_FALSE(objects_exist());
}

} // namespace
