#include "fuzz/input.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzz {

namespace {

constexpr std::size_t kHeaderBytes = 36;

std::uint16_t checksum(const std::uint8_t* data, std::size_t length) {
  unsigned value = 0xFFFF;
  for (std::size_t i = 0; i < length; i++) {
    value ^= data[i];
    for (int bit = 0; bit < 8; bit++) {
      value = (value & 1U) != 0 ? (value >> 1) ^ 0x8408U : value >> 1;
    }
  }
  return static_cast<std::uint16_t>(value);
}

void put16(Bytes& bytes, std::size_t at, std::size_t value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value & 0xFF);
}

std::size_t u16_at(const Bytes& bytes, std::size_t at) {
  return static_cast<std::size_t>((bytes[at] << 8) | bytes[at + 1]);
}

} // namespace

std::uint8_t Input::byte() {
  if (left_ == 0) {
    return 0;
  }
  left_--;
  return *data_++;
}

std::uint16_t Input::u16() {
  const unsigned high = byte();
  return static_cast<std::uint16_t>((high << 8) | byte());
}

std::uint32_t Input::u32() {
  const std::uint32_t high = u16();
  return (high << 16) | u16();
}

Bytes Input::bytes(std::size_t count) {
  const std::size_t taken = std::min(count, left_);
  const Bytes result(data_, data_ + taken);
  data_ += taken;
  left_ -= taken;
  return result;
}

std::string Input::text() {
  const Bytes bytes_left(data_, data_ + left_);
  const auto end = std::find(bytes_left.begin(), bytes_left.end(), 0);
  const std::string result(bytes_left.begin(), end);
  const std::size_t taken = std::min(result.size() + 1, left_);
  data_ += taken;
  left_ -= taken;
  return result;
}

void mend(Bytes& datagram) {
  if (datagram.size() < kHeaderBytes) {
    return;
  }
  const std::size_t length = std::min(u16_at(datagram, 34), datagram.size() - kHeaderBytes);
  put16(datagram, 34, length);
  put16(datagram, 32, checksum(datagram.data() + kHeaderBytes, length));
}

void put_seq(Bytes& datagram, std::uint32_t seq) {
  if (datagram.size() >= kHeaderBytes) {
    put16(datagram, 24, seq >> 16);
    put16(datagram, 26, seq & 0xFFFF);
  }
}

std::uint16_t type_of(const Bytes& datagram) {
  return datagram.size() < kHeaderBytes ? std::uint16_t{0}
                                        : static_cast<std::uint16_t>(u16_at(datagram, 28));
}

void demand(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
  }
}

} // namespace fuzz
