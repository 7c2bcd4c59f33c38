#include "server/wire.h"

#include <algorithm>

namespace server {

namespace {

constexpr std::size_t kSerialAt = 12;
constexpr std::size_t kSerialBytes = 12;
constexpr std::size_t kSeqAt = 24;
constexpr std::size_t kTypeAt = 28;
constexpr std::size_t kFlagsAt = 30;
constexpr std::size_t kCrcAt = 32;
constexpr std::size_t kLengthAt = 34;

constexpr std::array<std::uint16_t, 256> make_crc_table() {
  std::array<std::uint16_t, 256> table{};
  for (unsigned byte = 0; byte < 256; byte++) {
    unsigned crc = byte;
    for (int bit = 0; bit < 8; bit++) {
      crc = (crc & 1) != 0 ? (crc >> 1) ^ 0x8408U : crc >> 1;
    }
    table[byte] = static_cast<std::uint16_t>(crc);
  }
  return table;
}
constexpr auto kCrcTable = make_crc_table();

bool names_a_device(const std::string& serial) {
  return !serial.empty() &&
         std::all_of(serial.begin(), serial.end(), [](char c) { return c > ' ' && c < 0x7F; });
}

} // namespace

std::uint16_t crc16(View data, std::uint16_t crc) {
  for (const std::uint8_t byte : data) {
    crc = static_cast<std::uint16_t>((crc >> 8) ^ kCrcTable[(crc ^ byte) & 0xFF]);
  }
  return crc;
}

std::uint16_t u16_at(View bytes, std::size_t offset) {
  return static_cast<std::uint16_t>((bytes[offset] << 8) | bytes[offset + 1]);
}

std::uint32_t u32_at(View bytes, std::size_t offset) {
  return (static_cast<std::uint32_t>(u16_at(bytes, offset)) << 16) | u16_at(bytes, offset + 2);
}

void put_u16(std::uint8_t* at, std::uint16_t value) {
  at[0] = static_cast<std::uint8_t>(value >> 8);
  at[1] = static_cast<std::uint8_t>(value & 0xFF);
}

void put_u32(std::uint8_t* at, std::uint32_t value) {
  put_u16(at, static_cast<std::uint16_t>(value >> 16));
  put_u16(at + 2, static_cast<std::uint16_t>(value & 0xFFFF));
}

std::string text_of(View bytes) {
  return {bytes.begin(), std::find(bytes.begin(), bytes.end(), std::uint8_t{0})};
}

std::optional<Packet> parse_packet(const Address& from, View datagram) {
  if (datagram.size() < kHeaderBytes) {
    return std::nullopt;
  }
  const std::size_t length = u16_at(datagram, kLengthAt);
  if (length > datagram.size() - kHeaderBytes) {
    return std::nullopt;
  }
  const View payload = datagram.subspan(kHeaderBytes, length);
  if (crc16(payload) != u16_at(datagram, kCrcAt)) {
    return std::nullopt;
  }
  std::string serial = text_of(datagram.subspan(kSerialAt, kSerialBytes));
  if (!names_a_device(serial)) {
    return std::nullopt;
  }
  return Packet{.from = from,
                .bytes = datagram,
                .serial = std::move(serial),
                .seq = u32_at(datagram, kSeqAt),
                .type = u16_at(datagram, kTypeAt),
                .flags = u16_at(datagram, kFlagsAt),
                .payload = payload,
                .rest = datagram.subspan(kHeaderBytes + length)};
}

Header answer_header(const Packet& request, const Session& session, std::uint16_t crc,
                     std::uint16_t length) {
  Header header;
  std::copy_n(request.bytes.begin(), kHeaderBytes, header.begin());
  std::copy(session.begin(), session.end(), header.begin());
  put_u16(&header[kFlagsAt], kReply);
  put_u16(&header[kCrcAt], crc);
  put_u16(&header[kLengthAt], length);
  return header;
}

Bytes build_request(std::uint16_t type, std::uint32_t seq, const Session& session,
                    const std::string& serial, View payload) {
  constexpr std::array<std::uint8_t, 4> version{0, 1, 0, 2};
  Bytes bytes(kHeaderBytes);
  std::copy(session.begin(), session.end(), bytes.begin());
  std::copy(version.begin(), version.end(), bytes.begin() + 8);
  std::copy_n(serial.begin(), std::min(serial.size(), kSerialBytes), bytes.begin() + kSerialAt);
  put_u32(&bytes[kSeqAt], seq);
  put_u16(&bytes[kTypeAt], type);
  put_u16(&bytes[kFlagsAt], kReport);
  put_u16(&bytes[kCrcAt], crc16(payload));
  put_u16(&bytes[kLengthAt], static_cast<std::uint16_t>(payload.size()));
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  return bytes;
}

} // namespace server
