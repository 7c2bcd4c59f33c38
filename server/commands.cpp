#include "server/operations.h"

#include <algorithm>
#include <stdexcept>

namespace server {

namespace {

constexpr std::size_t kParsedPastTheEnd = 4;
constexpr std::size_t kMostRecordBytes = kLargestDatagram - kHeaderBytes - 4 - kParsedPastTheEnd;
constexpr std::size_t kLongestName = 255;

void append(Bytes& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
}

std::uint16_t scope_of(const std::string& name) {
  if (name.starts_with("wl_")) {
    return 1;
  }
  return name.starts_with("wan_") ? 2 : 0;
}

void check_record(const std::string& name, const std::string& value) {
  if (name.empty()) {
    throw std::invalid_argument("a variable without a name");
  }
  if (name.find_first_of(std::string("=\0", 2)) != std::string::npos) {
    throw std::invalid_argument("the name of a variable holds no \"=\" and no NUL");
  }
  if (value.find('\0') != std::string::npos) {
    throw std::invalid_argument("the value of " + name + " holds a NUL");
  }
}

} // namespace

Command make_set(std::uint16_t unit, const Values& values) {
  if (values.empty()) {
    throw std::invalid_argument("no values to set");
  }
  Command command{.kind = OperationKind::kSet, .type = kConfig, .payload = Bytes(4)};
  put_u16(command.payload.data(), scope_of(values.front().first)); // the device only prints it
  put_u16(command.payload.data() + 2, unit);
  for (const auto& [name, value] : values) {
    check_record(name, value);
    append(command.payload, name);
    append(command.payload, "=");
    append(command.payload, value);
    command.payload.push_back(0);
  }
  const std::size_t record_bytes = command.payload.size() - 4;
  if (record_bytes > kMostRecordBytes) {
    throw std::invalid_argument("the values take " + std::to_string(record_bytes) + " bytes; " +
                                std::to_string(kMostRecordBytes) + " fit into one request");
  }
  // DELIBERATE: a device parses as many bytes as `length` says, but from byte 40 on, so 4 bytes
  // past the counted payload. Four NULs that are sent but not counted fill just these; counted ones
  // would only move the region, into whatever an earlier datagram left behind this one.
  command.rest = Bytes(kParsedPastTheEnd);
  return command;
}

Command make_plain(OperationKind kind) {
  Command command{.kind = kind, .type = kSendStatus};
  if (kind == OperationKind::kCommit) {
    command.type = kCommitReboot;
  } else if (kind == OperationKind::kRestoreDefaults) {
    command.type = kRestoreDefaults;
  }
  return command;
}

Command make_transfer(OperationKind kind, std::shared_ptr<const Image> image,
                      const std::string& name, const std::string& path) {
  const bool clean =
      std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7F && c != '/'; });
  if (name.empty() || name.size() > kLongestName || !clean) {
    throw std::invalid_argument("the file's name must be 1 to 255 visible ASCII characters "
                                "without \"/\"");
  }
  Command command{.kind = kind,
                  .type = kind == OperationKind::kUpgrade ? kUpgradeCmd : kConfigFile,
                  .payload = Bytes(8),
                  .rest = {},
                  .name = name,
                  .path = path,
                  .image = std::move(image)};
  // The first two bytes mean nothing to the command. A copy of it that is late, and met by a device
  // that fetches already, must not look like a fragment: this is a number that no fragment has.
  put_u16(command.payload.data(), 0xFFFF);
  put_u16(command.payload.data() + 2, static_cast<std::uint16_t>(command.image->fragments()));
  put_u32(command.payload.data() + 4, static_cast<std::uint32_t>(command.image->bytes().size()));
  append(command.payload, name);
  command.payload.push_back(0);
  return command;
}

} // namespace server
