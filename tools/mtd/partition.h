// Flash partitions for the tools that copy them: found by name in /proc/mtd, read and written whole
// through the platform's MTD calls. Each function says what went wrong in `fault`.
#pragma once

#include <cstdint>
#include <string>

namespace mtd_tools {

/// One open partition. Paths are device paths.
class Partition {
public:
  Partition() = default;
  Partition(const Partition&) = delete;
  Partition& operator=(const Partition&) = delete;
  ~Partition();

  /// Opens the partition of exactly this name.
  [[nodiscard]] bool open(const std::string& name, bool for_writing);
  [[nodiscard]] bool read(std::string& content);
  /// Erases the blocks that the content reaches into and writes it from the start on. What does not
  /// fit is refused before anything is erased.
  [[nodiscard]] bool write(const std::string& content);

  std::string fault;

private:
  [[nodiscard]] bool fail(const std::string& what);

  int fd_ = -1;
  std::uint32_t bytes_ = 0;
  std::uint32_t erase_bytes_ = 0;
};

/// Reads or replaces a whole file. @return false when it cannot be
[[nodiscard]] bool read_device_file(const std::string& path, std::string& content);
[[nodiscard]] bool write_device_file(const std::string& path, const std::string& content);

} // namespace mtd_tools
