// The settings store of one process: finds, maps, builds and renews the working copy, and makes it
// lasting. Not for several threads at once. Layouts: working_copy.h and nvram_image.h.
#pragma once

#include "platform/common/hooks.h"
#include "platform/common/working_copy.h"

#include <sys/types.h>

namespace rcmd {

class NvramStore {
public:
  constexpr NvramStore() = default;
  NvramStore(const NvramStore&) = delete;
  NvramStore& operator=(const NvramStore&) = delete;
  ~NvramStore() = default; ///< mappings end with the process

  /// These three are nvram_get, nvram_set and nvram_commit (platform/api/nvram.h).
  const char* get(const char* name);
  int set(const char* name, const char* value);
  int commit();

  /// Calls `visit` with "name=value" for every key, in the order of their last change; `visit`
  /// calls nothing of the store. @return 0, or -1 when there is no store
  int each(void (*visit)(void* arg, const char* record), void* arg);

private:
  /// A mapped working copy and the file that it is.
  struct Mapped {
    WorkingCopy copy;
    dev_t device = 0;
    ino_t inode = 0;
  };

  bool refresh(const NvramPaths& paths);
  bool refresh_locked(const NvramPaths& paths);
  bool map_present(const NvramPaths& paths);
  bool is_present(const NvramPaths& paths) const;
  bool put_locked(const NvramPaths& paths, const char* name, const char* value);
  bool write_image(const NvramPaths& paths);
  void take(const Mapped& mapped);
  void drop_retired();

  /// Makes a new file from the present copy, or from the lasting image when there is none.
  bool rebuild(const NvramPaths& paths, size_t extra_bytes);
  bool create(const char* path, size_t bytes, Mapped* mapped);

  static constexpr int kMaxRetired = 8;

  Mapped current_;
  /// Files left behind during the present call: a text handed in may still lie in one.
  Mapped retired_[kMaxRetired];
  int retired_count_ = 0;
};

/// The store behind this process' nvram_get, nvram_set and nvram_commit.
NvramStore& nvram_store();

} // namespace rcmd
