// The handlers of the eight LAN DHCP rules, whose keys carry the rule number in the middle:
// "lan_dhcp_rule5" is the key "lan_dhcp5_rule". The value is opaque, and the unit means nothing.
#pragma once

#include "variables/entry.h"

#include <cstdint>

namespace rcmd {

char* lan_dhcp_rule_get(std::int32_t unit, const VariableEntry* row);

/// @return the result of nvram_set
std::int32_t lan_dhcp_rule_set(std::int32_t unit, const char* value, const VariableEntry* row);

} // namespace rcmd
