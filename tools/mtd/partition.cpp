#include "tools/mtd/partition.h"

#include "platform/api/files.h"
#include "platform/api/mtd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <unistd.h>

namespace mtd_tools {

namespace {

/// @return the partition's place in the table: "mtd0: 00800000 00010000 "linux""
std::optional<int> number_of(const std::string& name) {
  std::ifstream table(device_path("/proc/mtd"));
  std::string line;
  while (std::getline(table, line)) {
    int number = 0;
    if (std::sscanf(line.c_str(), "mtd%d:", &number) == 1 && line.ends_with(" \"" + name + "\"")) {
      return number;
    }
  }
  return std::nullopt;
}

} // namespace

Partition::~Partition() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

bool Partition::fail(const std::string& what) {
  fault = what + ": " + std::strerror(errno);
  return false;
}

bool Partition::open(const std::string& name, bool for_writing) {
  const auto number = number_of(name);
  if (!number) {
    fault = "no partition of that name";
    return false;
  }
  const std::string path = "/dev/mtd/" + std::to_string(*number);
  fd_ = ::open(device_path(path.c_str()), (for_writing ? O_RDWR : O_RDONLY) | O_CLOEXEC);
  MtdInfo info{};
  if (fd_ < 0 || mtd_get_info(fd_, &info) != 0) {
    return fail(path);
  }
  bytes_ = info.size;
  erase_bytes_ = info.erase_size;
  return true;
}

bool Partition::read(std::string& content) {
  content.resize(bytes_);
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t got = mtd_read(fd_, content.data() + done, content.size() - done);
    if (got <= 0) {
      return fail("the partition cannot be read");
    }
    done += static_cast<std::size_t>(got);
  }
  return true;
}

bool Partition::write(const std::string& content) {
  if (content.size() > bytes_) {
    fault = std::to_string(content.size()) + " bytes do not fit the partition's " +
            std::to_string(bytes_);
    return false;
  }
  for (std::uint32_t at = 0; at < content.size(); at += erase_bytes_) {
    const MtdErase block = {at, erase_bytes_};
    static_cast<void>(mtd_unlock(fd_, &block)); // many chips know no lock
    const std::size_t count = std::min<std::size_t>(erase_bytes_, content.size() - at);
    if (mtd_erase(fd_, &block) != 0) {
      return fail("a block cannot be erased");
    }
    if (mtd_write(fd_, content.data() + at, count) != static_cast<ssize_t>(count)) {
      return fail("a block cannot be written");
    }
  }
  return true;
}

bool read_device_file(const std::string& path, std::string& content) {
  try {
    std::ifstream file(device_path(path.c_str()), std::ios::binary);
    content.assign(std::istreambuf_iterator<char>(file), {});
    return file.is_open();
  } catch (const std::ios_base::failure&) { // a folder, for one
    return false;
  }
}

bool write_device_file(const std::string& path, const std::string& content) {
  std::ofstream file(device_path(path.c_str()), std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.close();
  return static_cast<bool>(file);
}

} // namespace mtd_tools
