// The nvram keys of variables, built in fixed places. A unit is written in decimal, sign included.
#pragma once

#include "variables/entry.h"

#include <cstddef>

namespace rcmd {

constexpr std::size_t kKeyBytes = 100;

/// A key with its NUL; what would not fit is cut.
struct NvramKey {
  char text[kKeyBytes];
};

/// The key of a row's variable for one unit: the name itself, or the unit's prefix and the name
/// behind its "wl_" or "wan_".
NvramKey variable_key(const VariableEntry& row, int unit);

/// "wl%d_" with the unit, and the suffix.
NvramKey wireless_key(int unit, const char* suffix);

/// @return a newly allocated copy of the key's value; of the empty text when it is absent
char* stored_copy(const char* key);

} // namespace rcmd
