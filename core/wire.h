// Integers as they lie on the wire or in a file: byte arrays of alignment 1 that convert to and
// from the host's order, so that a layout can be written down as a plain record.
#pragma once

#include <cstdint>

namespace rcmd {

struct be16 {
  std::uint8_t bytes[2];

  operator std::uint16_t() const { return static_cast<std::uint16_t>((bytes[0] << 8) | bytes[1]); }
  be16& operator=(std::uint16_t value) {
    bytes[0] = static_cast<std::uint8_t>(value >> 8);
    bytes[1] = static_cast<std::uint8_t>(value & 0xFF);
    return *this;
  }
};

struct be32 {
  std::uint8_t bytes[4];

  operator std::uint32_t() const {
    return (static_cast<std::uint32_t>(bytes[0]) << 24) |
           (static_cast<std::uint32_t>(bytes[1]) << 16) |
           (static_cast<std::uint32_t>(bytes[2]) << 8) | bytes[3];
  }
  be32& operator=(std::uint32_t value) {
    for (int i = 0; i < 4; i++) {
      bytes[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
    }
    return *this;
  }
};

struct le16 {
  std::uint8_t bytes[2];

  operator std::uint16_t() const { return static_cast<std::uint16_t>((bytes[1] << 8) | bytes[0]); }
  le16& operator=(std::uint16_t value) {
    bytes[0] = static_cast<std::uint8_t>(value & 0xFF);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
    return *this;
  }
};

struct le32 {
  std::uint8_t bytes[4];

  operator std::uint32_t() const {
    return (static_cast<std::uint32_t>(bytes[3]) << 24) |
           (static_cast<std::uint32_t>(bytes[2]) << 16) |
           (static_cast<std::uint32_t>(bytes[1]) << 8) | bytes[0];
  }
  le32& operator=(std::uint32_t value) {
    for (int i = 0; i < 4; i++) {
      bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
    return *this;
  }
};

static_assert(sizeof(be16) == 2 && alignof(be16) == 1 && sizeof(be32) == 4 && alignof(be32) == 1);
static_assert(sizeof(le16) == 2 && alignof(le16) == 1 && sizeof(le32) == 4 && alignof(le32) == 1);

} // namespace rcmd
