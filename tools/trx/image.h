// Firmware images, made and checked whole in memory (they are at most 7.5 MiB).
//
// An image is a TrxHeader and up to three parts, each beginning on a multiple of four bytes, where
// the header's offsets point. An image for the virtual router begins its first part with the line
// "version=TEXT": that is the firmware version it boots once the image is in its flash.
#pragma once

#include "transfer/trx.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trx {

constexpr std::size_t kMaxParts = 3;

/// @param leave_header_out  sets bit 0 of flag_version
/// @return the image, or nothing when it would be longer than rcmd::kTrxMaxBytes
std::optional<std::string> make_image(const std::vector<std::string>& parts, bool leave_header_out);

/// The line that carries a firmware version; stands in front of the first part.
std::string version_line(const std::string& version);

struct Info {
  std::uint32_t length = 0;
  std::uint32_t stored_crc = 0;
  std::uint32_t computed_crc = 0; ///< over as much of `length` as there is
  std::uint32_t flag_version = 0;
  std::array<std::uint32_t, kMaxParts> offsets{};
  std::optional<std::string> version;
};

/// Reads the header. @return nothing when there is no whole header with the magic
std::optional<Info> read_image(const std::string& image);

/// @return what is wrong with the image, or nothing: its magic, the bounds of its length, its
/// being whole, its checksum
std::optional<std::string> find_fault(const std::string& image);

} // namespace trx
