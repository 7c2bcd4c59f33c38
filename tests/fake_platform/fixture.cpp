#include "tests/fake_platform/fixture.h"

namespace fake {

namespace {

// A second implementation, bit by bit, so that the platform's own cannot agree with itself.
std::uint16_t checksum(const std::uint8_t* data, std::size_t length) {
  unsigned value = 0xFFFF;
  for (std::size_t i = 0; i < length; i++) {
    for (int bit = 0; bit < 8; bit++) {
      const unsigned mix = (value ^ (static_cast<unsigned>(data[i]) >> bit)) & 1U;
      value >>= 1;
      if (mix != 0) {
        value ^= 0x8408U;
      }
    }
  }
  return static_cast<std::uint16_t>(value);
}

void put16(Bytes& bytes, std::size_t at, unsigned value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value & 0xFF);
}

} // namespace

Bytes hex(const std::string& text) {
  Bytes bytes;
  std::string digits;
  for (const char c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
      digits += c;
    }
  }
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::string to_hex(const void* data, std::size_t length) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  std::string text;
  for (std::size_t i = 0; i < length; i++) {
    text += "0123456789abcdef"[bytes[i] >> 4];
    text += "0123456789abcdef"[bytes[i] & 15];
  }
  return text;
}

std::string to_hex(const Bytes& bytes) {
  return to_hex(bytes.data(), bytes.size());
}

Bytes bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

Bytes server_packet(std::uint16_t type, std::uint16_t flags, std::uint32_t seq,
                    const Bytes& payload, const std::string& session, const std::string& serial) {
  Bytes packet(36, 0);
  std::copy_n(session.begin(), std::min<std::size_t>(session.size(), 8), packet.begin());
  packet[8] = 0xA1;
  packet[9] = 0xA2;
  packet[10] = 0xA3;
  packet[11] = 0xA4;
  std::copy_n(serial.begin(), std::min<std::size_t>(serial.size(), 12), packet.begin() + 12);
  put16(packet, 24, seq >> 16);
  put16(packet, 26, seq & 0xFFFF);
  put16(packet, 28, type);
  put16(packet, 30, flags);
  put16(packet, 34, static_cast<unsigned>(payload.size()));
  packet.insert(packet.end(), payload.begin(), payload.end());
  mend_checksum(packet);
  return packet;
}

void mend_checksum(Bytes& packet) {
  const std::size_t length = std::min<std::size_t>(u16_at(packet, 34), packet.size() - 36);
  put16(packet, 32, checksum(packet.data() + 36, length));
}

std::uint16_t u16_at(const Bytes& bytes, std::size_t at) {
  return static_cast<std::uint16_t>((bytes.at(at) << 8) | bytes.at(at + 1));
}

std::uint32_t u32_at(const Bytes& bytes, std::size_t at) {
  return (static_cast<std::uint32_t>(u16_at(bytes, at)) << 16) | u16_at(bytes, at + 2);
}

} // namespace fake
