// The read handlers of the status variables about interfaces and memory.
#pragma once

#include "variables/entry.h"

#include <cstdint>

namespace rcmd {

/// What interfaces_info_get answers when it has nothing to tell. It is one text for all and must
/// never be freed.
extern char shared_empty_text[1];

/// Serves "lan_status", "lan_inpkts", "lan_outpkts", "wan_inpkts" and "wan_outpkts": the state and
/// the packet counts of the interface that nvram "lan_ifname" or "wan<unit>_ifname" names.
/// @return a newly allocated text, or shared_empty_text for the status of an interface that is not
/// there, and for any other variable
char* interfaces_info_get(std::int32_t unit, const VariableEntry* row);

/// The percentage of memory that is neither free nor cached; the empty text when the figures are
/// not to be had or the total is 0.
char* memusage_get(std::int32_t unit, const VariableEntry* row);

/// The memory in bytes, at most 2147483647; the empty text when the figures are not to be had.
char* memtotal_get(std::int32_t unit, const VariableEntry* row);

} // namespace rcmd
