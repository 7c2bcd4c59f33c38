// Writing all settings as lines "name=value", sorted by name.
#pragma once

#include <cstdio>

namespace rcmd {

/// What became of a listing.
enum class Listing {
  kWhole,
  kKeysLeftOut, ///< keys whose value holds a line feed; each is named on standard error
  kFailed,      ///< no store, no memory, or the file could not be written
};

Listing write_settings(FILE* file);

} // namespace rcmd
