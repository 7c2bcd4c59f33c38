#include "platform/common/memory.h"
#include "core/owned.h"
#include "platform/api/memory.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>

namespace {

/// The figure of a line such as "MemFree:   1234 kB". @return false when there is no such line
bool figure(const char* text, const char* label, uint32_t* kilobytes) {
  const size_t length = strlen(label);
  for (const char* line = text; line != nullptr; line = strchr(line, '\n')) {
    line += *line == '\n' ? 1 : 0;
    if (strncmp(line, label, length) == 0) {
      *kilobytes = static_cast<uint32_t>(strtoul(line + length, nullptr, 10));
      return true;
    }
  }
  return false;
}

bool read_meminfo(char* text, size_t bytes) {
  const rcmd::UniqueFd file(open("/proc/meminfo", O_RDONLY | O_CLOEXEC));
  if (!file) {
    return false;
  }
  const ssize_t count = read(file.get(), text, bytes - 1);
  text[count > 0 ? count : 0] = '\0';
  return count > 0;
}

} // namespace

namespace rcmd {

bool available_memory_kb(uint32_t* kilobytes) {
  MemoryInfo info = {};
  if (memory_info(&info) != 0) {
    return false;
  }
  const uint32_t cache = info.cached > info.shared ? info.cached - info.shared : 0;
  *kilobytes = info.free + info.buffers + cache;
  return true;
}

int memory_suffices(uint32_t bytes, uint32_t kilobytes) {
  return bytes <= uint64_t{kilobytes} * 1024 ? 1 : 0;
}

} // namespace rcmd

extern "C" {

int memory_info(struct MemoryInfo* info) {
  char text[2048];
  MemoryInfo found = {};
  if (!read_meminfo(text, sizeof text) || !figure(text, "MemTotal:", &found.total) ||
      !figure(text, "MemFree:", &found.free)) {
    return -1;
  }
  if (!figure(text, "Shmem:", &found.shared)) {
    figure(text, "MemShared:", &found.shared); // before Linux 2.6.32
  }
  figure(text, "Buffers:", &found.buffers);
  figure(text, "Cached:", &found.cached);
  found.used = found.total - found.free;
  *info = found;
  return 0;
}

} // extern "C"
