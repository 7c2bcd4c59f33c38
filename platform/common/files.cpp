#include "platform/api/files.h"

#include <cerrno>

extern "C" {

size_t safe_fread(void* data, size_t size, size_t count, FILE* stream) {
  size_t done = 0;
  do {
    clearerr(stream);
    errno = 0;
    done += fread(static_cast<char*>(data) + done * size, size, count - done, stream);
  } while (done < count && ferror(stream) != 0 && errno == EINTR);
  return done;
}

} // extern "C"
