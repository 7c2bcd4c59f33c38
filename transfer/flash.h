// The other way to upgrade, for devices that cannot hold a whole image: 640 KiB at a time are
// downloaded and written to the "linux" partition. The request table does not lead here; a device
// that needs it names rcm_upgradecmd_flash_func there.
#pragma once

#include "core/context.h"

#include <cstdint>

namespace rcmd {

constexpr std::uint32_t FLASH_BATCH_FRAGMENTS = 640;

/// Opens the MTD device of the first partition in /proc/mtd whose line contains `name`; without
/// one, `name` itself as a path. @return the descriptor, which is the caller's, or -1
[[nodiscard]] int mtd_open(const char* name, int flags);

/// Downloads and writes batch by batch. Blocks written before a failure stay written.
/// @return kSuccess, kFailure or kPeerDead
[[nodiscard]] int do_rcm_download_and_upgrade_firmware(RcmContext* context,
                                                       std::uint32_t total_length,
                                                       std::uint16_t fragment_count);

/// Handler of UPGRADECMD. Returns only when nothing, or not everything, was upgraded, or when the
/// restart was refused.
void rcm_upgradecmd_flash_func(RcmContext* context);

} // namespace rcmd
