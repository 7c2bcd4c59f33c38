#include "tests/simulation/libc_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/mman.h>
#include <unistd.h>
#include <unordered_map>

extern "C" {
void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);
void __real_free(void* block);
int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
std::FILE* __real_fopen(const char* path, const char* mode);
int __real_fclose(std::FILE* stream);
ssize_t __real_pwrite(int fd, const void* data, std::size_t length, off_t place);
void* __real_mmap(void* address, std::size_t length, int access, int flags, int fd, off_t from);
int __real_munmap(void* address, std::size_t length);
}

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t kGuardBytes = 0; // the sanitizer's own are better
#else
constexpr std::size_t kGuardBytes = 16;
#endif
constexpr std::uint8_t kMark = 0xC7;

bool counting = false;
bool disk_full = false;
std::size_t short_writes = 0;

struct Books {
  std::unordered_map<void*, std::size_t> blocks; // bytes, without the guard
  std::set<int> descriptors;
  std::set<std::FILE*> streams;
  std::unordered_map<void*, std::size_t> mappings;
};

Books& books() {
  static Books the_books;
  return the_books;
}

void* entered(void* block, std::size_t bytes) {
  if (block != nullptr && counting) {
    std::memset(static_cast<std::uint8_t*>(block) + bytes, kMark, kGuardBytes);
    books().blocks[block] = bytes;
  }
  return block;
}

bool guard_stands(const void* block, std::size_t bytes) {
  const auto* guard = static_cast<const std::uint8_t*>(block) + bytes;
  return std::all_of(guard, guard + kGuardBytes, [](std::uint8_t byte) { return byte == kMark; });
}

char* copy_of(const char* text, std::size_t length) {
  auto* copy = static_cast<char*>(entered(__real_malloc(length + 1 + kGuardBytes), length + 1));
  if (copy != nullptr) {
    std::memcpy(copy, text, length);
    copy[length] = '\0';
  }
  return copy;
}

} // namespace

extern "C" {

void* __wrap_malloc(std::size_t bytes);
void* __wrap_calloc(std::size_t count, std::size_t bytes);
void* __wrap_realloc(void* block, std::size_t bytes);
void __wrap_free(void* block);
char* __wrap_strdup(const char* text);
char* __wrap_strndup(const char* text, std::size_t most);
int __wrap_open(const char* path, int flags, ...);
int __wrap_close(int fd);
std::FILE* __wrap_fopen(const char* path, const char* mode);
int __wrap_fclose(std::FILE* stream);
ssize_t __wrap_pwrite(int fd, const void* data, std::size_t length, off_t place);
void* __wrap_mmap(void* address, std::size_t length, int access, int flags, int fd, off_t from);
int __wrap_munmap(void* address, std::size_t length);

void* __wrap_malloc(std::size_t bytes) {
  return entered(__real_malloc(bytes + kGuardBytes), bytes);
}

void* __wrap_calloc(std::size_t count, std::size_t bytes) {
  return entered(__real_calloc(1, count * bytes + kGuardBytes), count * bytes);
}

void* __wrap_realloc(void* block, std::size_t bytes) {
  books().blocks.erase(block);
  return entered(__real_realloc(block, bytes + kGuardBytes), bytes);
}

void __wrap_free(void* block) {
  const auto found = books().blocks.find(block);
  if (found != books().blocks.end()) {
    if (!guard_stands(block, found->second)) {
      std::fprintf(stderr, "bytes behind a block were written\n");
      std::abort();
    }
    books().blocks.erase(found);
  }
  __real_free(block);
}

char* __wrap_strdup(const char* text) {
  return copy_of(text, std::strlen(text));
}

char* __wrap_strndup(const char* text, std::size_t most) {
  return copy_of(text, strnlen(text, most));
}

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  const int fd = __real_open(path, flags, mode);
  if (fd >= 0 && counting) {
    books().descriptors.insert(fd);
  }
  return fd;
}

int __wrap_close(int fd) {
  books().descriptors.erase(fd);
  return __real_close(fd);
}

std::FILE* __wrap_fopen(const char* path, const char* mode) {
  std::FILE* stream = __real_fopen(path, mode);
  if (stream != nullptr && counting) {
    books().streams.insert(stream);
  }
  return stream;
}

int __wrap_fclose(std::FILE* stream) {
  books().streams.erase(stream);
  return __real_fclose(stream);
}

ssize_t __wrap_pwrite(int fd, const void* data, std::size_t length, off_t place) {
  if (counting && disk_full) {
    short_writes++;
    errno = ENOSPC;
    return length < 2 ? -1 : __real_pwrite(fd, data, length / 2, place);
  }
  return __real_pwrite(fd, data, length, place);
}

void* __wrap_mmap(void* address, std::size_t length, int access, int flags, int fd, off_t from) {
  void* mapping = __real_mmap(address, length, access, flags, fd, from);
  if (mapping != MAP_FAILED && counting) {
    books().mappings[mapping] = length;
  }
  return mapping;
}

int __wrap_munmap(void* address, std::size_t length) {
  books().mappings.erase(address);
  return __real_munmap(address, length);
}

} // extern "C"

namespace sim {

void begin_holdings() {
  end_holdings();
  short_writes = 0;
  counting = true;
}

Holdings holdings() {
  return {books().blocks.size(), books().descriptors.size(), books().streams.size(),
          books().mappings.size(), short_writes};
}

bool block_guards_stand() {
  return std::all_of(books().blocks.begin(), books().blocks.end(),
                     [](const auto& block) { return guard_stands(block.first, block.second); });
}

void end_holdings() {
  counting = false;
  for (const auto& [block, bytes] : books().blocks) {
    __real_free(block);
  }
  for (std::FILE* stream : books().streams) {
    __real_fclose(stream);
  }
  for (const int fd : books().descriptors) {
    __real_close(fd);
  }
  for (const auto& [mapping, length] : books().mappings) {
    __real_munmap(mapping, length);
  }
  books() = {};
}

void fill_disk(bool full) {
  disk_full = full;
}

} // namespace sim
