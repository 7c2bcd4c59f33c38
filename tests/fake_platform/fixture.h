// The test fixture of the daemon's rooms: a fresh world per test.
#pragma once

#include "tests/fake_platform/fake.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fake {

class Fixture : public ::testing::Test {
protected:
  Fixture() { reset(); }
  ~Fixture() override { reset(); }
};

/// Bytes from hexadecimal text; blanks and line ends are skipped.
Bytes hex(const std::string& text);
/// Lower-case hexadecimal without blanks.
std::string to_hex(const Bytes& bytes);
std::string to_hex(const void* data, std::size_t length);
Bytes bytes_of(const std::string& text);

/// A packet as the server sends it: header and payload with the right length and checksum, both
/// computed here and not by the code under test. `session` has 8 bytes.
Bytes server_packet(std::uint16_t type, std::uint16_t flags, std::uint32_t seq,
                    const Bytes& payload = {}, const std::string& session = "SESSION1",
                    const std::string& serial = "SN0123456789");
/// Writes the right checksum over what `length` says.
void mend_checksum(Bytes& packet);

/// Fields of a sent packet, read at the raw offsets.
std::uint16_t u16_at(const Bytes& bytes, std::size_t at);
std::uint32_t u32_at(const Bytes& bytes, std::size_t at);
inline std::uint32_t seq_of(const Bytes& packet) {
  return u32_at(packet, 24);
}
inline std::uint16_t type_of(const Bytes& packet) {
  return u16_at(packet, 28);
}
inline std::uint16_t flags_of(const Bytes& packet) {
  return u16_at(packet, 30);
}
inline std::uint16_t length_of(const Bytes& packet) {
  return u16_at(packet, 34);
}

} // namespace fake
