// Texts in fixed places: a bounded writer and a bounded copy. Nothing is allocated.
#pragma once

#include <cstddef>

namespace rcmd {

/// Writes formatted texts one behind the other into a caller's buffer; it never writes past
/// `capacity`, and a piece that does not fit is left out whole.
struct TextWriter {
  char* data;
  std::size_t capacity; ///< bytes, the room for snprintf's NUL included
  std::size_t used;     ///< characters written so far; no NUL is counted

  /// Appends, and leaves a NUL behind the text that is not counted in `used`.
  /// @return false when the piece and its NUL do not fit; `used` and the text are as before then,
  /// but the bytes behind the text's NUL may have been written
  [[nodiscard]] bool append(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

/// Fills a field of `size` bytes with the text: cut when too long and then without a terminator,
/// zero behind it when shorter.
void copy_field(char* field, std::size_t size, const char* text);

/// The decimal number at the start of the text, as atoi reads it, but one that does not fit an int
/// is the nearest that does.
int decimal(const char* text);

/// nvram_get, with the empty text for an absent key. The lifetime is nvram_get's.
const char* nvram_text(const char* name);

} // namespace rcmd
