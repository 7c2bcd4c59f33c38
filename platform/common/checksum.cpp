#include "platform/api/checksum.h"

#include <array>
#include <cstring>

namespace {

/// Row k holds what a byte becomes once k further zero bytes have gone through the register.
template <typename Word, Word polynomial, unsigned rows>
constexpr std::array<std::array<Word, 256>, rows> make_tables() {
  std::array<std::array<Word, 256>, rows> tables{};
  for (unsigned i = 0; i < 256; i++) {
    auto value = static_cast<Word>(i);
    for (int bit = 0; bit < 8; bit++) {
      value = static_cast<Word>((value & 1U) != 0 ? (value >> 1) ^ polynomial : value >> 1);
    }
    tables[0][i] = value;
  }
  for (unsigned row = 1; row < rows; row++) {
    for (unsigned i = 0; i < 256; i++) {
      const Word before = tables[row - 1][i];
      tables[row][i] = static_cast<Word>((before >> 8) ^ tables[0][before & 0xFFU]);
    }
  }
  return tables;
}

constexpr auto kTables16 = make_tables<uint16_t, 0x8408, 8>();
constexpr auto kTables32 = make_tables<uint32_t, 0xEDB88320U, 8>();

/// Takes as many bytes at once as there are tables; bytes are read singly, so that the host's byte
/// order does not matter.
template <typename Word, size_t rows>
Word sliced(const std::array<std::array<Word, 256>, rows>& tables, const uint8_t* at, size_t length,
            Word value) {
  for (; length >= rows; length -= rows, at += rows) {
    Word next = 0;
#pragma GCC unroll 8
    for (size_t i = 0; i < rows; i++) {
      const unsigned old = i < sizeof(Word) ? static_cast<unsigned>(value >> (8 * i)) : 0;
      next = static_cast<Word>(next ^ tables[rows - 1 - i][(at[i] ^ old) & 0xFFU]);
    }
    value = next;
  }
  for (; length > 0; length--, at++) {
    value = static_cast<Word>((value >> 8) ^ tables[0][(value ^ *at) & 0xFFU]);
  }
  return value;
}

constexpr size_t kFoldWords = 16;
constexpr size_t kFoldBytes = kFoldWords * sizeof(uint64_t);

/// The 16-bit polynomial has four terms only, and so has its 64th power:
/// x^1024 = x^768 + x^320 + 1. A 64-bit word may therefore be taken out of the message when it is
/// added to the words that stand 4, 11 and 16 places behind it, which costs three XORs for 8 bytes
/// and no table. `ring` collects what is owed to the next 16 words.
/// @return the number of bytes taken out, all but the last 128 to 255
size_t fold(const uint8_t* at, size_t length, uint64_t ring[kFoldWords]) {
  size_t taken = 0;
  for (; length - taken >= 2 * kFoldBytes; taken += kFoldBytes) {
#pragma GCC unroll 16
    for (size_t i = 0; i < kFoldWords; i++) {
      uint64_t word = 0;
      memcpy(&word, at + taken + i * sizeof word, sizeof word);
      word ^= ring[i];
      ring[i] = word;
      ring[(i + 4) % kFoldWords] ^= word;
      ring[(i + 11) % kFoldWords] ^= word;
    }
  }
  return taken;
}

} // namespace

extern "C" {

uint16_t crc16(const void* data, size_t length, uint16_t initial) {
  const auto* at = static_cast<const uint8_t*>(data);
  if (length < 2 * kFoldBytes) {
    return sliced(kTables16, at, length, initial);
  }
  const uint8_t start[2] = {static_cast<uint8_t>(initial & 0xFFU),
                            static_cast<uint8_t>(initial >> 8)};
  uint64_t ring[kFoldWords] = {};
  memcpy(ring, start, sizeof start);
  const size_t taken = fold(at, length, ring);
  for (size_t i = 0; i < kFoldWords; i++) {
    uint64_t word = 0;
    memcpy(&word, at + taken + i * sizeof word, sizeof word);
    ring[i] ^= word;
  }
  const auto* rest = reinterpret_cast<const uint8_t*>(ring);
  const uint16_t value = sliced(kTables16, rest, sizeof ring, uint16_t{0});
  return sliced(kTables16, at + taken + kFoldBytes, length - taken - kFoldBytes, value);
}

uint32_t crc32(const void* data, size_t length, uint32_t initial) {
  return sliced(kTables32, static_cast<const uint8_t*>(data), length, initial);
}

} // extern "C"
