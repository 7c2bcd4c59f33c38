#include "tools/trx/image.h"

#include "platform/api/checksum.h"

#include <algorithm>
#include <cstring>

namespace trx {

namespace {

using rcmd::kTrxHeaderBytes;
using rcmd::kTrxMaxBytes;
using rcmd::TrxHeader;

constexpr std::size_t kAlignment = 4;
constexpr std::size_t kCoveredFrom = offsetof(TrxHeader, flag_version);
constexpr std::uint32_t kImageVersion = 1; // the upper half of flag_version
constexpr char kVersionMark[] = "version=";

std::uint32_t checksum(const std::string& image, std::size_t length) {
  return crc32(image.data() + kCoveredFrom, length - kCoveredFrom, 0xFFFFFFFF);
}

std::optional<std::string> version_in(const std::string& image, std::size_t length) {
  const std::size_t mark_bytes = std::strlen(kVersionMark);
  if (image.compare(kTrxHeaderBytes, mark_bytes, kVersionMark) != 0) {
    return std::nullopt;
  }
  const std::size_t from = kTrxHeaderBytes + mark_bytes;
  const std::size_t to = image.find('\n', from);
  return to < length ? std::optional(image.substr(from, to - from)) : std::nullopt;
}

} // namespace

std::string version_line(const std::string& version) {
  return kVersionMark + version + "\n";
}

std::optional<std::string> make_image(const std::vector<std::string>& parts,
                                      bool leave_header_out) {
  std::string image(kTrxHeaderBytes, '\0');
  TrxHeader header{};
  for (std::size_t i = 0; i < std::min(parts.size(), kMaxParts); i++) {
    image.resize((image.size() + kAlignment - 1) / kAlignment * kAlignment);
    header.offsets[i] = static_cast<std::uint32_t>(image.size());
    image += parts[i];
    if (image.size() > kTrxMaxBytes) {
      return std::nullopt;
    }
  }
  header.magic = rcmd::kTrxMagic;
  header.len = static_cast<std::uint32_t>(image.size());
  header.flag_version = kImageVersion << 16 | (leave_header_out ? 1U : 0U);
  std::memcpy(image.data(), &header, sizeof header);
  header.crc32 = checksum(image, image.size());
  std::memcpy(image.data(), &header, sizeof header);
  return image;
}

std::optional<Info> read_image(const std::string& image) {
  TrxHeader header{};
  if (image.size() < sizeof header) {
    return std::nullopt;
  }
  std::memcpy(&header, image.data(), sizeof header);
  if (header.magic != rcmd::kTrxMagic) {
    return std::nullopt;
  }
  Info info;
  info.length = header.len;
  info.stored_crc = header.crc32;
  info.flag_version = header.flag_version;
  std::copy(std::begin(header.offsets), std::end(header.offsets), info.offsets.begin());
  const std::size_t length = std::clamp<std::size_t>(info.length, kTrxHeaderBytes, image.size());
  info.computed_crc = checksum(image, length);
  info.version = version_in(image, length);
  return info;
}

std::optional<std::string> find_fault(const std::string& image) {
  const std::optional<Info> info = read_image(image);
  if (!info) {
    return "no TRX header";
  }
  if (info->length < kTrxHeaderBytes || info->length > kTrxMaxBytes) {
    return "its length " + std::to_string(info->length) + " is not one of 28 to 7864320";
  }
  if (info->length > image.size()) {
    return "truncated: " + std::to_string(image.size()) + " of " + std::to_string(info->length) +
           " bytes";
  }
  if (info->computed_crc != info->stored_crc) {
    return "wrong checksum";
  }
  return std::nullopt;
}

} // namespace trx
