#include "platform/common/nvram_store.h"
#include "core/owned.h"
#include "platform/api/nvram.h"
#include "platform/common/folder.h"
#include "platform/common/nvram_image.h"
#include "platform/common/output.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rcmd {

namespace {

constexpr size_t kMaxFileBytes = size_t{64} << 20;

/// An exclusive lock on a file of its own, never on one that a rename replaces. Opened for each
/// use, so that a forked child does not share it.
class FileLock {
public:
  explicit FileLock(const char* path) : file_(open_in_folder(path, O_RDWR | O_CREAT | O_CLOEXEC)) {
    int result = -1;
    do {
      result = flock(file_.get(), LOCK_EX);
    } while (result != 0 && errno == EINTR);
    held_ = result == 0;
  }
  [[nodiscard]] bool held() const { return held_; }

private:
  UniqueFd file_;
  bool held_ = false;
};

/// All pages are written, so that a full tmpfs is noticed here and not by a store into a mapping.
bool write_zeros(int fd, size_t bytes) {
  static const char zeros[4096] = {};
  while (bytes > 0) {
    const size_t piece = bytes < sizeof zeros ? bytes : sizeof zeros;
    if (!write_all(fd, zeros, piece)) {
      return false;
    }
    bytes -= piece;
  }
  return true;
}

/// The key of a record is the text before its first '='. Records of other shapes are passed over.
template <typename Source, typename Visit> void each_record(const Source& source, Visit visit) {
  uint32_t position = 0;
  while (const char* record = source.next(&position)) {
    const char* separator = strchr(record, '=');
    if (separator != nullptr && separator != record) {
      visit(record, static_cast<size_t>(separator - record));
    }
  }
}

struct Extent {
  size_t names = 0;
  size_t bytes = 0;
};

template <typename Source> Extent measure(const Source& source) {
  Extent extent;
  each_record(source, [&](const char* record, size_t name_length) {
    extent.names++;
    extent.bytes += WorkingCopy::record_bytes(name_length, record + name_length + 1);
  });
  return extent;
}

template <typename Source> bool fill(WorkingCopy& copy, const Source& source) {
  bool good = true;
  each_record(source, [&](const char* record, size_t name_length) {
    good = good && copy.put(record, name_length, record + name_length + 1);
  });
  return good;
}

} // namespace

// The working copy ------------------------------------------------------------------------------

void NvramStore::take(const Mapped& mapped) {
  if (current_.copy.base != nullptr && retired_count_ < kMaxRetired) {
    retired_[retired_count_++] = current_;
  }
  current_ = mapped;
}

void NvramStore::drop_retired() {
  while (retired_count_ > 0) {
    const Mapped& mapped = retired_[--retired_count_];
    munmap(mapped.copy.base, mapped.copy.bytes);
  }
}

