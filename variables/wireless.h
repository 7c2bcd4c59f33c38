// The handlers of the wireless variables that the server speaks of in small numbers, where nvram
// keeps the words and flags that the wireless setup reads; and the MAC rules, which are joined into
// one list whenever one of them changes. All keys are the unit's own ("wl0_auth").
#pragma once

#include "variables/entry.h"

#include <cstdint>

namespace rcmd {

/// The number that the server set last, as it was.
char* wl_auth_mode_get(std::int32_t unit, const VariableEntry* row);

/// Keeps the number and, for 1 to 3, writes the keys that it stands for.
/// @return the last nvram_set's result; 1 for a number below 1, 3 for one above 3
std::int32_t wl_auth_mode_set(std::int32_t unit, const char* value, const VariableEntry* row);

/// "0" disabled, "1" deny, "2" allow; the empty text for any other word.
char* wl_macmode_get(std::int32_t unit, const VariableEntry* row);

/// @return nvram_set's result; -1 for a number outside 0 to 2, which changes nothing
std::int32_t wl_macmode_set(std::int32_t unit, const char* value, const VariableEntry* row);

/// Stores the rule as it is and joins the list anew. @return as wl_maclist_update
std::int32_t wl_macrule_set(std::int32_t unit, const char* value, const VariableEntry* row);

/// Writes the unit's "maclist": the first 17 characters of every rule that is not empty, in order,
/// one blank between two. @return nvram_set's result
std::int32_t wl_maclist_update(std::int32_t unit);

/// "1" when enabled, else "0".
char* wl_wep_get(std::int32_t unit, const VariableEntry* row);

/// @return nvram_set's result; -1 for a number other than 0 and 1, which changes nothing
std::int32_t wl_wep_set(std::int32_t unit, const char* value, const VariableEntry* row);

} // namespace rcmd
