#include "platform/api/checksum.h"

#include <array>

namespace {

template <typename Word, Word polynomial> constexpr std::array<Word, 256> make_table() {
  std::array<Word, 256> table{};
  for (unsigned i = 0; i < 256; i++) {
    auto value = static_cast<Word>(i);
    for (int bit = 0; bit < 8; bit++) {
      value = static_cast<Word>((value & 1U) != 0 ? (value >> 1) ^ polynomial : value >> 1);
    }
    table[i] = value;
  }
  return table;
}

constexpr auto kTable16 = make_table<uint16_t, 0x8408>();
constexpr auto kTable32 = make_table<uint32_t, 0xEDB88320U>();

} // namespace

extern "C" {

uint16_t crc16(const void* data, size_t length, uint16_t initial) {
  const auto* at = static_cast<const uint8_t*>(data);
  uint16_t value = initial;
  for (size_t i = 0; i < length; i++) {
    value = static_cast<uint16_t>((value >> 8) ^ kTable16[(value ^ at[i]) & 0xFFU]);
  }
  return value;
}

uint32_t crc32(const void* data, size_t length, uint32_t initial) {
  const auto* at = static_cast<const uint8_t*>(data);
  uint32_t value = initial;
  for (size_t i = 0; i < length; i++) {
    value = (value >> 8) ^ kTable32[(value ^ at[i]) & 0xFFU];
  }
  return value;
}

} // extern "C"
