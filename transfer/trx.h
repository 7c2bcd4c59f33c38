// The header of a firmware image. All fields are little-endian.
#pragma once

#include "core/wire.h"

#include <cstddef>
#include <cstdint>

namespace rcmd {

struct TrxHeader {   // as at the image's start
  le32 magic;        ///< the characters "HDR0"
  le32 len;          ///< of the image in bytes, this header included
  le32 crc32;        ///< from 0xFFFFFFFF over the header from flag_version on, then the image
  le32 flag_version; ///< bit 0: see trx_read_length
  le32 offsets[3];   ///< of the partitions inside the image; covered by the checksum, not looked at
};
static_assert(sizeof(TrxHeader) == 28 && offsetof(TrxHeader, flag_version) == 12);

constexpr std::uint32_t kTrxMagic = 0x30524448;
constexpr std::uint32_t kTrxHeaderBytes = sizeof(TrxHeader);
constexpr std::uint32_t kTrxMaxBytes = 0x780000;

[[nodiscard]] inline bool trx_header_is_good(const TrxHeader& header) {
  const std::uint32_t len = header.len;
  return header.magic == kTrxMagic && len >= kTrxHeaderBytes && len <= kTrxMaxBytes;
}

/// @return bit 0 of flag_version: the header is not part of what is read or written
[[nodiscard]] inline bool trx_leaves_header_out(const TrxHeader& header) {
  return (header.flag_version & 1U) != 0;
}

/// @return the bytes that are read: `len`, without the header where that is left out
[[nodiscard]] inline std::uint32_t trx_read_length(const TrxHeader& header) {
  return trx_leaves_header_out(header) ? header.len - kTrxHeaderBytes : std::uint32_t{header.len};
}

/// Reads the header at the descriptor's present position. @return false when fewer bytes come
[[nodiscard]] bool read_trx_header(int fd, TrxHeader& header);

/// Runs the image's checksum over the file, which stands behind the header, with the words of the
/// firmware download.
/// @return false when the file is too short, or when a small image's checksum is wrong
[[nodiscard]] bool check_trx_image(int fd, const TrxHeader& header);

} // namespace rcmd
