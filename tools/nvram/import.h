// The text form of the settings: lines "name=value".
//
// The name is everything before the first '=' and is not empty; the value is everything behind it,
// as it stands, and may be empty. Lines end with a line feed, the last one may lack it; empty lines
// are passed over. A NUL byte is malformed. A value that holds a line feed has no text form.
#pragma once

#include <cstddef>

namespace rcmd {

/// Why a text was refused.
struct ImportFault {
  size_t line;        ///< counted from 1
  const char* reason; ///< null: nothing is wrong
};

/// Looks at the whole text first and, when no line is malformed, calls `set` for every line in
/// order. A `set` that does not return 0 ends the import there.
/// @param text    writable, with room for one more byte at text[length]; cut up on the way
/// @param set     gets name and value, both ended by NUL
/// @return the first malformed line, or the line that `set` refused
ImportFault import_settings(char* text, size_t length,
                            int (*set)(void* arg, const char* name, const char* value), void* arg);

} // namespace rcmd
