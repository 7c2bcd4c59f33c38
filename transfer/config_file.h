// The configuration file command: the whole configuration is downloaded, imported into nvram by the
// nvram tool, made lasting, and followed by a restart. What the file holds is the tool's business.
#pragma once

#include "core/context.h"

#include <cstdint>

namespace rcmd {

/// Handler of CONFIGFILE. Returns only when nothing was imported.
void rcm_config_upgrade_func(RcmContext* context);

/// Downloads to /tmp/config.download. @return kSuccess, kFailure or kPeerDead
[[nodiscard]] int do_rcm_config_download(RcmContext* context, std::uint32_t total_length,
                                         std::uint16_t fragment_count);

/// Imports the downloaded file and makes nvram lasting.
/// @return 0 when the import tool was started, however it ended
[[nodiscard]] int do_rcm_config_upgrade();

} // namespace rcmd
