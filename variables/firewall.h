// The handlers of the firewall rules. nvram keeps each field of a rule under a key of its own and a
// status beside them ("0" or absent: no rule, "2": enabled, any other number: disabled); the server
// sees one text, the fields joined by commas with "1" (enabled) or "0" at the end. Fields are
// opaque and cannot hold a comma. The unit means nothing.
#pragma once

#include "variables/entry.h"

#include <cstdint>

namespace rcmd {

/// 10 fields and the flag; the empty text when there is no rule.
char* firewall_access_get(std::int32_t unit, const VariableEntry* row);

/// An empty value hides the rule and keeps its fields.
/// @return nvram_set's result for the status; the number of fields when it is not 11, and nothing
/// has changed then
std::int32_t firewall_access_set(std::int32_t unit, const char* value, const VariableEntry* row);

/// The same with 8 fields and the flag.
char* firewall_portforwarding_get(std::int32_t unit, const VariableEntry* row);
std::int32_t firewall_portforwarding_set(std::int32_t unit, const char* value,
                                         const VariableEntry* row);

} // namespace rcmd
