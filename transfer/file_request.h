// What names a file on the wire: the server's command that offers one, the device's request for
// it, and the requests for its fragments. docs/protocol.md shows each with its bytes.
#pragma once

#include "core/context.h"
#include "core/wire.h"
#include "rcm/packet.h"

#include <cstddef>
#include <cstdint>

namespace rcmd {

/// The payload of UPGRADECMD and CONFIGFILE. The file's name stands behind it, ended by a NUL or by
/// the datagram's end.
struct RcmFileCommand {
  std::uint8_t unread[2];
  be16 fragment_count;
  be32 total_length;
};
static_assert(sizeof(RcmFileCommand) == 8);
constexpr std::size_t kFileNameAt = kHeaderBytes + sizeof(RcmFileCommand);

constexpr std::size_t kFileNameBytes = 1024; ///< the terminator included

/// A file command, taken out of rx_buf before the answers to come overwrite it.
struct FileCommand {
  std::uint16_t fragment_count;
  std::uint32_t total_length;
  char name[kFileNameBytes];
};

/// Reads the command in rx_buf. @return false, and says so under `debug`, when the datagram ends
/// before the name's place or the name does not fit
[[nodiscard]] bool read_file_command(const RcmContext& context, FileCommand& command);

/// @return non-zero when `extra_bytes` beside the whole file fit into memory, as
/// check_memory_avalid tells it; 0 when not
[[nodiscard]] int file_fits(const FileCommand& command, std::uint32_t extra_bytes);

/// Asks the server for the file (`type` kFwReq or kConfReq) until it acknowledges, 20 times at
/// most.
/// @return kSuccess; kFailure when the request could not be sent; kPeerDead
[[nodiscard]] int do_request_file(RcmContext* context, const char* name, std::uint32_t total_length,
                                  std::uint16_t fragment_count, PacketType type);

/// Sends one request for a fragment. @return 0, or non-zero when it could not be sent
[[nodiscard]] int do_request_fw_fragment(RcmContext* context, std::uint16_t fragment);
[[nodiscard]] int do_request_config_fragment(RcmContext* context, std::uint16_t fragment);

} // namespace rcmd
