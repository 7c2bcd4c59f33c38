// The management packet as the server reads and writes it: 36 header bytes, then the payload.
//
// Byte 0 session (8), 8 version (4), 12 serial (12), 24 seq (u32), 28 type (u16), 30 flags (u16),
// 32 crc (u16), 34 length (u16); integers are big-endian. The offsets are written out here once
// more, and on purpose not shared with the device's own code: a wrong offset on one side shows at
// once as a device that does not enrol.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace server {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;
using Session = std::array<std::uint8_t, 8>;
using Header = std::array<std::uint8_t, 36>;

constexpr std::size_t kHeaderBytes = 36;
constexpr std::size_t kLargestDatagram = 8192; ///< what a device can receive

enum Type : std::uint16_t {
  kRegister = 1,
  kLog = 2,
  kConf = 3,
  kStatus = 4,
  kFirmwareFragment = 6,
  kKeepalive = 7,
  kFirmwareRequest = 8,
  kGps = 9,
  kServerTime = 11,
  kConfigFragment = 12,
  kConfigRequest = 13,
  kKeepaliveParam = 14,
  kTraffic = 64,
  kUpgradeCmd = 256,
  kConfig = 257,
  kCommitReboot = 258,
  kRestoreDefaults = 259,
  kSendStatus = 260,
  kConfigFile = 261,
};

enum Flags : std::uint16_t { kReport = 0, kReply = 1, kTransfer = 2, kPosition = 4 };

/// CRC-16 over x^16 + x^12 + x^5 + 1, least significant bit first, without a final inversion.
/// Runs on from `crc`, so that a payload may be given in pieces.
std::uint16_t crc16(View data, std::uint16_t crc = 0xFFFF);

std::uint16_t u16_at(View bytes, std::size_t offset);
std::uint32_t u32_at(View bytes, std::size_t offset);
void put_u16(std::uint8_t* at, std::uint16_t value);
void put_u32(std::uint8_t* at, std::uint32_t value);

struct Address {
  std::uint32_t ip = 0; ///< IPv4, host order
  std::uint16_t port = 0;
  auto operator<=>(const Address&) const = default;
};

/// A checked datagram; the views point into it.
struct Packet {
  Address from;
  View bytes;         ///< the whole datagram
  std::string serial; ///< text up to the first NUL, never empty, printable ASCII
  std::uint32_t seq;
  std::uint16_t type;
  std::uint16_t flags;
  View payload; ///< `length` bytes, covered by the checksum
  View rest;    ///< what follows the counted payload
};

/// @return nothing when it is too short, its length reaches past its end, its checksum is wrong or
/// its serial number names no device
std::optional<Packet> parse_packet(const Address& from, View datagram);

/// The header of an answer: the request's own with the session, flags 1, length and checksum set.
Header answer_header(const Packet& request, const Session& session, std::uint16_t crc,
                     std::uint16_t length);

/// A request of the server: header and counted payload.
Bytes build_request(std::uint16_t type, std::uint32_t seq, const Session& session,
                    const std::string& serial, View payload);

inline View view_of(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
/// The bytes up to the first NUL.
std::string text_of(View bytes);

} // namespace server
