// What the shared sources ask of the platform that they are linked into: where things lie, and the
// few things that a virtual router must do differently.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rcmd {

/// Writes the path of the tool's program. @return false when there is no such tool
bool find_tool(const char* name, char* path, size_t path_bytes);

/// Opens the device's console for writing. @return a descriptor that no tool inherits, or -1
int open_console();

/// Ends a child that overstays its time, as by signal 9.
void kill_child(int pid);

/// How many times as fast as the machine's clock the device's runs; at least 1. Uptime, timers and
/// pauses follow the device's clock; waits for an answer and the patience with tools do not.
int32_t clock_speed();

/// When the device booted, on monotonic_ms(); negative: when the machine did.
int64_t booted_ms();

/// Where the settings store keeps its files. All of them lie in folders of their own process'
/// making: a missing last folder is created.
struct NvramPaths {
  const char* working; ///< the working copy, on tmpfs
  const char* lock;    ///< locked around every change of the working copy
  const char* commits; ///< locked around every commit
  const char* image;   ///< the lasting image
};
/// @return null when the device has no place for them
const NvramPaths* nvram_paths();

} // namespace rcmd
