// The road that every file takes behind its command's acknowledgement: file request, download, and,
// whenever the server stops answering, a new registration and all of it again.
#pragma once

#include "core/context.h"
#include "rcm/packet.h"
#include "transfer/file_request.h"

#include <cstdint>

namespace rcmd {

/// Where firmware is downloaded to. Every failure removes this file, a configuration's too.
constexpr char kFirmwareFile[] = "/tmp/firmware.download";

/// In what the files differ. Messages may be null.
struct FileTransfer {
  PacketType request_type;
  int (*download)(RcmContext* context, std::uint32_t total_length, std::uint16_t fragment_count);
  const char* before_request;
  const char* before_download;
  const char* failure; ///< printed when the download failed
};

/// Blocks the daemon, without limit while the server keeps dying.
/// @return kSuccess, or kFailure when the download failed on this side
[[nodiscard]] int transfer_file(RcmContext* context, const FileCommand& command,
                                const FileTransfer& transfer);

} // namespace rcmd
