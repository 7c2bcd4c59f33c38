#include "core/say.h"

#include "core/context.h"
#include "platform/api/console.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace rcmd {

int debug = 0;

namespace {

// One datagram's worth of text with room for the words around it; what is longer is cut.
char line[kBufferBytes + 1024];

std::size_t format_line(const char* format, va_list arguments) {
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  return length < 0 ? 0 : std::min(static_cast<std::size_t>(length), sizeof line - 1);
}

} // namespace

void diag(const char* format, ...) {
  if (debug <= 0) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  const std::size_t length = format_line(format, arguments);
  va_end(arguments);
  diagnostic_write(line, length);
}

bool console(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::size_t length = format_line(format, arguments);
  va_end(arguments);
  return console_write(line, length) == 0;
}

} // namespace rcmd
