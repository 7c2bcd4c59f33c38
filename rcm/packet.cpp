#include "rcm/packet.h"

#include "core/say.h"
#include "platform/api/checksum.h"
#include "platform/api/net.h"

#include <cstring>

namespace rcmd {

namespace {

bool send_packet(const RcmContext& context, std::size_t bytes, const sockaddr_in& to) {
  const ssize_t sent = net_sendto(context.sock, context.tx_buf, bytes, 0,
                                  reinterpret_cast<const sockaddr*>(&to), sizeof to);
  return sent >= 0;
}

} // namespace

void begin_packet(RcmContext& context, PacketType type, PacketFlags flags) {
  // DELIBERATE: `version` is not written: it goes out as the last packet, or the last request that
  // was answered, left it in the buffer.
  RcmPacketHeader& header = tx_header(context);
  std::memcpy(header.session_id, context.session_id, sizeof header.session_id);
  std::memcpy(header.serial, context.serial, sizeof header.serial);
  header.seq = context.seq;
  header.type = type;
  header.flags = flags;
}

std::size_t finish_packet(RcmContext& context, std::size_t payload_bytes) {
  RcmPacketHeader& header = tx_header(context);
  header.length = static_cast<std::uint16_t>(payload_bytes);
  header.crc = crc16(tx_payload(context), payload_bytes, kCrcStart);
  return kHeaderBytes + payload_bytes;
}

bool send_to_server(RcmContext& context, std::size_t bytes) {
  return send_packet(context, bytes, context.server_addr);
}

PacketCheck check_packet(const std::uint8_t* data, std::size_t received) {
  if (received < kHeaderBytes) {
    return PacketCheck::kTooShort;
  }
  const auto& header = *reinterpret_cast<const RcmPacketHeader*>(data);
  if (header.length > received - kHeaderBytes ||
      crc16(data + kHeaderBytes, header.length, kCrcStart) != header.crc) {
    diag("crc is error\n");
    return PacketCheck::kBadChecksum;
  }
  return PacketCheck::kGood;
}

void acknowledge_request(RcmContext& context) {
  std::memcpy(context.tx_buf, context.rx_buf, static_cast<std::size_t>(context.rx_length));
  tx_header(context).flags = kReplyFlags;
  const std::size_t bytes = finish_packet(context, 0);
  if (!send_packet(context, bytes, context.peer_addr)) {
    diag("sendto fail .. \n");
  }
}

} // namespace rcmd
