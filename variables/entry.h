// One named variable of the router: the row type of the two variable tables, and what a row's
// handlers promise. The tables themselves are variables/tables.h.
#pragma once

#include <cstdint>

namespace rcmd {

/// How a variable's name becomes an nvram key. The wire name never carries the unit.
enum VariableScope : std::uint32_t {
  kPlain = 0,       ///< one value for the whole device; the key is the name
  kPerWireless = 1, ///< "wl_ssid" of unit 0 is the key "wl0_ssid"
  kPerWan = 2,      ///< "wan_mode" of unit 0 is the key "wan0_mode"
};

struct VariableEntry {
  const char* name; ///< the name on the wire; null in a table's empty last row
  VariableScope scope;

  /// Reads the variable of one unit (0 for plain variables).
  /// @return a newly allocated text that the caller releases with free, null only when memory is
  /// out; the one text that nobody may release is shared_empty_text (reporters/status.h)
  char* (*get)(std::int32_t unit, const VariableEntry* row);

  /// Writes the variable of one unit; null in a read-only row. `value` stays the caller's and is
  /// only read. @return a status that every caller ignores
  std::int32_t (*set)(std::int32_t unit, const char* value, const VariableEntry* row);
};

} // namespace rcmd
