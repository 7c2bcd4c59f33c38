// The upgrade command: firmware is downloaded to a temporary file, checked, handed to the flash
// tool and followed by a restart.
#pragma once

#include "core/context.h"

#include <cstdint>

namespace rcmd {

/// Handler of UPGRADECMD. Returns only when nothing was upgraded.
void rcm_upgradecmd_func(RcmContext* context);

/// Stops the services that could disturb, downloads the image to /tmp/firmware.download and checks
/// it. The services stay stopped. @return kSuccess, kFailure or kPeerDead
[[nodiscard]] int do_rcm_download_firmware(RcmContext* context, std::uint32_t total_length,
                                           std::uint16_t fragment_count);

/// Runs the flash tool on the downloaded file, waits for it and removes the file.
/// @return 0 when the tool was started, however it ended
[[nodiscard]] int do_rcm_upgrade();

/// What the firmware downloads print when the server is dead, without a line end.
constexpr char kFirmwarePeerDead[] = "Peer dead when upgrading firmware, Register again";
constexpr std::uint32_t kRestartCode = 0x01234567;

} // namespace rcmd
