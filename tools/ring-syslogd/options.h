// The command line of ring-syslogd.
#pragma once

#include "reporters/syslog_ring.h"

#include <cstddef>
#include <cstdint>

namespace rcmd {

struct RingSyslogdOptions {
  const char* socket = "/dev/log";
  std::int32_t key = kSyslogRingKey;
  std::size_t bytes = 65536; ///< of the segment
  int mark_s = 1200;         ///< 0: no marks
  std::int64_t boot_s = 0;   ///< the system's uptime at which the device's own began
  std::int64_t scale = 1;    ///< seconds of the device in a second of the system
};

enum class OptionsResult { kRun, kHelp, kWrong };

/// What is wrong is told on standard error, help on standard output.
OptionsResult read_options(int argc, char** argv, RingSyslogdOptions& options);

} // namespace rcmd
