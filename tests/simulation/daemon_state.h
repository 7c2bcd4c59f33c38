// The memory of the daemon's process: every variable of static storage of all its rooms. The linker
// gathers them between two marks, by a script that is made from the rooms' own declarations
// (CMakeLists.txt), so that a static variable which is added later is among them.
#pragma once

namespace sim {

/// As a freshly started process finds it. The first call must come before the daemon ever ran.
void restore_daemon_state();

/// @return whether the variable at `address` lies between the marks
bool is_daemon_state(const void* address);

} // namespace sim
