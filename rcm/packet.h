// The management packet: one UDP datagram, a 36-byte header and a payload; every number of it
// stands in this header. Integers are big-endian. docs/protocol.md shows each packet with its
// bytes.
#pragma once

#include "core/context.h"
#include "core/wire.h"

#include <cstddef>
#include <cstdint>

namespace rcmd {

struct RcmPacketHeader { // as on the wire
  std::uint8_t session_id[8];
  std::uint8_t version[4]; ///< only REGISTER writes it; else it goes out as tx_buf holds it
  std::uint8_t serial[12];
  be32 seq;
  be16 type;
  be16 flags;
  be16 crc; ///< crc16 of the payload from 0xFFFF; the header is not covered
  be16 length;
};
static_assert(sizeof(RcmPacketHeader) == 36 && alignof(RcmPacketHeader) == 1);
static_assert(offsetof(RcmPacketHeader, serial) == 12 && offsetof(RcmPacketHeader, seq) == 24);
static_assert(offsetof(RcmPacketHeader, crc) == 32 && offsetof(RcmPacketHeader, length) == 34);

constexpr std::size_t kHeaderBytes = sizeof(RcmPacketHeader);
constexpr std::size_t kMaxPayloadBytes = kBufferBytes - kHeaderBytes;
constexpr std::uint16_t kCrcStart = 0xFFFF;

enum PacketType : std::uint16_t {
  kRegister = 1,        ///< flags 0, answered, matched by seq
  kLog = 2,             ///< flags 0, acknowledged
  kConf = 3,            ///< flags 0, acknowledged
  kStatus = 4,          ///< flags 0, acknowledged
  kStatusAble = 5,      ///< known to the retransmission's messages alone
  kFwData = 6,          ///< flags 2, answered by fragment data
  kKeepalive = 7,       ///< flags 0, acknowledged
  kFwReq = 8,           ///< flags 2, acknowledged
  kGps = 9,             ///< flags 4, not awaited
  kServerTime = 11,     ///< flags 0, answered with 14 digits
  kConfData = 12,       ///< flags 2, answered by fragment data
  kConfReq = 13,        ///< flags 2, acknowledged
  kKeepaliveParam = 14, ///< flags 0, answered with the parameter text
  kTraffic = 64,        ///< flags 0, acknowledged
  kUpgradeCmd = 256,    ///< from here on requests of the server, flags 0 or 2,
  kConfig = 257,        ///< each acknowledged with flags 1
  kCommitReboot = 258,
  kRestoreDefaults = 259,
  kSendStatus = 260,
  kConfigFile = 261,
};

enum PacketFlags : std::uint16_t {
  kReportFlags = 0,      ///< device: a request or report; server: a request
  kReplyFlags = 1,       ///< device: reply to a request; server: acknowledgement
  kTransferFlags = 2,    ///< device: file transfer request; server: a request
  kServerReplyFlags = 3, ///< server: acknowledgement
  kGpsFlags = 4,
};

struct RegisterPayload {
  be32 uptime;                 ///< seconds
  std::uint8_t wan_address[4]; ///< IPv4, as inet_addr reads the nvram text
  char domain[64];
  char firmware_version[64];
  char product_model[64];
};
static_assert(sizeof(RegisterPayload) == 200 && offsetof(RegisterPayload, product_model) == 136);

/// The packet in the transmit and in the receive buffer.
inline RcmPacketHeader& tx_header(RcmContext& context) {
  return *reinterpret_cast<RcmPacketHeader*>(context.tx_buf);
}
inline const RcmPacketHeader& rx_header(const RcmContext& context) {
  return *reinterpret_cast<const RcmPacketHeader*>(context.rx_buf);
}
/// The payload's place in the transmit buffer; kMaxPayloadBytes fit.
inline std::uint8_t* tx_payload(RcmContext& context) {
  return context.tx_buf + kHeaderBytes;
}
inline const std::uint8_t* rx_payload(const RcmContext& context) {
  return context.rx_buf + kHeaderBytes;
}

/// Writes session_id, serial, the current seq, type and flags; leaves `version` as it is.
void begin_packet(RcmContext& context, PacketType type, PacketFlags flags);

/// Writes `length` and the checksum of the `payload_bytes` that stand behind the header.
/// @return the packet's whole length in bytes
std::size_t finish_packet(RcmContext& context, std::size_t payload_bytes);

/// Sends the first `bytes` of tx_buf to the server. @return false when the send failed
[[nodiscard]] bool send_to_server(RcmContext& context, std::size_t bytes);

enum class PacketCheck { kGood, kTooShort, kBadChecksum };

/// Checks `received` bytes: a whole header, and the checksum over `length` bytes behind it; a
/// length that reaches past the datagram's end fails like a wrong checksum, which is reported with
/// "crc is error\n". Nothing behind the received bytes is read.
[[nodiscard]] PacketCheck check_packet(const std::uint8_t* data, std::size_t received);

/// Answers the request in rx_buf: copies all of it to tx_buf, sets flags to 1 and an empty payload,
/// and sends the 36 header bytes to peer_addr; the rest is the request's own. A failed send is
/// reported ("sendto fail .. \n") and nothing else. tx_length and seq are left alone.
void acknowledge_request(RcmContext& context);

} // namespace rcmd
