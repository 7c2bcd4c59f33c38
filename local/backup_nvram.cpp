#include "local/backup_nvram.h"

#include "core/say.h"
#include "platform/api/files.h"
#include "platform/api/process.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rcmd {

const char* const nvram_backup_path = "/tmp/nvram.backup";
int nvram_backup_fd = -1;
char* nvram_backup_mmap = nullptr;
int nvram_backup_size = 0;

namespace {

constexpr std::size_t kImageHeaderBytes = 20;
constexpr std::size_t kWorkBytes = 1024;

// The state outlives mapping and descriptor; these two tell whether they are there.
bool is_open = false;
bool is_mapped = false;

int run_partition_tool(const char* tool) {
  const char* const arguments[] = {tool, nvram_backup_path, "backup", nullptr};
  return _eval(const_cast<char* const*>(arguments), ">/dev/console", 0, nullptr);
}

bool map_image() {
  struct stat status {};
  if (fstat(nvram_backup_fd, &status) < 0 || status.st_size > INT_MAX) {
    return false;
  }
  nvram_backup_size = static_cast<int>(status.st_size);
  void* image = mmap(nullptr, static_cast<std::size_t>(nvram_backup_size), PROT_READ | PROT_WRITE,
                     MAP_SHARED, nvram_backup_fd, 0);
  if (image == MAP_FAILED) {
    return false;
  }
  nvram_backup_mmap = static_cast<char*>(image);
  is_mapped = true;
  return true;
}

/// The characters of the record that is being walked over.
struct Record {
  char text[kWorkBytes];
  std::size_t length = 0; ///< counts on when the text no longer fits

  // DELIBERATE: a byte that is not ASCII neither ends the record nor counts. A value that holds
  // some is taken for shorter than it is, and its replacement begins that many bytes late.
  void add(char c) {
    if (static_cast<unsigned char>(c) > 0x7F) {
      return;
    }
    if (length < kWorkBytes) {
      text[length] = c;
    }
    length++;
  }

  /// Ends the text. @return the value of the record if it is `name`'s, else null
  const char* value_of(const char* name) {
    if (length == 0 || length >= kWorkBytes) {
      return nullptr;
    }
    text[length] = '\0';
    char* const equals = std::strchr(text, '=');
    const std::size_t name_length = std::strlen(name);
    if (equals == nullptr || name_length != static_cast<std::size_t>(equals - text) ||
        std::memcmp(text, name, name_length) != 0) {
      return nullptr;
    }
    return equals + 1;
  }
};

/// Puts `value` in the place of the `old_length` bytes before `end`, the record's NUL.
// DELIBERATE: the image keeps its size: what a longer value pushes over the end is lost, and a
// shorter one leaves the last bytes twice.
void replace(std::size_t end, std::size_t old_length, const char* value) {
  char* const image = nvram_backup_mmap;
  const auto size = static_cast<std::size_t>(nvram_backup_size);
  const std::size_t begin = end - old_length;
  const std::size_t value_bytes = std::strlen(value) + 1;
  const std::size_t new_end = begin + value_bytes - 1;
  if (new_end < size) {
    std::memmove(image + new_end, image + end, size - std::max(end, new_end));
  }
  std::memcpy(image + begin, value, std::min(value_bytes, size - begin));
}

} // namespace

int backup_nvram_init() {
  run_partition_tool("nvram_mtd_read"); // only the file counts
  nvram_backup_fd = open(device_path(nvram_backup_path), O_RDWR | O_CLOEXEC);
  is_open = nvram_backup_fd >= 0;
  if (is_open && map_image()) {
    return 0;
  }
  backup_nvram_fini();
  return -1;
}

void backup_nvram_set(const char* name, const char* value) {
  console("\n");
  if (!is_mapped) {
    return;
  }
  Record record;
  for (std::size_t at = kImageHeaderBytes; at < static_cast<std::size_t>(nvram_backup_size); at++) {
    if (nvram_backup_mmap[at] != '\0') {
      record.add(nvram_backup_mmap[at]);
      continue;
    }
    if (const char* old_value = record.value_of(name); old_value != nullptr) {
      replace(at, std::strlen(old_value), value);
      return;
    }
    record.length = 0;
  }
  // DELIBERATE: a name that is not in the image is not added.
}

void backup_nvram_fini() {
  if (is_mapped) {
    munmap(nvram_backup_mmap, static_cast<std::size_t>(nvram_backup_size));
    is_mapped = false;
  }
  if (is_open && nvram_backup_fd > 0) { // the store takes 0 for none, and leaves it open
    close(nvram_backup_fd);
  }
  is_open = false;
}

int backup_nvram_commit() {
  return run_partition_tool("nvram_mtd_write");
}

} // namespace rcmd
