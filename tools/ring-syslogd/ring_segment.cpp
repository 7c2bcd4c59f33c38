#include "tools/ring-syslogd/ring_segment.h"

#include "reporters/syslog_ring.h"
#include "tools/ring-syslogd/ring_memory.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace rcmd {

namespace {

constexpr int kOwnerOnly = 0600;

// Waits until nobody reads or writes and begins to write; the kernel undoes it for a writer that
// is killed.
constexpr sembuf SMwdn[] = {
    {kReadersSemaphore, 0, 0}, {kWriterSemaphore, 0, 0}, {kWriterSemaphore, 1, SEM_UNDO}};
// Ends the writing.
constexpr sembuf SMwup[] = {{kWriterSemaphore, -1, IPC_NOWAIT | SEM_UNDO}};

template <std::size_t count>
bool operate(int sem_id, const sembuf (&operations)[count], int patience_ms) {
  sembuf passed[count];
  std::copy_n(operations, count, passed);
  timespec patience{};
  patience.tv_sec = patience_ms / 1000;
  patience.tv_nsec = patience_ms % 1000 * 1'000'000L;
  return semtimedop(sem_id, passed, count, &patience) == 0;
}

} // namespace

const char* RingSegment::open(std::int32_t key, std::size_t bytes) {
  shm_id_ = shmget(key, bytes, IPC_CREAT | kOwnerOnly);
  if (shm_id_ == -1) {
    return "shmget";
  }
  void* segment = shmat(shm_id_, nullptr, 0);
  if (reinterpret_cast<std::uintptr_t>(segment) == UINTPTR_MAX) {
    return "shmat";
  }
  sem_id_ = semget(key, 2, IPC_CREAT | kOwnerOnly);
  if (sem_id_ == -1) {
    return "semget";
  }
  segment_ = segment;
  bytes_ = bytes;
  prepare_ring(segment_, bytes_);
  return nullptr;
}

bool RingSegment::append(const char* line, std::size_t length, int patience_ms, std::size_t& lost) {
  if (!operate(sem_id_, SMwdn, patience_ms)) {
    return false;
  }
  lost += append_line(segment_, bytes_, line, length);
  return operate(sem_id_, SMwup, 0);
}

void RingSegment::remove() {
  if (segment_ != nullptr) {
    shmdt(segment_);
    segment_ = nullptr;
  }
  if (shm_id_ != -1) {
    shmctl(shm_id_, IPC_RMID, nullptr);
    shm_id_ = -1;
  }
  if (sem_id_ != -1) {
    semctl(sem_id_, 0, IPC_RMID);
    sem_id_ = -1;
  }
}

} // namespace rcmd
