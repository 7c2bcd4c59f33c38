// A slice of bytes is taken at a time, each byte through a table of its own: table k holds the
// checksum of one byte with k zero bytes behind it, and checksums of equal lengths add up by
// exclusive or. The wire's checksum runs over every fragment of a file and has the longer slices.

#include "platform/api/checksum.h"

#include <array>
#include <utility>

namespace {

template <typename Word, size_t slices> using Tables = std::array<std::array<Word, 256>, slices>;

template <typename Word> constexpr Word pass_zero_byte(Word value, Word polynomial) {
  for (int bit = 0; bit < 8; bit++) {
    value = static_cast<Word>((value & 1U) != 0 ? (value >> 1) ^ polynomial : value >> 1);
  }
  return value;
}

template <typename Word, size_t slices> constexpr auto make_tables(Word polynomial) {
  Tables<Word, slices> tables{};
  for (unsigned byte = 0; byte < 256; byte++) {
    auto value = static_cast<Word>(byte);
    for (auto& table : tables) {
      value = pass_zero_byte(value, polynomial);
      table[byte] = value;
    }
  }
  return tables;
}

constexpr auto kTables16 = make_tables<uint16_t, 16>(0x8408);
constexpr auto kTables32 = make_tables<uint32_t, 8>(0xEDB88320U);

// One slice; the running value lies over its first bytes, which are looked up last since they are
// known last. Written as a fold, so that it is straight code.
template <typename Word, size_t slices, size_t... i>
Word pass_slice(const Tables<Word, slices>& tables, const uint8_t* at, Word value,
                std::index_sequence<i...>) {
  const auto over = [value](size_t byte) {
    return byte < sizeof(Word) ? static_cast<uint8_t>(value >> (8 * byte)) : 0U;
  };
  return static_cast<Word>((... ^ tables[i][at[slices - 1 - i] ^ over(slices - 1 - i)]));
}

template <typename Word, size_t slices>
Word checksum(const Tables<Word, slices>& tables, const void* data, size_t length, Word value) {
  const auto* at = static_cast<const uint8_t*>(data);
  for (; length >= slices; at += slices, length -= slices) {
    value = pass_slice(tables, at, value, std::make_index_sequence<slices>());
  }
  for (; length > 0; at++, length--) {
    value = static_cast<Word>((value >> 8) ^ tables[0][(value ^ *at) & 0xFFU]);
  }
  return value;
}

} // namespace

extern "C" {

uint16_t crc16(const void* data, size_t length, uint16_t initial) {
  return checksum(kTables16, data, length, initial);
}

uint32_t crc32(const void* data, size_t length, uint32_t initial) {
  return checksum(kTables32, data, length, initial);
}

} // extern "C"
