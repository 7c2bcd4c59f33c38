#include "tests/platform/one_mapping.h"

#include <cstddef>
#include <cstdlib>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// What ThreadSanitizer must not see: its own knowledge of these tables would order the threads.
#define UNSEEN __attribute__((no_sanitize("thread"), noinline))

extern "C" {
// Null where there is no ThreadSanitizer.
__attribute__((weak)) void __tsan_acquire(void* address);
__attribute__((weak)) void __tsan_release(void* address);

void* __real_mmap(void* address, size_t bytes, int rights, int flags, int fd, off_t offset);
int __real_munmap(void* address, size_t bytes);
int __real_flock(int fd, int operation);
int __real_close(int fd);

void* __wrap_mmap(void* address, size_t bytes, int rights, int flags, int fd, off_t offset);
int __wrap_munmap(void* address, size_t bytes);
int __wrap_flock(int fd, int operation);
int __wrap_close(int fd);
}

namespace {

struct Mapping {
  dev_t device;
  ino_t inode;
  void* base;
  size_t bytes;
  int users; ///< 0: a free row
};

constexpr int kMappings = 1024;
constexpr int kDescriptors = 1024;
constexpr int kLocks = 64;

int busy;
Mapping mappings[kMappings];
int lock_of[kDescriptors]; ///< number of the lock that a descriptor holds; 0: none
char locks[kLocks];        ///< their addresses stand for the locks

UNSEEN void enter() {
  while (__atomic_exchange_n(&busy, 1, __ATOMIC_ACQUIRE) != 0) {
  }
}

UNSEEN void leave() {
  __atomic_store_n(&busy, 0, __ATOMIC_RELEASE);
}

UNSEEN void acquire(void* address) {
  if (__tsan_acquire != nullptr) {
    __tsan_acquire(address);
  }
}

UNSEEN void release(void* address) {
  if (__tsan_release != nullptr) {
    __tsan_release(address);
  }
}

UNSEEN void* map_once(const struct stat& facts, size_t bytes, int rights, int flags, int fd) {
  Mapping* row = nullptr;
  for (Mapping& mapping : mappings) {
    if (mapping.users == 0) {
      row = &mapping;
    } else if (mapping.device == facts.st_dev && mapping.inode == facts.st_ino) {
      if (mapping.bytes != bytes) {
        abort(); // no file of the store ever changes its size
      }
      mapping.users++;
      acquire(&mapping);
      return mapping.base;
    }
  }
  if (row == nullptr) {
    abort();
  }
  void* base = __real_mmap(nullptr, bytes, rights, flags, fd, 0);
  if (base != MAP_FAILED) {
    *row = {facts.st_dev, facts.st_ino, base, bytes, 1};
    release(row); // the mapping itself counts as a write, which comes before whatever its users do
  }
  return base;
}

} // namespace

UNSEEN int one_mapping::mapped_files() {
  int count = 0;
  enter();
  for (const Mapping& mapping : mappings) {
    count += mapping.users > 0 ? 1 : 0;
  }
  leave();
  return count;
}

UNSEEN void* __wrap_mmap(void* address, size_t bytes, int rights, int flags, int fd, off_t offset) {
  struct stat facts;
  if (fd < 0 || (flags & MAP_SHARED) == 0 || fstat(fd, &facts) != 0) {
    return __real_mmap(address, bytes, rights, flags, fd, offset);
  }
  enter();
  void* base = map_once(facts, bytes, rights, flags, fd);
  leave();
  return base;
}

UNSEEN int __wrap_munmap(void* address, size_t bytes) {
  int result = 0;
  enter();
  Mapping* found = nullptr;
  for (Mapping& mapping : mappings) {
    if (mapping.users > 0 && mapping.base == address) {
      found = &mapping;
    }
  }
  if (found == nullptr || --found->users == 0) {
    result = __real_munmap(address, bytes);
  }
  leave();
  return result;
}

UNSEEN int __wrap_flock(int fd, int operation) {
  const int result = __real_flock(fd, operation);
  struct stat facts;
  if (result == 0 && operation == LOCK_EX && fd < kDescriptors && fstat(fd, &facts) == 0) {
    const int number = 1 + static_cast<int>(facts.st_ino % (kLocks - 1));
    lock_of[fd] = number;
    acquire(&locks[number]);
  }
  return result;
}

UNSEEN int __wrap_close(int fd) {
  if (fd >= 0 && fd < kDescriptors && lock_of[fd] != 0) {
    const int number = lock_of[fd];
    lock_of[fd] = 0;
    release(&locks[number]);
  }
  return __real_close(fd);
}
