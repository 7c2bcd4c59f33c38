// The flash of a pretend device: the partition "linux" (8 MiB, firmware) and the partition "backup"
// (64 KiB), each a file that keeps its size, with "/proc/mtd" saying so.
//
// A firmware image is a TRX image: 28 bytes of header (little-endian magic, length, checksum, flag
// word, three offsets) and the payload. A firmware of this device begins its payload with the line
// "version=TEXT".
//
// The backup image: 20 bytes of header (big-endian magic "NVBK", version 1, bytes of records,
// CRC-32 over them, and zero), then records "name=value", each ended by a NUL; NUL to the end.
#pragma once

#include "tools/virtual-router/defaults.h"
#include "tools/virtual-router/device_folder.h"

#include <cstdint>
#include <optional>
#include <string>

namespace virtual_router {

constexpr std::size_t kLinuxBytes = std::size_t{8} << 20;
constexpr std::size_t kBackupBytes = std::size_t{64} << 10;

/// Makes what is missing: erased "linux", and "backup" holding `kept`. What is there stays.
void make_flash(const DeviceFolder& folder, const Settings& kept);

/// @return the version that the image carries, or nothing when it is not a whole, sound TRX image
/// with a version line
std::optional<std::string> version_of_image(const std::string& image);

/// The version that partition "linux" holds.
std::optional<std::string> flashed_version(const DeviceFolder& folder);

std::string backup_image(const Settings& records);
/// The records of a backup image. The header's checksum is not compared: the daemon edits records
/// in place and leaves the header alone.
Settings backup_records(const std::string& image);

} // namespace virtual_router
