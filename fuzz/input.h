// What every fuzz target begins with: the input, read from front to back, and the two things that a
// target does with datagrams and findings. The packet's offsets are written out here once more (24
// seq, 32 crc, 34 length, 36 payload; big-endian), apart from the code under test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

/// Behind the input's end everything is zero and empty.
class Input {
public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  [[nodiscard]] bool empty() const { return left_ == 0; }
  std::uint8_t byte();
  std::uint16_t u16();
  std::uint32_t u32();
  Bytes bytes(std::size_t count); ///< at most as many as are left
  Bytes rest() { return bytes(left_); }
  std::string text(); ///< up to a NUL, which is taken too

private:
  const std::uint8_t* data_;
  std::size_t left_;
};

/// Makes `length` fit and the checksum right, so that an input does not die at the checksum.
void mend(Bytes& datagram);
void put_seq(Bytes& datagram, std::uint32_t seq);
std::uint16_t type_of(const Bytes& datagram);

/// A property that holds whatever the input is; otherwise the program ends as a finding.
void demand(bool holds, const char* what);

} // namespace fuzz