bool NvramStore::map_present(const NvramPaths& paths) {
  const UniqueFd file(open(paths.working, O_RDWR | O_CLOEXEC));
  struct stat facts = {};
  if (!file || fstat(file.get(), &facts) != 0 || facts.st_size <= 0 ||
      facts.st_size > static_cast<off_t>(kMaxFileBytes)) {
    return false;
  }
  Mapped mapped;
  mapped.copy.bytes = static_cast<size_t>(facts.st_size);
  mapped.device = facts.st_dev;
  mapped.inode = facts.st_ino;
  void* base = mmap(nullptr, mapped.copy.bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (base == MAP_FAILED) {
    return false;
  }
  mapped.copy.base = static_cast<char*>(base);
  if (!mapped.copy.sound()) {
    munmap(base, mapped.copy.bytes);
    return false;
  }
  take(mapped);
  return true;
}

bool NvramStore::is_present(const NvramPaths& paths) const {
  struct stat facts = {};
  return current_.copy.base != nullptr && stat(paths.working, &facts) == 0 &&
         facts.st_dev == current_.device && facts.st_ino == current_.inode &&
         facts.st_size == static_cast<off_t>(current_.copy.bytes) && current_.copy.sound();
}

bool NvramStore::create(const char* path, size_t bytes, Mapped* mapped) {
  const UniqueFd file(open_in_folder(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC));
  struct stat facts = {};
  if (!file || bytes > kMaxFileBytes || !write_zeros(file.get(), bytes) ||
      fstat(file.get(), &facts) != 0) {
    return false;
  }
  void* base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (base == MAP_FAILED) {
    return false;
  }
  mapped->copy.base = static_cast<char*>(base);
  mapped->copy.bytes = bytes;
  mapped->device = facts.st_dev;
  mapped->inode = facts.st_ino;
  return true;
}

bool NvramStore::rebuild(const NvramPaths& paths, size_t extra_bytes) {
  char fresh[PATH_MAX];
  if (!beside(paths.working, ".new", fresh, sizeof fresh)) {
    return false;
  }
  WorkingCopy* old = current_.copy.base == nullptr ? nullptr : &current_.copy;
  const NvramImage image(old == nullptr ? paths.image : "");
  const Extent extent = old == nullptr ? measure(image) : measure(*old);
  Mapped made;
  if (!create(fresh, WorkingCopy::size_for(extent.names + 1, extent.bytes + extra_bytes), &made)) {
    unlink(fresh);
    return false;
  }
  made.copy.format(extent.names + 1);
  bool good = old == nullptr ? fill(made.copy, image) : fill(made.copy, *old);
  // Marked before the rename: a process killed in between leaves a file that nobody writes to and
  // that the next one replaces.
  if (good && old != nullptr) {
    old->set_superseded(true);
  }
  good = good && rename(fresh, paths.working) == 0;
  if (!good) {
    munmap(made.copy.base, made.copy.bytes);
    unlink(fresh);
    if (old != nullptr) {
      old->set_superseded(false);
    }
    return false;
  }
  take(made);
  return true;
}

bool NvramStore::refresh_locked(const NvramPaths& paths) {
  if (!is_present(paths)) {
    if (current_.copy.base != nullptr) {
      current_.copy.set_superseded(true); // its file is gone: other readers must notice
    }
    if (!map_present(paths)) {
      take(Mapped{}); // missing or damaged: the lasting image is what is left
      return rebuild(paths, 0);
    }
  }
  return !current_.copy.superseded() || rebuild(paths, 0);
}

bool NvramStore::refresh(const NvramPaths& paths) {
  if (current_.copy.base != nullptr && !current_.copy.superseded()) {
    return true;
  }
  if (map_present(paths) && !current_.copy.superseded()) {
    return true;
  }
  const FileLock lock(paths.lock);
  return lock.held() && refresh_locked(paths);
}

// Reading and writing ---------------------------------------------------------------------------

const char* NvramStore::get(const char* name) {
  const NvramPaths* paths = nvram_paths();
  const char* value = nullptr;
  if (paths != nullptr && refresh(*paths)) {
    value = current_.copy.find(name);
  }
  drop_retired();
  return value;
}

bool NvramStore::put_locked(const NvramPaths& paths, const char* name, const char* value) {
  const size_t name_length = strlen(name);
  if (current_.copy.put(name, name_length, value)) {
    return true;
  }
  const size_t size = WorkingCopy::record_bytes(name_length, value);
  return rebuild(paths, size) && current_.copy.put(name, name_length, value);
}

int NvramStore::set(const char* name, const char* value) {
  const NvramPaths* paths = nvram_paths();
  if (paths == nullptr || *name == '\0' || strchr(name, '=') != nullptr || !refresh(*paths)) {
    return -1;
  }
  const char* present = current_.copy.find(name);
  const bool equal =
      value == nullptr || present == nullptr ? value == present : strcmp(present, value) == 0;
  bool good = equal;
  if (!equal) {
    const FileLock lock(paths->lock);
    good = lock.held() && refresh_locked(*paths) && put_locked(*paths, name, value);
  }
  drop_retired();
  return good ? 0 : -1;
}

int NvramStore::each(void (*visit)(void* arg, const char* record), void* arg) {
  const NvramPaths* paths = nvram_paths();
  if (paths == nullptr || !refresh(*paths)) {
    return -1;
  }
  drop_retired();
  each_record(current_.copy, [&](const char* record, size_t) { visit(arg, record); });
  return 0;
}

// Committing ------------------------------------------------------------------------------------

/// Writers wait while the records are written down, not while flash syncs.
bool NvramStore::write_image(const NvramPaths& paths) {
  NvramImageWriter writer(paths.image);
  {
    const FileLock lock(paths.lock);
    if (!lock.held() || !refresh_locked(paths)) {
      return false;
    }
    each_record(current_.copy, [&](const char* record, size_t) { writer.add(record); });
  }
  return writer.finish();
}

int NvramStore::commit() {
  const NvramPaths* paths = nvram_paths();
  if (paths == nullptr) {
    return -1;
  }
  const FileLock commits(paths->commits);
  const bool good = commits.held() && write_image(*paths);
  drop_retired();
  return good ? 0 : -1;
}

NvramStore& nvram_store() {
  static NvramStore store;
  return store;
}

} // namespace rcmd

extern "C" {

const char* nvram_get(const char* name) {
  return rcmd::nvram_store().get(name);
}

int nvram_set(const char* name, const char* value) {
  return rcmd::nvram_store().set(name, value);
}

int nvram_commit(void) {
  return rcmd::nvram_store().commit();
}

} // extern "C"
