#include "tools/virtual-router/flash.h"

#include "platform/api/checksum.h"
#include "tools/virtual-router/text_file.h"

#include <filesystem>

namespace virtual_router {

namespace {

constexpr std::size_t kTrxHeaderBytes = 28;
constexpr std::uint32_t kTrxMagic = 0x30524448;
constexpr std::uint32_t kMostTrxBytes = 0x780000;
constexpr std::size_t kBackupHeaderBytes = 20;
constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;

constexpr const char* kLinuxPath = "/dev/mtd/0";
constexpr const char* kBackupPath = "/dev/mtd/1";
constexpr const char* kPartitions = "dev:    size   erasesize  name\n"
                                    "mtd0: 00800000 00010000 \"linux\"\n"
                                    "mtd1: 00010000 00010000 \"backup\"\n";

std::uint32_t le32_at(const std::string& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;)
    value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

void append_be32(std::string& bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(value >> shift & 0xFF);
}

void make_partition(const std::string& path, std::size_t size, const std::string& content) {
  std::error_code absent;
  if (std::filesystem::file_size(path, absent) == size && !absent)
    return;
  replace_file(path, content);
}

} // namespace

void make_flash(const DeviceFolder& folder, const Settings& kept) {
  replace_file(folder.path("/proc/mtd"), kPartitions);
  make_partition(folder.path(kLinuxPath), kLinuxBytes, std::string(kLinuxBytes, '\xFF'));
  make_partition(folder.path(kBackupPath), kBackupBytes, backup_image(kept));
}

std::optional<std::string> version_of_image(const std::string& image) {
  static const std::string mark = "version=";
  if (image.size() < kTrxHeaderBytes || le32_at(image, 0) != kTrxMagic)
    return std::nullopt;
  const std::uint32_t length = le32_at(image, 4);
  if (length < kTrxHeaderBytes || length > kMostTrxBytes || length > image.size())
    return std::nullopt;
  // The checksum covers the header from the flag word on and everything behind it.
  if (crc32(image.data() + 12, length - 12, kAllOnes) != le32_at(image, 8))
    return std::nullopt;
  const std::string payload = image.substr(kTrxHeaderBytes, length - kTrxHeaderBytes);
  const auto line_end = payload.find('\n');
  if (payload.compare(0, mark.size(), mark) != 0 || line_end == std::string::npos)
    return std::nullopt;
  return payload.substr(mark.size(), line_end - mark.size());
}

std::optional<std::string> flashed_version(const DeviceFolder& folder) {
  const auto image = read_file(folder.path(kLinuxPath));
  return image ? version_of_image(*image) : std::nullopt;
}

std::string backup_image(const Settings& records) {
  std::string area;
  for (const auto& [name, value] : records)
    area.append(name).append("=").append(value).push_back('\0');
  std::string image = "NVBK";
  append_be32(image, 1);
  append_be32(image, static_cast<std::uint32_t>(area.size()));
  append_be32(image, crc32(area.data(), area.size(), kAllOnes));
  append_be32(image, 0);
  image += area;
  image.resize(kBackupBytes, '\0');
  return image;
}

Settings backup_records(const std::string& image) {
  Settings records;
  std::size_t at = kBackupHeaderBytes;
  while (at < image.size()) {
    const std::size_t end = std::min(image.find('\0', at), image.size());
    const std::string record = image.substr(at, end - at);
    if (const auto equals = record.find('='); equals != std::string::npos && equals > 0)
      records.emplace(record.substr(0, equals), record.substr(equals + 1));
    at = end + 1;
  }
  return records;
}

} // namespace virtual_router
