// The virtual router's device folder, named by the environment variable VIRTUAL_ROUTER_DIR.
//
// Everything that a device path ("/proc/net/dev", "/dev/mtd/3", "/tmp/config.download") names lies
// below that folder; a path with ".." in it leads nowhere. Beside the device's own files:
//
//   bin/             the only tools that are run
//   dev/console      the console: texts are appended to a file, or written to a FIFO or terminal
//   dev/mtd/N        flash partitions as plain files; blocks of 65,536 bytes
//   run/init         the supervisor's ear: a FIFO that the supervisor keeps open for reading (a
//                    plain file collects the lines). One line per request: "restart 01234567" or
//                    "signal 15". Missing, or a FIFO without a reader: the request has failed.
//   run/nvram        the working copy of the settings; removing it while no process of the router
//                    runs drops every change that was not committed
//   flash/nvram      the lasting image of the settings, and flash/nvram.previous
//   run/booted_ms    when the device booted, on the machine's monotonic clock, in milliseconds: its
//                    uptime counts from there. Missing: it booted with the machine
//   run/stations     lines "MAC RSSI": the stations of the pretend access point
//   run/memory_limit_kb  a number: what the check for memory finds instead of the machine's own
//
// VIRTUAL_ROUTER_ADDRESS, when set, takes the place of "any address" in a bind, so that several
// routers share one machine, each at its own 127.0.0.x with the same ports.
//
// VIRTUAL_ROUTER_TIME_SCALE, a number from 1 to 3600, has the device's clock run that many times as
// fast as the machine's: uptime, timers and pauses. Waiting for an answer takes its real time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rcmd {

/// The device folder as an absolute path without links. The first use ends the process with status
/// 1, and a line on standard error, when the folder is not named, is missing or is "/".
const char* device_folder();

/// The System V key that a router with this folder uses in place of the device's key, so that
/// routers meet neither each other nor the machine's own objects. Never 0.
/// @param folder  an absolute path without links
int32_t device_ipc_key(const char* folder, int32_t key);

/// Opens a file of the device for reading and reads its start into `text`, ended by NUL.
/// @return false when there is no such file
bool read_device_file(const char* path, char* text, size_t text_bytes);

} // namespace rcmd
