// The device as a whole: restart, process 1, and the end of this process.
#pragma once

#include <stdint.h>

extern "C" {

/// Restarts the device at once: what file systems have not written yet is lost. nvram_commit and
/// the flash tools leave nothing behind for them. @param code  the kernel's restart code,
/// 0x01234567
/// @return only when the restart was refused
int restart_device(uint32_t code);

/// Sends `signal_number` to process 1. @return 0, or -1
int signal_init(int signal_number);

/// Waits for a restart that has been asked for; nothing of this process runs any more.
[[noreturn]] void await_restart(void);

/// Ends this process. @param status  the exit status
[[noreturn]] void exit_process(int status);

/// Whole seconds since boot, as the system's uptime query gives them.
int32_t system_uptime(void);

/// Wall-clock seconds since 1970-01-01 00:00:00 UTC, as time() gives them.
int64_t wall_clock(void);

void sleep_seconds(unsigned seconds);
}
