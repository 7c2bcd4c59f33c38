// What the stub request table does with a request.
#pragma once

#include "core/context.h"

#include <functional>
#include <string>

namespace fake {

/// Called in place of every request handler; `route` is "upgrade", "config", "configfile" or
/// "generic".
extern std::function<void(const std::string& route, rcmd::RcmContext& context)> on_request;

} // namespace fake
