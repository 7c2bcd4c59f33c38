// The router's tools as transfers run them: fixed, null-ended lists of arguments.
#pragma once

#include "platform/api/process.h"

namespace rcmd {

/// Runs the tool with its output on the console and waits for its end, however long that takes.
/// @return what _eval gives
inline int run_to_console(const char* const* arguments) {
  return _eval(const_cast<char* const*>(arguments), ">/dev/console", 0, nullptr);
}

/// Starts the tool and leaves its output alone. @return what _eval gives
inline int start_tool(const char* const* arguments, int* pid) {
  return _eval(const_cast<char* const*>(arguments), nullptr, 0, pid);
}

} // namespace rcmd
