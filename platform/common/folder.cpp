#include "platform/common/folder.h"
#include "core/owned.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace rcmd {

namespace {

bool folder_of(const char* path, char* text, size_t text_bytes) {
  const char* slash = strrchr(path, '/');
  const size_t length = slash == nullptr ? 0 : static_cast<size_t>(slash - path);
  if (length == 0 || length >= text_bytes) {
    return false;
  }
  memcpy(text, path, length);
  text[length] = '\0';
  return true;
}

} // namespace

bool beside(const char* path, const char* suffix, char* text, size_t text_bytes) {
  const int length = snprintf(text, text_bytes, "%s%s", path, suffix);
  return length > 0 && static_cast<size_t>(length) < text_bytes;
}

int open_in_folder(const char* path, int flags) {
  const int fd = open(path, flags, 0600);
  char folder[PATH_MAX];
  if (fd >= 0 || errno != ENOENT || (flags & O_CREAT) == 0 ||
      !folder_of(path, folder, sizeof folder)) {
    return fd;
  }
  mkdir(folder, 0755); // another process may be doing the same
  return open(path, flags, 0600);
}

bool sync_folder(const char* path) {
  char folder[PATH_MAX];
  if (!folder_of(path, folder, sizeof folder)) {
    return false;
  }
  const UniqueFd opened(open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened && fsync(opened.get()) == 0;
}

} // namespace rcmd
