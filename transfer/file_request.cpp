#include "transfer/file_request.h"

#include "core/result.h"
#include "core/say.h"
#include "platform/api/memory.h"
#include "platform/api/system.h"
#include "rcm/exchange.h"

#include <cstring>

namespace rcmd {

namespace {

constexpr int kFileRequestTries = 20;
constexpr unsigned kFileRequestPause_s = 10;

struct FileRequestPayload {
  std::uint8_t untouched[2];
  le16 fragment_count;
  le32 total_length;
};
static_assert(sizeof(FileRequestPayload) == 8);

struct FragmentRequestPayload {
  be16 fragment;
  std::uint8_t zero[2];
};
static_assert(sizeof(FragmentRequestPayload) == 4);

bool is_file_acknowledgement(const RcmContext& context, void* type) {
  const RcmPacketHeader& header = rx_header(context);
  return header.type == *static_cast<const PacketType*>(type) && header.flags == kReplyFlags;
}

// @return the datagram's length in bytes
std::size_t build_file_request(RcmContext& context, const char* name, std::uint32_t total_length,
                               std::uint16_t fragment_count, PacketType type) {
  begin_packet(context, type, kTransferFlags);
  context.seq++;
  // DELIBERATE: the command's two numbers go back in little-endian order, and the two bytes before
  // them are left as the transmit buffer holds them: the server knows the file request so.
  auto& payload = *reinterpret_cast<FileRequestPayload*>(tx_payload(context));
  payload.fragment_count = fragment_count;
  payload.total_length = total_length;
  // DELIBERATE: the name travels behind the counted payload; neither `length` nor the checksum
  // knows of it.
  finish_packet(context, sizeof payload);
  const std::size_t name_bytes = std::strlen(name);
  std::memcpy(context.tx_buf + kFileNameAt, name, name_bytes);
  return kFileNameAt + name_bytes;
}

int request_fragment(RcmContext& context, std::uint16_t fragment, PacketType type) {
  begin_packet(context, type, kTransferFlags);
  context.seq++;
  auto& payload = *reinterpret_cast<FragmentRequestPayload*>(tx_payload(context));
  payload = {{}, {0, 0}};
  payload.fragment = fragment;
  return send_to_server(context, finish_packet(context, sizeof payload)) ? kSuccess : kFailure;
}

} // namespace

bool read_file_command(const RcmContext& context, FileCommand& command) {
  const auto bytes = static_cast<std::size_t>(context.rx_length);
  if (bytes < kFileNameAt) {
    diag("file command without a name .. \n");
    return false;
  }
  const auto& payload = *reinterpret_cast<const RcmFileCommand*>(rx_payload(context));
  const char* name = reinterpret_cast<const char*>(context.rx_buf + kFileNameAt);
  const std::size_t name_bytes = strnlen(name, bytes - kFileNameAt);
  if (name_bytes >= sizeof command.name) {
    diag("file name too long .. \n");
    return false;
  }
  command.fragment_count = payload.fragment_count;
  command.total_length = payload.total_length;
  std::memcpy(command.name, name, name_bytes);
  command.name[name_bytes] = '\0';
  return true;
}

int file_fits(const FileCommand& command, std::uint32_t extra_bytes) {
  const bool countable = command.total_length <= UINT32_MAX - extra_bytes;
  return check_memory_avalid(countable ? command.total_length + extra_bytes : UINT32_MAX);
}

int do_request_file(RcmContext* context, const char* name, std::uint32_t total_length,
                    std::uint16_t fragment_count, PacketType type) {
  for (int sends = 1;; sends++) {
    const std::size_t bytes =
        build_file_request(*context, name, total_length, fragment_count, type);
    if (!send_to_server(*context, bytes)) {
      return kFailure;
    }
    // A wait error is silence like a time-out: the next try comes after the pause.
    if (await_packet(*context, is_file_acknowledgement, &type) == Answer::kMatched) {
      return kSuccess;
    }
    if (sends == kFileRequestTries) {
      diag("Peer dead while requesting file, register again\n");
      return kPeerDead;
    }
    sleep_seconds(kFileRequestPause_s);
    diag("cannot get ACK, try again\n");
  }
}

int do_request_fw_fragment(RcmContext* context, std::uint16_t fragment) {
  return request_fragment(*context, fragment, kFwData);
}

int do_request_config_fragment(RcmContext* context, std::uint16_t fragment) {
  return request_fragment(*context, fragment, kConfData);
}

} // namespace rcmd
