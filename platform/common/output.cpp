#include "platform/common/output.h"
#include "core/owned.h"
#include "platform/api/console.h"
#include "platform/common/hooks.h"

#include <cerrno>

namespace rcmd {

bool write_all(int fd, const void* data, size_t length) {
  const auto* at = static_cast<const char*>(data);
  while (length > 0) {
    const ssize_t written = write(fd, at, length);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    at += written;
    length -= static_cast<size_t>(written);
  }
  return true;
}

} // namespace rcmd

extern "C" {

int console_write(const char* text, size_t length) {
  const rcmd::UniqueFd console(rcmd::open_console());
  if (!console) {
    return -1;
  }
  rcmd::write_all(console.get(), text, length); // a console that takes nothing loses the text only
  return 0;
}

void diagnostic_write(const char* text, size_t length) {
  rcmd::write_all(STDERR_FILENO, text, length);
}

} // extern "C"
