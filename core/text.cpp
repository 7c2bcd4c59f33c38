#include "core/text.h"

#include "platform/api/nvram.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rcmd {

bool TextWriter::append(const char* format, ...) {
  const std::size_t room = capacity - used;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(data + used, room, format, arguments);
  va_end(arguments);
  if (length < 0 || static_cast<std::size_t>(length) >= room) {
    if (room > 0) {
      data[used] = '\0';
    }
    return false;
  }
  used += static_cast<std::size_t>(length);
  return true;
}

void copy_field(char* field, std::size_t size, const char* text) {
  const std::size_t length = strnlen(text, size);
  std::memcpy(field, text, length);
  std::memset(field + length, 0, size - length);
}

int decimal(const char* text) {
  const long value = std::strtol(text, nullptr, 10);
  if (value > INT_MAX) {
    return INT_MAX;
  }
  return value < INT_MIN ? INT_MIN : static_cast<int>(value);
}

const char* nvram_text(const char* name) {
  const char* value = nvram_get(name);
  return value == nullptr ? "" : value;
}

} // namespace rcmd
