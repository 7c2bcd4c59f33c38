// What the device's programs ask of process 1, through a FIFO: one line per request, "restart CODE"
// (the kernel's restart call) or "signal NUMBER".
#pragma once

#include <string>

namespace virtual_router {

constexpr const char* kInitRequests = "/run/init";

/// @param lines  what stood in the FIFO
/// @return why the device is to be restarted, in words; empty when nothing asks for it. Of the
/// signals, only 15 does.
std::string restart_reason(const std::string& lines);

} // namespace virtual_router
