// The handlers of every variable that nvram holds as the server sees it.
#pragma once

#include "variables/entry.h"

#include <cstdint>

namespace rcmd {

/// Copies the value of the row's key for the unit. A row whose scope is none of the three reads as
/// the number 2 in place of a text.
char* generic_nvram_get(std::int32_t unit, const VariableEntry* row);

/// Stores the value under the row's key for the unit; nothing is committed.
/// @return 2 for the scopes 0 and 1, the result of nvram_set for scope 2
std::int32_t generic_nvram_set(std::int32_t unit, const char* value, const VariableEntry* row);

} // namespace rcmd
