// The syslog daemon of a pretend device, and the System V objects that its ring lives in. Every
// device has a key of its own, so that several live side by side.
#pragma once

#include "tools/virtual-router/boot_time.h"
#include "tools/virtual-router/device_folder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace virtual_router {

/// The key under which the virtual platform looks for the ring of the device in `root`.
std::int32_t ring_key(const std::string& root);

/// How `program` is started as this device's syslog daemon.
std::vector<std::string> ring_command(const std::string& program, const DeviceFolder& folder,
                                      const BootTime& boot, unsigned time_scale);

/// Removes the objects if they are there: after a syslog daemon that could not do so itself.
void remove_ring(const DeviceFolder& folder);

} // namespace virtual_router
