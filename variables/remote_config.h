// The server's CONFIG request: variables to be set, in the record form of the reports. They take
// effect in nvram alone; commit and restart are requests of their own.
#pragma once

#include "core/context.h"

#include <cstdint>

namespace rcmd {

/// Applies the request that stands, checked, in the receive buffer, and acknowledges it whatever
/// became of its records.
void rcm_config_func(RcmContext* context);

/// Sets every loaded variable (variables/codec.h) that has a writer, in the order of
/// config_variables. `variable_type` is ignored.
void do_upgrade_cgi(std::uint16_t variable_type, std::uint16_t unit);

} // namespace rcmd
