// A file to be fetched by devices: its bytes, cut into fragments of 1024 (the last may be shorter).
// Whoever derives from it owns the bytes and keeps them unchanged for the image's life. The
// checksum of every fragment's answer is made once, so that serving one costs no pass over it.
#pragma once

#include "server/wire.h"

namespace server {

constexpr std::size_t kFragmentBytes = 1024;
constexpr std::size_t kMostFragments = 65535; ///< the count travels in 16 bits

class Image {
public:
  virtual ~Image() = default;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  [[nodiscard]] View bytes() const { return bytes_; }
  [[nodiscard]] std::uint64_t digest() const { return digest_; }
  [[nodiscard]] std::uint32_t fragments() const { return static_cast<std::uint32_t>(crcs_.size()); }
  [[nodiscard]] View fragment(std::uint16_t number) const;
  /// CRC-16 of a fragment's answer: its number, two zero bytes and its data.
  [[nodiscard]] std::uint16_t crc(std::uint16_t number) const { return crcs_[number]; }

protected:
  Image() = default;
  void set_bytes(View bytes);

private:
  View bytes_;
  std::uint64_t digest_ = 0;
  std::vector<std::uint16_t> crcs_;
};

/// The 4 bytes that stand before a fragment's data.
std::array<std::uint8_t, 4> fragment_prefix(std::uint16_t number);

} // namespace server
