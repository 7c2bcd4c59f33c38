#include "tools/nvram/import.h"

#include <cstring>

namespace rcmd {

namespace {

/// Where the line that begins at `line` ends.
char* end_of_line(char* line, const char* end) {
  void* feed = memchr(line, '\n', static_cast<size_t>(end - line));
  return feed == nullptr ? const_cast<char*>(end) : static_cast<char*>(feed);
}

const char* fault_of(const char* line, size_t length) {
  if (length == 0) {
    return nullptr;
  }
  if (memchr(line, '\0', length) != nullptr) {
    return "a NUL byte";
  }
  const void* separator = memchr(line, '=', length);
  if (separator == nullptr) {
    return "no '='";
  }
  return separator == line ? "no name before '='" : nullptr;
}

ImportFault check(char* text, const char* end) {
  size_t number = 1;
  for (char* line = text; line < end; number++) {
    char* line_end = end_of_line(line, end);
    const char* reason = fault_of(line, static_cast<size_t>(line_end - line));
    if (reason != nullptr) {
      return {number, reason};
    }
    line = line_end + 1;
  }
  return {0, nullptr};
}

} // namespace

ImportFault import_settings(char* text, size_t length,
                            int (*set)(void* arg, const char* name, const char* value), void* arg) {
  const char* end = text + length;
  const ImportFault fault = check(text, end);
  if (fault.reason != nullptr) {
    return fault;
  }
  size_t number = 1;
  for (char* line = text; line < end; number++) {
    char* line_end = end_of_line(line, end);
    *line_end = '\0';
    char* value = strchr(line, '=');
    if (value != nullptr) {
      *value++ = '\0';
      if (set(arg, line, value) != 0) {
        return {number, "cannot be stored"};
      }
    }
    line = line_end + 1;
  }
  return {0, nullptr};
}

} // namespace rcmd
