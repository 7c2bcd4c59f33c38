// The variables of the router, as the server sees them: a flat set of named texts.
//
// Each table ends with a row whose name is null, and walks stop there. The order of the rows is the
// order of records in the reports, and the order in which a configuration request is applied.
#pragma once

#include "variables/entry.h"

#include <cstddef>

namespace rcmd {

constexpr std::size_t kConfigRows = 76;
constexpr std::size_t kInformationRows = 13;

/// The settings: reported at registration, changed by configuration requests.
extern const VariableEntry config_variables[kConfigRows + 1];

/// The status values; none can be written.
extern const VariableEntry information_variables[kInformationRows + 1];

} // namespace rcmd
